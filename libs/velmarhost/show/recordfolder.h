#ifndef VELMARHOST_RECORDFOLDER_H
#define VELMARHOST_RECORDFOLDER_H

#include "process/descriptor.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace Velmar::Host {

// Folders of records on disk. No link is followed below the folder of all records.

/*! Opens the folder \a path of all records. If it \a isMade, what is missing on the way to it is made
    for the owner alone, and so is it. Not open if that fails or it is another user's; \a errorText
    tells why. */
Descriptor openRecordsFolder(const QString &path, bool isMade, QString &errorText);

/*! Makes the folder \a name in \a records and opens it. */
Descriptor makeRecordFolder(const Descriptor &records, const QString &name, QString &errorText);

/*! Opens the folder \a name in \a records. */
Descriptor openRecordFolder(const Descriptor &records, const QString &name);

/*! The names of the record folders in \a records, sorted: by time, as ids are. */
QStringList recordFolderNames(const Descriptor &records);

/*! Makes the file \a name in \a folder and opens it for appending. */
Descriptor makeRecordFile(const Descriptor &folder, const char *name, QString &errorText);

/*! The content of the regular file \a name in \a folder; nothing if there is none, or if it has more
    than \a maximum bytes. */
std::optional<QByteArray> readRecordFile(const Descriptor &folder, const char *name,
                                         qint64 maximum);

/*! Puts \a content in place of the file \a name in \a folder in one step. */
bool replaceRecordFile(const Descriptor &folder, const QByteArray &name, const QByteArray &content);

/*! Writes all of \a bytes at the end of \a file, or nothing. */
bool appendWhole(const Descriptor &file, const QByteArray &bytes);

/*! Marks the record with the events \a file as in use until it is closed. */
bool lockRecord(const Descriptor &file);

/*! True if the record in \a folder is in use. */
bool isRecordInUse(const Descriptor &folder);

/*! Removes the record folder \a name in \a records unless it is in use. */
bool removeRecordFolder(const Descriptor &records, const QString &name);

namespace RecordFiles {
constexpr char Events[] = "events.jsonl"; // has the lock
constexpr char Log[] = "library.log";
constexpr char Plan[] = "plan.json";
constexpr char Private[] = "private.json";
} // namespace RecordFiles

} // namespace Velmar::Host

#endif // VELMARHOST_RECORDFOLDER_H
