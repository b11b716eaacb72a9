#ifndef VELMARDEVICE_UPLOADREADER_H
#define VELMARDEVICE_UPLOADREADER_H

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QVector>

#include <string>

namespace Velmar::Simulator {

/*!
    Takes the two parts of an upload in their order: the file, straight to the disk, and the control
    text.

    It notes the first fault and swallows the rest, so that the host can be answered. For one
    thread, which need not be the device's.
*/
class UploadReader
{
public:
    /*! The file goes to \a path. */
    explicit UploadReader(const QString &path);

    /*! Removes the file, if it is still in its place. */
    ~UploadReader();

    /*! A part begins, with what its headers say. */
    void beginPart(const std::string &name, const std::string &fileName,
                   const std::string &contentType);

    /*! Bytes of the part that has begun. */
    void take(const char *bytes, std::size_t count);

    /*! Nothing more comes; all of it has, if \a isWhole. */
    void finish(bool isWhole);

    qint64 received() const { return m_received; } //!< bytes of all parts
    const QString &fault() const { return m_fault; } //!< empty: none so far
    QString path() const { return m_file.fileName(); }
    QByteArray sha256() const { return m_hash.result(); } //!< of the file
    const std::string &controlText() const { return m_text; }
    QJsonArray shape() const; //!< the parts as they came, for the trace

private:
    UploadReader(const UploadReader &) = delete;
    UploadReader &operator=(const UploadReader &) = delete;

    struct Part {
        QString name;
        QString fileName;
        QString contentType;
        qint64 size = 0;
    };

    void fail(const QString &fault);

    QFile m_file;
    QCryptographicHash m_hash { QCryptographicHash::Sha256 };
    std::string m_text;
    QVector<Part> m_parts;
    QString m_fault;
    qint64 m_received = 0;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_UPLOADREADER_H
