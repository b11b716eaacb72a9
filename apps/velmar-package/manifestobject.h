#ifndef VELMARPACKAGE_MANIFESTOBJECT_H
#define VELMARPACKAGE_MANIFESTOBJECT_H

#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QString>

#include <functional>

namespace Velmar::Package {

/*!
    One JSON object of a manifest, read strictly: each key is asked for by its type, and a key that
    nobody has asked for is an error.

    Errors go to one text that all objects of a manifest share; the first one stays. After it the
    values are meaningless but harmless.
*/
class ManifestObject
{
public:
    enum class Need { Optional, Required };

    /*! \a place names the object in errors, as in "units[0].files[2]"; empty for the manifest. */
    ManifestObject(const QJsonValue &value, const QString &place, QString &error);

    /*! A text without control characters. */
    QString text(const char *key, Need need = Need::Optional);
    bool flag(const char *key);
    /*! A number from \a lowest to \a highest, as such or as a text with "0x". 0 without the key. */
    qint64 number(const char *key, qint64 lowest, qint64 highest, Need need = Need::Optional);
    /*! A number that fits into 32 bits, signed or unsigned, in the notation of the manifest. */
    QString numberText(const char *key);
    /*! Calls \a visit for each element with its place. A required array has at least one. */
    void forEach(const char *key, Need need,
                 const std::function<void(const QJsonValue &, const QString &)> &visit);

    /*! Reports the keys that were not asked for. */
    void finish();

    /*! Reports that the value of \a key is wrong; null stands for the object itself. */
    void fail(const char *key, const QString &what);

private:
    QJsonValue take(const char *key, Need need);
    QString placeOf(const QString &key) const;
    void failAt(const QString &place, const QString &what);

    QJsonObject m_object;
    const QString m_place;
    QString &m_error;
    QSet<QString> m_asked;
};

} // namespace Velmar::Package

#endif // VELMARPACKAGE_MANIFESTOBJECT_H
