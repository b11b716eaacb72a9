#ifndef TESTS_SUPPORT_ENCIPHEREDFILE_H
#define TESTS_SUPPORT_ENCIPHEREDFILE_H

#include <tzcryptrc2/cryptrc2.h>

#include <QByteArray>
#include <QTemporaryFile>

/*! Stores \a plain at \a path as packages hold their .dat files. */
inline bool storeEnciphered(const QString &path, const QByteArray &plain)
{
    QTemporaryFile file;
    return file.open() && file.write(plain) == plain.size() && file.flush()
        && CryptRc2().ReadFileToEncryptOrDecrypt(file.fileName(), path, CRYPTSTYLE_FILE,
                                                 CRYPTTYPE_ENCRYPT);
}

#endif // TESTS_SUPPORT_ENCIPHEREDFILE_H
