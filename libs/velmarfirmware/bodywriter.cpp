#include "bodywriter.h"

#include "bytesum.h"

namespace Velmar::Firmware {

namespace {

constexpr qint64 PieceSize = 256 * 1024; // bytes; stays in the second-level cache

} // namespace

BodyWriter::BodyWriter(QFile &image, qint64 position)
    : m_image(image)
    , m_bufferPosition(position)
    , m_buffer(PieceSize)
{
}

BodyWriter::~BodyWriter()
{
    flush();
}

bool BodyWriter::append(QFile &source, int length)
{
    qint64 copied = 0;
    while (copied < length) {
        unsigned char *const end = m_buffer.data() + m_buffered;
        const qint64 wanted = qMin<qint64>(space(), length - copied);
        const qint64 got = source.read(reinterpret_cast<char *>(end), wanted);
        if (got <= 0)
            break;
        m_sum += byteSum(end, static_cast<std::size_t>(got));
        m_buffered += got;
        copied += got;
        if (space() == 0)
            flush();
    }
    return copied == length && static_cast<int>(source.size()) == length;
}

void BodyWriter::flush()
{
    if (m_buffered == 0)
        return;
    if (m_image.pos() != m_bufferPosition)
        m_image.seek(m_bufferPosition);
    m_image.write(reinterpret_cast<const char *>(m_buffer.data()), m_buffered);
    m_bufferPosition += m_buffered;
    m_buffered = 0;
}

qint64 BodyWriter::position() const
{
    return m_bufferPosition + m_buffered;
}

quint32 BodyWriter::sum() const
{
    return m_sum;
}

qint64 BodyWriter::space() const
{
    return PieceSize - m_bufferPosition % PieceSize - m_buffered;
}

} // namespace Velmar::Firmware
