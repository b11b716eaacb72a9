#ifndef UPGRADEIMAGE_IMAGEREADER_H
#define UPGRADEIMAGE_IMAGEREADER_H

#include <QByteArray>
#include <QIODevice>
#include <QString>

#include <functional>

namespace Velmar::UpgradeImage {

constexpr qint64 HeaderSize = 256; //!< bytes in front of the record table
constexpr qint64 RecordSize = 264; //!< bytes of one record
constexpr qint64 SumSize = 2; //!< bytes behind the bodies
constexpr quint8 HeaderMark = 0xA8;
constexpr quint16 SumSeed = 0x5555;

struct ImageHeader {
    quint32 dataLength = 0; //!< bytes of table and bodies
    quint32 version = 0; //!< 0x01020304 is 1.2.3.4
    quint8 mark = 0; //!< HeaderMark in every image
    quint16 recordCount = 0;
    quint16 modelId = 0; //!< model of the device that the image is for
};

struct ImageRecord {
    int index = 0; //!< place in the table, from 0
    QByteArray targetPath; //!< on the device; UTF-8, of which a last character may be cut off
    quint32 offset = 0; //!< of the body, counted from the start of the table
    quint32 length = 0; //!< of the body, in bytes
    QString fault; //!< empty if the record is sound

    qint64 bodyPosition() const { return HeaderSize + offset; } //!< in the file
};

struct ImageSums {
    quint16 computed = 0; //!< over table and bodies
    quint16 stored = 0; //!< what the last two bytes of the file say
};

/*!
    Reads a combined upgrade image and finds whatever is wrong with it, in constant memory.

    check() answers whether an image is sound. The other operations show an image piece by piece, an
    unsound one too; each stands alone once readHeader() has succeeded. One thread at a time.
*/
class ImageReader
{
public:
    /*! \a file is open for reading, has random access, and outlives the reader. */
    explicit ImageReader(QIODevice &file);

    /*!
        True if the whole image is sound: constants, lengths, offsets and sum. Otherwise \a
        errorText tells the first thing that is wrong.
    */
    bool check(QString &errorText);

    /*! False, with \a errorText set, if the file cannot be read or is too short for any image. */
    bool readHeader(QString &errorText);

    /*! What readHeader() has read. */
    const ImageHeader &header() const { return m_header; }

    /*! What is wrong with header and file size, empty if nothing is. */
    QString headerFault() const { return m_headerFault; }

    /*!
        Calls \a visit for each record, in the order of the table, as far as the file holds it; a
        false from \a visit ends the reading.

        True if the table is whole and all records are sound. Otherwise \a errorText tells the first
        fault; it stays as it was if \a visit ended the reading before there was any.
    */
    bool readRecords(const std::function<bool(const ImageRecord &)> &visit, QString &errorText);

    /*! Reads all bytes behind the header. False, with \a errorText set, if they cannot be read. */
    bool readSums(ImageSums &sums, QString &errorText);

private:
    bool readAt(qint64 position, char *data, qint64 length, QString &errorText);

    QIODevice &m_file;
    qint64 m_fileSize = 0;
    ImageHeader m_header;
    QString m_headerFault;
};

} // namespace Velmar::UpgradeImage

#endif // UPGRADEIMAGE_IMAGEREADER_H
