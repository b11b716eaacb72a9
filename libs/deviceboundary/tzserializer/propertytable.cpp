#include "propertytable.h"

#include <QMetaObject>

#include <limits>

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

bool isMadeOf(const QStringRef &digits, const char *allowed)
{
    const QLatin1String set(allowed);
    for (const QChar digit : digits) {
        if (!set.contains(digit))
            return false;
    }
    return !digits.isEmpty();
}

// QString's own conversions also take blanks, a plus sign and digits of the locale.
bool toInt(const QStringRef &text, int &value)
{
    const bool isHex = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    const bool isNegative = text.startsWith(QLatin1Char('-'));
    const QStringRef digits = text.mid(isHex ? 2 : isNegative ? 1 : 0);
    if (!isMadeOf(digits, isHex ? "0123456789abcdefABCDEF" : "0123456789"))
        return false;
    bool ok = false;
    const qulonglong magnitude = digits.toULongLong(&ok, isHex ? 16 : 10);
    const qulonglong limit =
        isNegative ? 0x80000000ULL : qulonglong(std::numeric_limits<quint32>::max());
    if (!ok || magnitude > limit)
        return false;
    value = int(isNegative ? 0U - quint32(magnitude) : quint32(magnitude));
    return true;
}

} // namespace

PropertyTable::PropertyTable(const QMetaObject *metaObject)
{
    for (int i = QObject::staticMetaObject.propertyCount(); i < metaObject->propertyCount(); ++i) {
        const QMetaProperty property = metaObject->property(i);
        const int type = property.userType();
        if (property.isWritable()
            && (type == QMetaType::Bool || type == QMetaType::Int || type == QMetaType::QString))
            m_entries.push_back({ QLatin1String(property.name()), property });
    }
}

const QMetaProperty *PropertyTable::find(const QStringRef &name)
{
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        if (m_next >= m_entries.size())
            m_next = 0;
        const Entry &entry = m_entries[m_next++];
        if (name == entry.name)
            return &entry.property;
    }
    return nullptr;
}

bool PropertyTable::convert(const QMetaProperty &property, const QStringRef &text, QVariant &value)
{
    switch (property.userType()) {
    case QMetaType::Bool: {
        bool flag = false;
        const bool ok = toBool(text, flag);
        value = flag;
        return ok;
    }
    case QMetaType::Int: {
        int number = 0;
        const bool ok = toInt(text, number);
        value = number;
        return ok;
    }
    default:
        value = text.toString();
        return true;
    }
}

} // namespace TZ::Internal
