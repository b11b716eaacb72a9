#include "upgradefile.h"
#include "upgradefile_p.h"

#include "bodywriter.h"
#include "bytesum.h"

#include <tzcryptrc2/cryptrc2.h>

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <cstring>
#include <vector>

namespace Velmar::Firmware {

namespace {

// The image: header, table with one record a file, bodies, 16-bit sum. All integers little-endian.
constexpr int HeaderSize = 256;
constexpr int DataLengthOffset = 0; // uint32: bytes of table and bodies
constexpr int VersionOffset = 4; // uint32
constexpr int ConstantOffset = 8; // uint8
constexpr int CountOffset = 9; // uint16, unaligned
constexpr int ModelIdOffset = 11; // uint16, unaligned
constexpr uchar HeaderConstant = 0xA8;

constexpr int RecordSize = 264;
constexpr int PathSize = 256; // at the start of the record, zero-padded, without a terminator
constexpr int BodyOffsetOffset = 256; // uint32, counted from the start of the table
constexpr int BodyLengthOffset = 260; // uint32

constexpr quint16 SumSeed = 0x5555;

using Bytes = std::vector<uchar>;

quint32 packedVersion(const QString &version)
{
    const QVector<QStringRef> parts = version.splitRef(QLatin1Char('.'));
    quint32 packed = 0;
    int shift = parts.size() * 8;
    for (const QStringRef &part : parts) {
        shift -= 8;
        // A part may be negative or over 255: it then carries into the parts before it. The shift
        // wraps at 32, so that a fifth part from the right lands on the last one again.
        packed += static_cast<quint32>(part.toInt()) << (shift & 31);
    }
    return packed;
}

void write(QFile &image, const Bytes &bytes)
{
    image.write(reinterpret_cast<const char *>(bytes.data()), static_cast<qint64>(bytes.size()));
}

} // namespace

namespace Internal {

UpgradeFilePrivate::UpgradeFilePrivate(UpgradeFile *owner)
    : q(owner)
{
}

QString UpgradeFilePrivate::start()
{
    const std::size_t tableSize = static_cast<std::size_t>(filePaths.size()) * RecordSize;
    Bytes header(HeaderSize, 0);
    Bytes table(tableSize, 0);
    qToLittleEndian<quint32>(packedVersion(version), &header[VersionOffset]);
    header[ConstantOffset] = HeaderConstant;
    qToLittleEndian<quint16>(static_cast<quint16>(filePaths.size()), &header[CountOffset]);
    qToLittleEndian<quint16>(static_cast<quint16>(modelId), &header[ModelIdOffset]);

    upgradeFilePath = packagePath + QDir::separator() + QLatin1String("upgrade");
    QFile image(upgradeFilePath);
    image.remove(); // also a link to nowhere, which would be written through
    if (!image.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        qDebug() << "open file failed.";
        return QString();
    }

    // The lengths are known only once the files are plain, so header and table are written last.
    BodyWriter bodies(image, HeaderSize + static_cast<qint64>(tableSize));
    quint32 bodyOffset = static_cast<quint32>(tableSize);
    quint32 dataLength = bodyOffset;
    uchar *record = table.data();
    for (const QPair<QString, QString> &filePath : qAsConst(filePaths)) {
        const QString &destination = filePath.second;
        if (destination.size() > PathSize) {
            qWarning().noquote().nospace()
                << "Destination path is longer than 256 bytes:" << destination;
            return QString();
        }

        QString plainPath;
        const int length = readFileToEncryptOrDecrypt(filePath.first, plainPath);
        if (length == 0) {
            qDebug() << "File is error:file length is 0";
            return QString();
        }
        dataLength += static_cast<quint32>(length);

        // As many UTF-8 bytes as the text has UTF-16 units: devices know the paths cut like this.
        const QByteArray path = destination.toUtf8().left(destination.size());
        std::memcpy(record, path.constData(), static_cast<std::size_t>(path.size()));
        qToLittleEndian<quint32>(bodyOffset, record + BodyOffsetOffset);
        qToLittleEndian<quint32>(static_cast<quint32>(length), record + BodyLengthOffset);
        record += RecordSize;
        bodyOffset += static_cast<quint32>(length);

        QFile source(plainPath);
        if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered)
            || !bodies.append(source, length)) {
            qWarning().noquote().nospace() << "Read file failed." << plainPath;
            return QString();
        }
        source.close();
        if (filePath.first != plainPath)
            source.remove();
    }
    bodies.flush();

    qToLittleEndian<quint32>(dataLength, &header[DataLengthOffset]);
    image.seek(0);
    write(image, header);
    image.seek(HeaderSize); // a full disk may have taken less of the header
    write(image, table);
    const quint32 sum = SumSeed + bodies.sum() + byteSum(table.data(), table.size());
    Bytes sumField(sizeof(quint16));
    qToLittleEndian<quint16>(static_cast<quint16>(sum), sumField.data());
    image.seek(bodies.position());
    write(image, sumField);
    image.flush();
    image.close();
    return upgradeFilePath;
}

int UpgradeFilePrivate::readFileToEncryptOrDecrypt(const QString &sourcePath, QString &outPath)
{
    outPath = sourcePath;
    if (sourcePath.endsWith(QLatin1String(".dat"))
        && !sourcePath.endsWith(QLatin1String("font12.dat"))) {
        outPath += QLatin1String("_dn");
        // The whole file, deciphered with the cipher library's own key. Only the numbers are fixed.
        constexpr auto WholeFile = static_cast<CRYPTSTYLE>(1);
        constexpr auto Decipher = static_cast<CRYPTTYPE>(2);
        CryptRc2 cipher;
        if (!cipher.ReadFileToEncryptOrDecrypt(sourcePath, outPath, WholeFile, Decipher)) {
            qDebug() << "Decrypt file failed.";
            return 0;
        }
    }
    return static_cast<int>(QFileInfo(outPath).size());
}

} // namespace Internal

UpgradeFile::UpgradeFile(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Internal::UpgradeFilePrivate>(this))
{
}

UpgradeFile::~UpgradeFile() = default;

QString UpgradeFile::makeUpgradeFile(QVector<QPair<QString, QString>> filePaths,
                                     const QString &packagePath, int modelId,
                                     const QString &version)
{
    d->filePaths = filePaths;
    d->packagePath = packagePath;
    d->modelId = modelId;
    d->version = version;
    return d->start();
}

} // namespace Velmar::Firmware
