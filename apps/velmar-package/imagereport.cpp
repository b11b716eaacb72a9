#include "imagereport.h"

#include "show/printable.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace Velmar::Package {

namespace {

using namespace UpgradeImage;

QString hexadecimal(quint32 value, int digits)
{
    return QStringLiteral("0x%1").arg(value, digits, 16, QLatin1Char('0'));
}

QString dotted(quint32 version)
{
    return QStringLiteral("%1.%2.%3.%4")
        .arg(version >> 24)
        .arg(version >> 16 & 0xFF)
        .arg(version >> 8 & 0xFF)
        .arg(version & 0xFF);
}

} // namespace

ImageReport makeImageReport(QIODevice &image)
{
    ImageReport report;
    report.fileSize = image.size();
    ImageReader reader(image);
    QString fault;
    report.hasHeader = reader.readHeader(fault);
    if (!report.hasHeader) {
        report.faults.append(fault);
        return report;
    }
    report.header = reader.header();
    if (!reader.headerFault().isEmpty())
        report.faults.append(reader.headerFault());
    const auto keep = [&report](const ImageRecord &record) {
        report.records.append(record);
        return true;
    };
    if (!reader.readRecords(keep, fault))
        report.faults.append(fault);
    if (!reader.readSums(report.sums, fault))
        report.faults.append(fault);
    else if (report.sums.stored != report.sums.computed)
        report.faults.append(
            QStringLiteral("the sum is %1 instead of %2")
                .arg(hexadecimal(report.sums.stored, 4), hexadecimal(report.sums.computed, 4)));
    return report;
}

QByteArray toText(const ImageReport &report)
{
    QString text = QStringLiteral("size         %1\n").arg(report.fileSize);
    if (report.hasHeader) {
        text +=
            QStringLiteral("data length  %1\nversion      %2\nmark         %3\nfiles        %4\n"
                           "model        %5\nsum          %6\n")
                .arg(report.header.dataLength)
                .arg(dotted(report.header.version), hexadecimal(report.header.mark, 2))
                .arg(report.header.recordCount)
                .arg(hexadecimal(report.header.modelId, 4), hexadecimal(report.sums.stored, 4));
    }
    if (!report.records.isEmpty())
        text += QStringLiteral("\n     #      offset      length  destination\n");
    for (const ImageRecord &record : report.records) {
        text += QStringLiteral("%1  %2  %3  %4\n")
                    .arg(record.index, 6)
                    .arg(record.offset, 10)
                    .arg(record.length, 10)
                    .arg(Host::printable(QString::fromUtf8(record.targetPath)));
    }
    text += QLatin1Char('\n');
    for (const QString &fault : report.faults)
        text += QStringLiteral("unsound: %1\n").arg(fault);
    if (report.faults.isEmpty())
        text += QStringLiteral("sound\n");
    return text.toUtf8();
}

QByteArray toJson(const ImageReport &report)
{
    QJsonObject object {
        { QStringLiteral("size"), report.fileSize },
        { QStringLiteral("sound"), report.faults.isEmpty() },
        { QStringLiteral("faults"), QJsonArray::fromStringList(report.faults) },
    };
    if (report.hasHeader) {
        object.insert(QStringLiteral("header"),
                      QJsonObject {
                          { QStringLiteral("dataLength"), qint64(report.header.dataLength) },
                          { QStringLiteral("version"), dotted(report.header.version) },
                          { QStringLiteral("mark"), report.header.mark },
                          { QStringLiteral("fileCount"), report.header.recordCount },
                          { QStringLiteral("modelId"), report.header.modelId },
                      });
        object.insert(QStringLiteral("sum"),
                      QJsonObject {
                          { QStringLiteral("stored"), report.sums.stored },
                          { QStringLiteral("computed"), report.sums.computed },
                      });
        QJsonArray records;
        for (const ImageRecord &record : report.records) {
            QJsonObject entry {
                { QStringLiteral("path"), QString::fromUtf8(record.targetPath) },
                { QStringLiteral("offset"), qint64(record.offset) },
                { QStringLiteral("length"), qint64(record.length) },
                { QStringLiteral("position"), record.bodyPosition() },
            };
            // In "path" such bytes are one and the same character.
            if (QString::fromUtf8(record.targetPath).toUtf8() != record.targetPath)
                entry.insert(QStringLiteral("pathHex"),
                             QString::fromLatin1(record.targetPath.toHex()));
            if (!record.fault.isEmpty())
                entry.insert(QStringLiteral("fault"), record.fault);
            records.append(entry);
        }
        object.insert(QStringLiteral("records"), records);
    }
    return Host::printableJson(QJsonDocument(object).toJson());
}

} // namespace Velmar::Package
