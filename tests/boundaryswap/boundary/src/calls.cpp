#include <tinyboundary/calls.h>

#include <QMutex>
#include <QMutexLocker>

namespace TinyBoundary {

namespace {

QMutex s_mutex; // guards the two below
QStringList s_calls;
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
