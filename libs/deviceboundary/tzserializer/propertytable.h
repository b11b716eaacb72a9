#ifndef TZSERIALIZER_PROPERTYTABLE_H
#define TZSERIALIZER_PROPERTYTABLE_H

#include <QObject>
#include <QString>

#include <cstddef>
#include <optional>
#include <variant>
#include <vector>

namespace TZ::Internal {

/*!
    The properties of one class that a file can set: writable, of the type bool, int or QString, and
    declared by a class below QObject. \c objectName is thus none of them.
*/
class PropertyTable
{
public:
    struct Property {
        QLatin1String name;
        int index; // in the class
        int type; // a QMetaType::Type
    };

    using Value = std::variant<bool, int, QString>;

    explicit PropertyTable(const QMetaObject *metaObject);

    /*! Null if there is no such property. */
    const Property *find(const QStringRef &name);

    /*!
        Reads \a text as a value of the type of \a property.

        Nothing if it is none. A bool is \c true, \c 1, \c false or \c 0. An int is decimal, or
        hexadecimal behind \c 0x, from -2147483648 to 4294967295; what lies above 2147483647 is kept
        as the same 32 bits, for register addresses use all of them.
    */
    static std::optional<Value> convert(const Property &property, const QStringRef &text);

    /*! Sets \a property of \a object, which is of this table's class, to a \a value of its type. */
    static void write(QObject *object, const Property &property, Value &value);

private:
    std::vector<Property> m_properties;
    std::size_t m_next = 0; // files mostly name the properties in the order of the class
};

} // namespace TZ::Internal

#endif // TZSERIALIZER_PROPERTYTABLE_H
