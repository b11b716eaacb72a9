#include <upgradeimage/imagereader.h>

#include <QtEndian>

#include <algorithm>
#include <numeric>

namespace Velmar::UpgradeImage {

namespace {

// The header's fields are packed.
constexpr int DataLengthOffset = 0;
constexpr int VersionOffset = 4;
constexpr int MarkOffset = 8;
constexpr int RecordCountOffset = 9;
constexpr int ModelIdOffset = 11;
constexpr int HeaderEnd = 13; // zeros from here on

constexpr int PathSize = 256;
constexpr int BodyOffsetOffset = PathSize;
constexpr int BodyLengthOffset = BodyOffsetOffset + 4;

constexpr qint64 RecordsAtOnce = 248; // a little below 64 KiB
constexpr qint64 ChunkSize = 64 * 1024;

bool isZero(const char *begin, const char *end)
{
    return std::all_of(begin, end, [](char byte) { return byte == 0; });
}

// The device adds unsigned bytes; char may be signed.
quint32 addUnsigned(quint32 sum, char byte)
{
    return sum + quint8(byte);
}

ImageRecord parseRecord(const char *bytes, int index)
{
    ImageRecord record;
    record.index = index;
    const char *const pathEnd = std::find(bytes, bytes + PathSize, '\0');
    record.targetPath = QByteArray(bytes, int(pathEnd - bytes));
    record.offset = qFromLittleEndian<quint32>(bytes + BodyOffsetOffset);
    record.length = qFromLittleEndian<quint32>(bytes + BodyLengthOffset);
    if (!isZero(pathEnd, bytes + PathSize))
        record.fault = QStringLiteral("there are bytes behind the end of its path");
    return record;
}

} // namespace

ImageReader::ImageReader(QIODevice &file)
    : m_file(file)
{
}

bool ImageReader::check(QString &errorText)
{
    if (!readHeader(errorText))
        return false;
    if (!m_headerFault.isEmpty()) {
        errorText = m_headerFault;
        return false;
    }
    ImageSums sums;
    if (!readRecords([](const ImageRecord &record) { return record.fault.isEmpty(); }, errorText)
        || !readSums(sums, errorText))
        return false;
    if (sums.computed != sums.stored) {
        errorText = QStringLiteral("the sum is 0x%1 instead of 0x%2")
                        .arg(sums.stored, 4, 16, QLatin1Char('0'))
                        .arg(sums.computed, 4, 16, QLatin1Char('0'));
        return false;
    }
    return true;
}

bool ImageReader::readHeader(QString &errorText)
{
    m_header = ImageHeader();
    m_headerFault.clear();
    m_fileSize = m_file.size();
    if (m_fileSize < HeaderSize + SumSize) {
        errorText = QStringLiteral("the file has %1 bytes, an image at least %2")
                        .arg(m_fileSize)
                        .arg(HeaderSize + SumSize);
        return false;
    }
    char bytes[HeaderSize];
    if (!readAt(0, bytes, HeaderSize, errorText))
        return false;
    m_header.dataLength = qFromLittleEndian<quint32>(bytes + DataLengthOffset);
    m_header.version = qFromLittleEndian<quint32>(bytes + VersionOffset);
    m_header.mark = quint8(bytes[MarkOffset]);
    m_header.recordCount = qFromLittleEndian<quint16>(bytes + RecordCountOffset);
    m_header.modelId = qFromLittleEndian<quint16>(bytes + ModelIdOffset);

    const qint64 dataLength = m_fileSize - HeaderSize - SumSize;
    if (m_header.mark != HeaderMark)
        m_headerFault = QStringLiteral("byte 8 of the header is 0x%1 instead of 0xa8")
                            .arg(m_header.mark, 2, 16, QLatin1Char('0'));
    else if (!isZero(bytes + HeaderEnd, bytes + HeaderSize))
        m_headerFault = QStringLiteral("the header has other bytes than zeros behind its fields");
    else if (m_header.dataLength != dataLength)
        m_headerFault = QStringLiteral("the data length is %1, but the file has room for %2")
                            .arg(m_header.dataLength)
                            .arg(dataLength);
    else if (m_header.recordCount * RecordSize > dataLength)
        m_headerFault = QStringLiteral("a table of %1 records does not fit into the data length %2")
                            .arg(m_header.recordCount)
                            .arg(dataLength);
    return true;
}

bool ImageReader::readRecords(const std::function<bool(const ImageRecord &)> &visit,
                              QString &errorText)
{
    QString firstFault;
    const qint64 tableSize = m_header.recordCount * RecordSize;
    const qint64 dataLength = m_fileSize - HeaderSize - SumSize;
    const int held = int(std::min(tableSize, dataLength) / RecordSize);
    qint64 bodyOffset = tableSize;
    QByteArray bytes;
    for (int index = 0; index < held; ++index) {
        const int inBytes = int(index % RecordsAtOnce);
        if (inBytes == 0) {
            bytes.resize(int(std::min<qint64>(RecordsAtOnce, held - index) * RecordSize));
            if (!readAt(HeaderSize + index * RecordSize, bytes.data(), bytes.size(), errorText))
                return false;
        }
        ImageRecord record = parseRecord(bytes.constData() + inBytes * RecordSize, index);
        const qint64 bodyEnd = qint64(record.offset) + record.length;
        if (record.offset != bodyOffset)
            record.fault = QStringLiteral("its body is at offset %1 instead of %2")
                               .arg(record.offset)
                               .arg(bodyOffset);
        else if (record.length == 0)
            record.fault = QStringLiteral("its body is empty");
        else if (bodyEnd > dataLength)
            record.fault = QStringLiteral("its body ends at offset %1, but the data at %2")
                               .arg(bodyEnd)
                               .arg(dataLength);
        bodyOffset = bodyEnd;
        if (firstFault.isEmpty() && !record.fault.isEmpty())
            firstFault = QStringLiteral("record %1: %2").arg(index).arg(record.fault);
        if (!visit(record)) {
            if (!firstFault.isEmpty())
                errorText = firstFault;
            return false;
        }
    }
    if (firstFault.isEmpty() && held < m_header.recordCount)
        firstFault = QStringLiteral("the table ends behind record %1 of %2")
                         .arg(held)
                         .arg(m_header.recordCount);
    if (firstFault.isEmpty() && bodyOffset != dataLength)
        firstFault = QStringLiteral("the bodies end at offset %1, but the data at %2")
                         .arg(bodyOffset)
                         .arg(dataLength);
    if (firstFault.isEmpty())
        return true;
    errorText = firstFault;
    return false;
}

bool ImageReader::readSums(ImageSums &sums, QString &errorText)
{
    const qint64 end = m_fileSize - SumSize;
    quint32 sum = SumSeed;
    QByteArray bytes(int(ChunkSize), Qt::Uninitialized);
    for (qint64 position = HeaderSize; position < end; position += ChunkSize) {
        const qint64 length = std::min(ChunkSize, end - position);
        if (!readAt(position, bytes.data(), length, errorText))
            return false;
        sum = std::accumulate(bytes.constBegin(), bytes.constBegin() + length, sum, addUnsigned);
    }
    char stored[SumSize];
    if (!readAt(end, stored, SumSize, errorText))
        return false;
    sums.computed = quint16(sum);
    sums.stored = qFromLittleEndian<quint16>(stored);
    return true;
}

bool ImageReader::readAt(qint64 position, char *data, qint64 length, QString &errorText)
{
    if (m_file.pos() != position && !m_file.seek(position)) {
        errorText = m_file.errorString();
        return false;
    }
    for (qint64 filled = 0; filled < length;) {
        const qint64 got = m_file.read(data + filled, length - filled);
        if (got <= 0) {
            errorText = got < 0 ? m_file.errorString()
                                : QStringLiteral("the file became shorter while it was read");
            return false;
        }
        filled += got;
    }
    return true;
}

} // namespace Velmar::UpgradeImage
