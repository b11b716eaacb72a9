#ifndef VELMARFIRMWARE_BODYWRITER_H
#define VELMARFIRMWARE_BODYWRITER_H

#include <QFile>

#include <vector>

namespace Velmar::Firmware {

/*!
    Writes the bodies of an image and adds up their bytes.

    Memory is one fixed buffer. The disk gets few large pieces that begin at multiples of their
    size, however long the files are; flush() and the destructor hand over what is left. Bytes that
    the disk does not take are lost without a word, but those behind them still go where they
    belong.
*/
class BodyWriter
{
public:
    /*! Writes to \a image, open and unbuffered, from \a position on. */
    BodyWriter(QFile &image, qint64 position);
    ~BodyWriter();

    /*!
        Appends the file \a source, open for reading, of which \a length bytes are expected.

        False if its size, cut to 32 bits, is another by now or if less can be read. Never more than
        \a length bytes are read, and never more than was read is written.
    */
    bool append(QFile &source, int length);

    void flush();

    /*! Where the next byte belongs in the image. */
    qint64 position() const;

    /*! Sum of all bytes appended, each taken as unsigned. Wraps at 32 bits. */
    quint32 sum() const;

private:
    Q_DISABLE_COPY_MOVE(BodyWriter)

    qint64 space() const;

    QFile &m_image;
    qint64 m_bufferPosition; // of the first byte in the buffer, within the image
    qint64 m_buffered = 0; // bytes
    quint32 m_sum = 0;
    std::vector<unsigned char> m_buffer;
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_BODYWRITER_H
