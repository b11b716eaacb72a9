#include "imagebuilder.h"

namespace {

void putLittleEndian(QByteArray &bytes, int offset, quint32 value, int width)
{
    for (int i = 0; i < width; ++i)
        bytes[offset + i] = char(value >> (8 * i) & 0xFF);
}

} // namespace

QByteArray ImageBuilder::build() const
{
    const int tableSize = 264 * files.size();
    QByteArray table(tableSize, '\0');
    QByteArray bodies;
    for (int i = 0; i < files.size(); ++i) {
        table.replace(264 * i, files.at(i).first.size(), files.at(i).first);
        putLittleEndian(table, 264 * i + 256, quint32(tableSize + bodies.size()), 4);
        putLittleEndian(table, 264 * i + 260, quint32(files.at(i).second.size()), 4);
        bodies += files.at(i).second;
    }
    const QByteArray data = table + bodies;
    quint32 sum = 0x5555;
    for (const char byte : data)
        sum += quint8(byte);

    QByteArray header(256, '\0');
    putLittleEndian(header, 0, quint32(data.size()), 4);
    putLittleEndian(header, 4, version, 4);
    header[8] = char(0xA8);
    putLittleEndian(header, 9, quint32(files.size()), 2);
    putLittleEndian(header, 11, modelId, 2);
    QByteArray trailer(2, '\0');
    putLittleEndian(trailer, 0, sum, 2);
    return header + data + trailer;
}
