#include "propertytable.h"

#include <QMetaObject>
#include <QMetaProperty>

#include <algorithm>

namespace TZ::Internal {

namespace {

bool toBool(const QStringRef &text, bool &value)
{
    if (text == QLatin1String("true") || text == QLatin1String("1"))
        value = true;
    else if (text == QLatin1String("false") || text == QLatin1String("0"))
        value = false;
    else
        return false;
    return true;
}

// The value of a digit, or base if it is none.
quint32 digitValue(QChar digit, quint32 base)
{
    const ushort code = digit.unicode();
    quint32 value = base;
    if (code >= '0' && code <= '9')
        value = code - u'0';
    else if (code >= 'a' && code <= 'f')
        value = code - u'a' + 10U;
    else if (code >= 'A' && code <= 'F')
        value = code - u'A' + 10U;
    return std::min(value, base);
}

// QString's own conversions also take blanks, a plus sign and digits of the locale.
bool toInt(const QStringRef &text, int &value)
{
    const bool isHex = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    const bool isNegative = text.startsWith(QLatin1Char('-'));
    const quint32 base = isHex ? 16 : 10;
    const quint64 limit = isNegative ? 0x80000000U : 0xFFFFFFFFU;
    const int prefix = isHex ? 2 : isNegative ? 1 : 0;
    quint64 magnitude = 0;
    for (int i = prefix; i < text.size(); ++i) {
        const quint32 digit = digitValue(text[i], base);
        magnitude = magnitude * base + digit;
        if (digit == base || magnitude > limit)
            return false;
    }
    value = int(isNegative ? 0U - quint32(magnitude) : quint32(magnitude));
    return text.size() > prefix;
}

} // namespace

PropertyTable::PropertyTable(const QMetaObject *metaObject)
{
    const int count = metaObject->propertyCount();
    const int first = QObject::staticMetaObject.propertyCount();
    m_properties.reserve(std::size_t(std::max(0, count - first)));
    for (int i = first; i < count; ++i) {
        const QMetaProperty property = metaObject->property(i);
        const int type = property.userType();
        if (property.isWritable()
            && (type == QMetaType::Bool || type == QMetaType::Int || type == QMetaType::QString))
            m_properties.push_back({ QLatin1String(property.name()), i, type });
    }
}

const PropertyTable::Property *PropertyTable::find(const QStringRef &name)
{
    for (std::size_t i = 0; i < m_properties.size(); ++i) {
        if (m_next >= m_properties.size())
            m_next = 0;
        const Property &property = m_properties[m_next++];
        if (name == property.name)
            return &property;
    }
    return nullptr;
}

std::optional<PropertyTable::Value> PropertyTable::convert(const Property &property,
                                                           const QStringRef &text)
{
    switch (property.type) {
    case QMetaType::Bool: {
        bool flag = false;
        if (!toBool(text, flag))
            return std::nullopt;
        return flag;
    }
    case QMetaType::Int: {
        int number = 0;
        if (!toInt(text, number))
            return std::nullopt;
        return number;
    }
    default:
        return text.toString();
    }
}

// As QMetaProperty::write() does it, without the way through a QVariant.
void PropertyTable::write(QObject *object, const Property &property, Value &value)
{
    void *const data = std::visit([](auto &held) { return static_cast<void *>(&held); }, value);
    int status = -1;
    int flags = 0;
    void *arguments[] = { data, nullptr, &status, &flags };
    QMetaObject::metacall(object, QMetaObject::WriteProperty, property.index, arguments);
}

} // namespace TZ::Internal
