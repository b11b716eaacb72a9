#ifndef VELMARDEVICE_DURABLE_H
#define VELMARDEVICE_DURABLE_H

#include <QString>

class QFile;

namespace Velmar::Simulator {

/*! Why \a file did not take all that was written to it. The system names no cause if it took a
    part: the disk is full then, or the file at its limit. */
QString writeFault(const QFile &file);

/*! Writes what \a file holds back to the disk. False if the disk could not take it. */
bool syncFile(QFile &file);

/*! Writes the entries of the folder \a path back to the disk: the names of new, moved and removed
    files. False if the disk could not take it. */
bool syncFolder(const QString &path);

/*! Writes all that the file system of the folder \a path holds back to the disk, which for many
    small files takes a fraction of the time that they would take one by one. */
bool syncFileSystem(const QString &path);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_DURABLE_H
