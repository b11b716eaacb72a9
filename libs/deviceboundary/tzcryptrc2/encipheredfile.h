#ifndef TZCRYPTRC2_ENCIPHEREDFILE_H
#define TZCRYPTRC2_ENCIPHEREDFILE_H

#include "rc2cbc.h"

#include <QIODevice>
#include <QString>

/*!
    The enciphered file: a header, the body in RC2 and CBC with PKCS#7 padding, and an
    authentication code (HMAC-SHA256) over header and body.

    Chaining and padding alone do not notice a damaged byte in the middle of a file, and firmware is
    the last thing to install with one; hence the code.

    Both functions work in constant memory. \a source is read from its beginning to its end.
*/
namespace TZ::Internal::EncipheredFile {

/*! Writes the enciphered form of \a source to \a target. False, with \a cause set, on failure. */
bool encipher(QIODevice &source, QIODevice &target, const CryptKey &key,
              const Rc2Cbc::Block &initialVector, QString &cause);

/*!
    Writes the plain form of \a source, a file whose size is known, to \a target. False, with
    \a cause set, on failure; what stands in \a target must be thrown away then, for the code is
    behind the body.
*/
bool decipher(QIODevice &source, QIODevice &target, const CryptKey &key, QString &cause);

} // namespace TZ::Internal::EncipheredFile

#endif // TZCRYPTRC2_ENCIPHEREDFILE_H
