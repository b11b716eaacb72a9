#include "manifestobject.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Velmar::Package {

namespace {

// What XML can carry, and a person can see.
bool isPlainText(const QString &text)
{
    for (int i = 0; i < text.size(); ++i) {
        const QChar character = text[i];
        if (character.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate())
            ++i;
        else if (character.isSurrogate() || character.category() == QChar::Other_Control
                 || character.unicode() >= 0xFFFE)
            return false;
    }
    return true;
}

// Numbers of JSON, and texts such as "0x1F" and "-7".
bool toInteger(const QJsonValue &value, qint64 &number)
{
    if (value.isDouble()) {
        const double given = value.toDouble();
        if (given != std::floor(given) || std::abs(given) > 9e15)
            return false;
        number = qint64(given);
        return true;
    }
    const QString text = value.toString();
    const bool isHex = text.startsWith(QLatin1String("0x"));
    const QString digits = text.mid(isHex ? 2 : 0);
    bool ok = false;
    number = digits.toLongLong(&ok, isHex ? 16 : 10);
    return ok && !digits.startsWith(QLatin1Char('+'))
        && !(isHex && digits.startsWith(QLatin1Char('-'))) && digits.trimmed() == digits;
}

} // namespace

ManifestObject::ManifestObject(const QJsonValue &value, const QString &place, QString &error)
    : m_object(value.toObject())
    , m_place(place)
    , m_error(error)
{
    if (!value.isObject())
        fail(nullptr, QStringLiteral("is no object"));
}

QString ManifestObject::text(const char *key, Need need)
{
    const QJsonValue value = take(key, need);
    if (!value.isUndefined() && !value.isString())
        fail(key, QStringLiteral("is no text"));
    const QString text = value.toString();
    if (!isPlainText(text)) {
        fail(key, QStringLiteral("contains a character that is none of a text"));
        return QString(); // a file name with such a character makes Qt complain, too
    }
    if (need == Need::Required && text.isEmpty())
        fail(key, QStringLiteral("is empty"));
    return text;
}

bool ManifestObject::flag(const char *key)
{
    const QJsonValue value = take(key, Need::Optional);
    if (!value.isUndefined() && !value.isBool())
        fail(key, QStringLiteral("is neither true nor false"));
    return value.toBool();
}

qint64 ManifestObject::number(const char *key, qint64 lowest, qint64 highest, Need need)
{
    const QJsonValue value = take(key, need);
    qint64 number = 0;
    if (!value.isUndefined() && (!toInteger(value, number) || number < lowest || number > highest))
        fail(key, QStringLiteral("is no number from %1 to %2").arg(lowest).arg(highest));
    return number;
}

QString ManifestObject::numberText(const char *key)
{
    const qint64 value =
        number(key, std::numeric_limits<qint32>::min(), std::numeric_limits<quint32>::max());
    const QJsonValue given = m_object.value(QLatin1String(key));
    return given.isString() ? given.toString() : QString::number(value);
}

void ManifestObject::forEach(const char *key, Need need,
                             const std::function<void(const QJsonValue &, const QString &)> &visit)
{
    const QJsonValue value = take(key, need);
    if (!value.isUndefined() && !value.isArray())
        fail(key, QStringLiteral("is no array"));
    const QJsonArray array = value.toArray();
    if (need == Need::Required && array.isEmpty())
        fail(key, QStringLiteral("is empty"));
    const QString place = placeOf(QLatin1String(key));
    for (int i = 0; i < array.size(); ++i)
        visit(array[i], QStringLiteral("%1[%2]").arg(place).arg(i));
}

void ManifestObject::finish()
{
    const QStringList keys = m_object.keys();
    for (const QString &key : keys) {
        if (!m_asked.contains(key))
            failAt(placeOf(key), QStringLiteral("is unknown"));
    }
}

void ManifestObject::fail(const char *key, const QString &what)
{
    failAt(key ? placeOf(QLatin1String(key)) : m_place, what);
}

QJsonValue ManifestObject::take(const char *key, Need need)
{
    const QString name = QLatin1String(key);
    m_asked.insert(name);
    const QJsonValue value = m_object.value(name);
    if (need == Need::Required && value.isUndefined())
        fail(key, QStringLiteral("is missing"));
    return value;
}

QString ManifestObject::placeOf(const QString &key) const
{
    return m_place.isEmpty() ? key : m_place + QLatin1Char('.') + key;
}

void ManifestObject::failAt(const QString &place, const QString &what)
{
    if (m_error.isEmpty())
        m_error = QStringLiteral("%1 %2").arg(
            place.isEmpty() ? QStringLiteral("the manifest") : place, what);
}

} // namespace Velmar::Package
