#ifndef VELMARMODELCONTROL_FILESENDER_H
#define VELMARMODELCONTROL_FILESENDER_H

#include <velmarbizmodel/devicelink.h>
#include <velmarmodelcontrol/linkpolicy.h>

#include <QFile>

#include <functional>

namespace Velmar::ModelControl::Internal {

/*!
    Sends one file over a link, piece by piece.

    Each step answers false and sets errorText() if it fails; nothing is to follow then. What the
    device got of a broken transfer it forgets with the next file.open for the same file.
*/
class FileSender
{
public:
    FileSender(BizModel::DeviceLink &link, const LinkPolicy &policy, int fileId);

    bool open(const QString &path);

    /*! Is the file as long as it was announced? An announcement has room for 32 bits only. */
    bool checkSize(int announcedSize);

    /*! Is the file a sound upgrade image? */
    bool checkImage();

    /*! Tells the device which file comes: its type, its length and its hash. */
    bool sendOpening(int fileType);

    /*! Sends the bytes. \a showPercentage gets each percentage once at most, in rising order. */
    bool sendContents(const std::function<void(int)> &showPercentage);

    /*! Ends the file. The device has checked it when this returns true. */
    bool sendEnd();

    QString errorText() const;

private:
    bool hash(QByteArray &sha256);
    bool readChunk(QByteArray &chunk);
    bool sendChunk(qint64 offset, const QByteArray &chunk);
    bool checkUnchangedSize();
    bool order(const QString &operation, QCborMap arguments, int timeout, QCborMap &values);
    bool fail(const QString &errorText);

    BizModel::DeviceLink &m_link;
    const LinkPolicy m_policy;
    const int m_fileId;
    QFile m_file;
    qint64 m_size = 0;
    QString m_errorText;
};

} // namespace Velmar::ModelControl::Internal

#endif // VELMARMODELCONTROL_FILESENDER_H
