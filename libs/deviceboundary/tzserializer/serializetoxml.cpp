#include <tzserializer/serializetoxml.h>

#include "objecttreereader.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace TZ {

namespace {

constexpr qint64 MaxFileSize = 16 * 1024 * 1024;

// Reads file into contents up to its end, or one byte further than is taken. False if that fails.
bool readUpToLimit(QFile &file, qint64 expectedSize, QByteArray &contents)
{
    // One byte more than there should be: the end shows at once.
    qint64 room = std::clamp(expectedSize, qint64(0), MaxFileSize) + 1;
    qint64 size = 0;
    for (;;) {
        contents.resize(int(room));
        const qint64 count = file.read(contents.data() + size, room - size);
        if (count < 0)
            return false;
        size += count;
        if (size < room || room > MaxFileSize)
            break;
        room = std::min(room * 2, MaxFileSize + 1); // it has grown
    }
    contents.resize(int(size));
    return true;
}

// False with the cause if path is no file of an acceptable size, or cannot be read.
bool readWhole(const QString &path, QByteArray &contents, QString &cause)
{
    // A pipe would block the open for as long as nobody writes to it.
    const QFileInfo info(path);
    if (!info.isFile()) {
        cause = QStringLiteral("There is no such file.");
        return false;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)
        || !readUpToLimit(file, info.size(), contents)) {
        cause = file.errorString();
        return false;
    }
    if (contents.size() > MaxFileSize) {
        cause = QStringLiteral("The file is larger than %1 bytes.").arg(MaxFileSize);
        return false;
    }
    return true;
}

} // namespace

SerializeToXML::SerializeToXML() = default;

SerializeToXML::~SerializeToXML() = default;

void SerializeToXML::loadXml(QObject *root, const QString &path,
                             const Serializer::ObjectFactory &factory)
{
    QByteArray xml;
    QString cause;
    if (!readWhole(path, xml, cause)) {
        qWarning().noquote() << QStringLiteral("Failed to load %1: %2").arg(path, cause);
        return;
    }
    Internal::ObjectTreeReader reader(root->metaObject(), factory, path);
    if (reader.read(xml))
        reader.apply(root);
}

} // namespace TZ
