#include "deviceimage.h"

#include "destinationpath.h"

#include <upgradeimage/imagereader.h>

#include <QFile>
#include <QSet>

namespace Velmar::Simulator {

using UpgradeImage::ImageReader;
using UpgradeImage::ImageRecord;

namespace {

QString dottedVersion(quint32 version)
{
    return QString::fromLatin1("%1.%2.%3.%4")
        .arg(version >> 24)
        .arg(version >> 16 & 0xFF)
        .arg(version >> 8 & 0xFF)
        .arg(version & 0xFF);
}

/*! A path that is a file of the image and a folder of another of its files; empty if there is none.
 */
QString pathInBothRoles(const std::vector<ImageFile> &files)
{
    QSet<QString> paths;
    for (const ImageFile &file : files)
        paths.insert(file.installedPath);
    QSet<QString> folders;
    for (const ImageFile &file : files) {
        QString path = file.installedPath;
        for (int slash = path.lastIndexOf(QLatin1Char('/')); slash >= 0;
             slash = path.lastIndexOf(QLatin1Char('/'))) {
            path.truncate(slash);
            if (folders.contains(path))
                break; // its parents have been looked at, too
            if (paths.contains(path))
                return path;
            folders.insert(path);
        }
    }
    return {};
}

} // namespace

std::optional<DeviceImage> readDeviceImage(const QString &path, quint16 modelId, QString &errorText)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        errorText = QString::fromLatin1("\"%1\" cannot be read: %2").arg(path, file.errorString());
        return {};
    }
    ImageReader reader(file);
    if (!reader.check(errorText))
        return {};
    if (reader.header().modelId != modelId) {
        errorText = QString::fromLatin1("the image is for model 0x%1, this device is a 0x%2")
                        .arg(reader.header().modelId, 4, 16, QLatin1Char('0'))
                        .arg(modelId, 4, 16, QLatin1Char('0'));
        return {};
    }
    if (reader.header().recordCount == 0) {
        errorText = QString::fromLatin1("the image has no files");
        return {};
    }
    DeviceImage image;
    image.version = dottedVersion(reader.header().version);
    image.files.reserve(reader.header().recordCount);
    QString placeless;
    const auto takeRecord = [&](const ImageRecord &record) {
        const QString installed = installedPath(record.targetPath);
        if (installed.isEmpty())
            placeless = QString::fromLatin1("record %1: its path names no file").arg(record.index);
        image.files.push_back({ installed, record.bodyPosition(), qint64(record.length) });
        return !installed.isEmpty();
    };
    if (!reader.readRecords(takeRecord, errorText)) {
        if (!placeless.isEmpty())
            errorText = placeless;
        return {};
    }
    const QString both = pathInBothRoles(image.files);
    if (!both.isEmpty()) {
        errorText =
            QString::fromLatin1("\"%1\" is both a file and a folder of the image").arg(both);
        return {};
    }
    return image;
}

} // namespace Velmar::Simulator
