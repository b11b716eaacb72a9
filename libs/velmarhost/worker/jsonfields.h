#ifndef VELMARHOST_JSONFIELDS_H
#define VELMARHOST_JSONFIELDS_H

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <limits>
#include <optional>

namespace Velmar::Host {

/*!
    Reads the fields of one JSON object strictly: each key once and no other.

    The first fault counts, and a field that is at fault reads as an empty value; so all fields are
    read first, and then isGood() is asked once.
*/
class JsonFields
{
public:
    /*! \a place names the object in a fault, as in "order". */
    JsonFields(const QJsonObject &object, const QString &place);

    bool has(const char *key) const;

    QString text(const char *key);
    QStringList texts(const char *key);
    bool flag(const char *key);
    QJsonObject object(const char *key);
    QJsonArray array(const char *key);

    /*! A whole number from \a least to \a greatest. */
    qint64 number(const char *key, qint64 least, qint64 greatest);

    /*! A whole number that \a Number can hold. */
    template<typename Number> Number numberOf(const char *key)
    {
        return static_cast<Number>(
            number(key, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max()));
    }

    /*! Notes \a fault of the field \a key, unless there was another one before. */
    void setFault(const char *key, const QString &fault);

    /*! False, with \a errorText set, if a field was at fault or a key was not asked for. */
    bool isGood(QString &errorText);

private:
    QJsonValue take(const char *key);

    QJsonObject m_object; // what was not read yet
    const QString m_place;
    QString m_fault;
};

} // namespace Velmar::Host

#endif // VELMARHOST_JSONFIELDS_H
