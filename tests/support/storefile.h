#ifndef TESTS_SUPPORT_STOREFILE_H
#define TESTS_SUPPORT_STOREFILE_H

#include <QByteArray>
#include <QFile>

/*! Makes \a path a file that holds \a bytes, and nothing else. */
inline bool storeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

#endif // TESTS_SUPPORT_STOREFILE_H
