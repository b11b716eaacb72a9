#ifndef TZCRYPTRC2_ENCIPHEREDFILE_H
#define TZCRYPTRC2_ENCIPHEREDFILE_H

#include "rc2cbc.h"

#include <tzcryptrc2/convertfile.h>

#include <QIODevice>
#include <QString>

#include <functional>

/*!
    The enciphered file: a header, the body in RC2 and CBC with PKCS#7 padding, and an
    authentication code (HMAC-SHA256) over header and body.

    Chaining and padding alone do not notice a damaged byte in the middle of a file, and firmware is
    the last thing to install with one; hence the code.

    All functions work in constant memory. \a source is read from its beginning to its end, and
    \a mayGoOn, if it is set, is asked before each piece. With any result but Done, \a cause is set.
*/
namespace TZ::Internal::EncipheredFile {

using Result = ConvertOutcome::Result;

/*! Writes the enciphered form of \a source to \a target. */
Result encipher(QIODevice &source, QIODevice &target, const CryptKey &key,
                const Rc2Cbc::Block &initialVector, const std::function<bool()> &mayGoOn,
                QString &cause);

/*!
    Writes the plain form of \a source, a file whose size is known, to \a target. If that fails,
    what stands in \a target must be thrown away, for the code is behind the body.
*/
Result decipher(QIODevice &source, QIODevice &target, const CryptKey &key,
                const std::function<bool()> &mayGoOn, QString &cause);

/*! What decipher() would say of \a source, but for a target that fails. */
Result check(QIODevice &source, const CryptKey &key, const std::function<bool()> &mayGoOn,
             QString &cause);

} // namespace TZ::Internal::EncipheredFile

#endif // TZCRYPTRC2_ENCIPHEREDFILE_H
