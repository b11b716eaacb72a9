#include <tzserializer/serializetoxml.h>

#include "objecttreereader.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>

namespace TZ {

namespace {

constexpr qint64 MaxFileSize = 16 * 1024 * 1024;

// False with the cause if path is no file of an acceptable size, or cannot be read.
bool readWhole(const QString &path, QByteArray &contents, QString &cause)
{
    // A pipe would block the open for as long as nobody writes to it.
    if (!QFileInfo(path).isFile()) {
        cause = QStringLiteral("There is no such file.");
        return false;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        cause = file.errorString();
        return false;
    }
    if (file.size() <= MaxFileSize)
        contents = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        cause = file.errorString();
        return false;
    }
    if (file.size() > MaxFileSize || contents.size() > MaxFileSize) {
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
