#include <tinyboundary/calls.h>

#include <QMutex>
#include <QMutexLocker>

namespace TinyBoundary {

namespace {

QMutex s_mutex; // guards the three below
QStringList s_calls;
bool s_isTakingFiles = true;
QByteArray s_sentBytes;

} // namespace

void note(const QString &call)
{
    const QMutexLocker locker(&s_mutex);
    s_calls.append(call);
}

QStringList notedCalls()
{
    const QMutexLocker locker(&s_mutex);
    return s_calls;
}

bool isTakingFiles()
{
    const QMutexLocker locker(&s_mutex);
    return s_isTakingFiles;
}

void setTakingFiles(bool isTakingFiles)
{
    const QMutexLocker locker(&s_mutex);
    s_isTakingFiles = isTakingFiles;
}

QByteArray sentBytes()
{
    const QMutexLocker locker(&s_mutex);
    return s_sentBytes;
}

void setSentBytes(const QByteArray &bytes)
{
    const QMutexLocker locker(&s_mutex);
    s_sentBytes = bytes;
}

} // namespace TinyBoundary
