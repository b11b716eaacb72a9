#ifndef TZCRYPTRC2_CRYPTKEY_H
#define TZCRYPTRC2_CRYPTKEY_H

#include "tzcryptrc2_export.h"

#include <QByteArray>
#include <QString>

namespace TZ {

/*! A key of the RC2 cipher. */
struct CryptKey {
    QByteArray bytes; //!< 1 to 128 of them
    int effectiveBits = 0; //!< how much of the key counts, 1 to 1024
};

/*!
    The key that every process starts with. It is published with the sources and keeps nothing
    secret: whoever ships enciphered packages sets a key of his own with setCryptKey().
*/
TZCRYPTRC2_EXPORT CryptKey demonstrationCryptKey();

/*!
    Makes \a key that of all enciphering and deciphering that begins from now on, in the whole
    process. False, with nothing changed, if its bytes or bits are out of range. Any thread.
*/
TZCRYPTRC2_EXPORT bool setCryptKey(const CryptKey &key);

/*! The key in use. Any thread. */
TZCRYPTRC2_EXPORT CryptKey cryptKey();

/*!
    Reads \a key from the text file at \a path: a line "key = " with the bytes in hexadecimal and,
    if not all bits of the key are to count, a line "effective-bits = " with a decimal number. Empty
    lines and lines that begin with "#" are skipped.

    False, with \a errorText set and \a key as it was, if the file cannot be read or is anything
    else. The text never quotes the key.
*/
TZCRYPTRC2_EXPORT bool readCryptKeyFile(const QString &path, CryptKey &key, QString &errorText);

} // namespace TZ

#endif // TZCRYPTRC2_CRYPTKEY_H
