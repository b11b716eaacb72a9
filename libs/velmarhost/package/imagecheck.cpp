#include "package/imagecheck.h"

#include "device/modelnames.h"
#include "package/packagerules.h"
#include "package/plan.h"

#include <upgradeimage/imagereader.h>

#include <QFile>

namespace Velmar::Host {

namespace {

using UpgradeImage::ImageReader;
using UpgradeImage::ImageRecord;

// Of an enciphered file: header and authentication code, and a padding of 1 to 8 bytes.
constexpr qint64 CipherOverhead = 48;
constexpr qint64 LongestPadding = 8;

bool isPossibleLength(const PlannedFile &planned, qint64 length)
{
    if (!isEncipheredFile(planned.file))
        return length == planned.size;
    const qint64 longest = planned.size - CipherOverhead - 1;
    return length <= longest && length > longest - LongestPadding;
}

QString difference(const ImageRecord &record, const Plan &plan)
{
    if (static_cast<std::size_t>(record.index) >= plan.files.size())
        return QStringLiteral("it holds \"%1\", which is not planned")
            .arg(QString::fromUtf8(record.targetPath));
    const auto &planned = plan.files[static_cast<std::size_t>(record.index)];
    if (record.targetPath != planned.target.toUtf8())
        return QStringLiteral("it has \"%1\" in the place of \"%2\"")
            .arg(QString::fromUtf8(record.targetPath), planned.target);
    if (!isPossibleLength(planned, record.length))
        return QStringLiteral("it has %1 bytes for \"%2\", which %3 with %4 bytes cannot have")
            .arg(QString::number(record.length), planned.target, planned.file,
                 QString::number(planned.size));
    return {};
}

QString faultOf(ImageReader &reader, const Plan &plan, ImageSum sum)
{
    QString fault;
    const bool isSound = sum == ImageSum::Checked ? reader.check(fault) : reader.readHeader(fault);
    if (!isSound)
        return fault;
    if (!reader.headerFault().isEmpty())
        return reader.headerFault();
    const auto &header = reader.header();
    if (header.modelId != plan.device.modelId)
        return QStringLiteral("it is for model %1 and not for %2")
            .arg(modelNumber(header.modelId), modelNumber(plan.device.modelId));
    QString found;
    const bool isRead = reader.readRecords(
        [&](const ImageRecord &record) {
            found = difference(record, plan);
            return found.isEmpty();
        },
        fault);
    if (!found.isEmpty())
        return found;
    if (!isRead)
        return fault;
    if (header.recordCount < plan.files.size())
        return QStringLiteral("it lacks \"%1\"").arg(plan.files[header.recordCount].target);
    return {};
}

} // namespace

bool checkImage(const QString &path, const Plan &plan, QString &errorText, ImageSum sum)
{
    QFile image(path);
    if (!image.open(QIODevice::ReadOnly)) {
        errorText = QStringLiteral("The image cannot be read: %1").arg(image.errorString());
        return false;
    }
    ImageReader reader(image);
    const QString fault = faultOf(reader, plan, sum);
    if (!fault.isEmpty())
        errorText = QStringLiteral("The image is not as planned: %1").arg(fault);
    return fault.isEmpty();
}

} // namespace Velmar::Host
