#ifndef TINYBOUNDARY_CALLS_H
#define TINYBOUNDARY_CALLS_H

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace TinyBoundary {

/*! Notes a call, from any thread. */
void note(const QString &call);

/*! The calls so far, in order. */
QStringList notedCalls();

/*! Whether the device takes files; it does from the start. */
bool isTakingFiles();
void setTakingFiles(bool isTakingFiles);

/*! The bytes of the last file that was sent to the device. */
QByteArray sentBytes();
void setSentBytes(const QByteArray &bytes);

} // namespace TinyBoundary

#endif // TINYBOUNDARY_CALLS_H
