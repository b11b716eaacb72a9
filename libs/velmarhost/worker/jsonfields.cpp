#include "worker/jsonfields.h"

#include <cmath>

namespace Velmar::Host {

JsonFields::JsonFields(const QJsonObject &object, const QString &place)
    : m_object(object)
    , m_place(place)
{
}

bool JsonFields::has(const char *key) const
{
    return m_object.contains(QLatin1String(key));
}

QString JsonFields::text(const char *key)
{
    const auto value = take(key);
    if (!value.isString())
        setFault(key, QStringLiteral("is no text"));
    return value.toString();
}

QStringList JsonFields::texts(const char *key)
{
    QStringList texts;
    const auto values = array(key);
    for (const auto &value : values) {
        if (!value.isString())
            setFault(key, QStringLiteral("holds what is no text"));
        texts.append(value.toString());
    }
    return texts;
}

bool JsonFields::flag(const char *key)
{
    const auto value = take(key);
    if (!value.isBool())
        setFault(key, QStringLiteral("is neither true nor false"));
    return value.toBool();
}

QJsonObject JsonFields::object(const char *key)
{
    const auto value = take(key);
    if (!value.isObject())
        setFault(key, QStringLiteral("is no object"));
    return value.toObject();
}

QJsonArray JsonFields::array(const char *key)
{
    const auto value = take(key);
    if (!value.isArray())
        setFault(key, QStringLiteral("is no list"));
    return value.toArray();
}

qint64 JsonFields::number(const char *key, qint64 least, qint64 greatest)
{
    constexpr double Exact = 9007199254740992.0; // 2^53: JSON numbers are doubles for Qt
    const auto value = take(key);
    const double number = value.toDouble();
    if (!value.isDouble() || std::trunc(number) != number || std::abs(number) > Exact
        || static_cast<qint64>(number) < least || static_cast<qint64>(number) > greatest) {
        setFault(key, QStringLiteral("is no number from %1 to %2").arg(least).arg(greatest));
        return 0;
    }
    return static_cast<qint64>(number);
}

void JsonFields::setFault(const char *key, const QString &fault)
{
    if (m_fault.isEmpty())
        m_fault = QStringLiteral("\"%1\" of the %2 %3").arg(QLatin1String(key), m_place, fault);
}

bool JsonFields::isGood(QString &errorText)
{
    if (m_fault.isEmpty() && !m_object.isEmpty())
        m_fault = QStringLiteral("the %1 has an unknown key \"%2\"")
                      .arg(m_place, m_object.constBegin().key());
    errorText = m_fault;
    return m_fault.isEmpty();
}

QJsonValue JsonFields::take(const char *key)
{
    const auto value = m_object.take(QLatin1String(key));
    if (value.isUndefined())
        setFault(key, QStringLiteral("is missing"));
    return value;
}

} // namespace Velmar::Host
