#ifndef JSONTEXT_JSONTEXT_H
#define JSONTEXT_JSONTEXT_H

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

namespace Velmar {

/*! The way from the top of a JSON document to a value in it: keys, and indexes in decimal. */
using JsonPath = QStringList;

/*!
    A JSON text that QJsonDocument has accepted, for what its tree does not keep: where a value
    stands, and keys that an object has twice.
*/
class JsonText
{
public:
    explicit JsonText(const QByteArray &json);

    /*! Line, from 1, on which the byte at \a offset stands. */
    int lineAt(int offset) const;

    /*! Line, from 1, on which the value at \a path begins, or the key before it if it has one. The
        last line if there is no such value. */
    int lineOf(const JsonPath &path) const;

    /*! Path of the first key that its object has already, empty if there is none; \a line is the
        line of that second key. */
    JsonPath repeatedKey(int &line) const;

private:
    struct Place {
        const JsonPath &path;
        int offset; // of the key, or of the value in a list
        bool isRepeated; // its object has had this key before
    };
    // Goes through all values but the topmost, in the order of the text, until visit answers false.
    void walk(const std::function<bool(const Place &)> &visit) const;

    const QByteArray m_json;
};

} // namespace Velmar

#endif // JSONTEXT_JSONTEXT_H
