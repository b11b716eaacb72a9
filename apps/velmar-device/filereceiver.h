#ifndef VELMARDEVICE_FILERECEIVER_H
#define VELMARDEVICE_FILERECEIVER_H

#include "outcome.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>

#include <map>
#include <memory>
#include <vector>

namespace Velmar::Simulator {

class DeviceState;
class StateFolder;

/*! One file that a host has announced. */
struct AnnouncedFile {
    qint32 fileId = 0;
    qint32 fileType = 0;
    qint32 fileSize = 0; //!< bytes, cut to 32 bits by the host
};

/*!
    Takes files from hosts, straight to the disk.

    Transfers belong to the device, not to a connection: a host that has lost its connection goes on
    over the next one. They end with the process.
*/
class FileReceiver
{
public:
    static constexpr int UpgradeImageType = 13; //!< the one type of file that this device takes
    static constexpr int MaxChunk = 65536; //!< bytes at a time

    /*! Both arguments have to outlive this object. */
    FileReceiver(const StateFolder &folder, DeviceState &state);
    ~FileReceiver();

    /*! Takes down what will come; replaces the announcement before. */
    Outcome announce(const std::vector<AnnouncedFile> &files);

    /*! Starts the transfer of an announced file, or starts it anew. */
    Outcome open(qint32 fileId, qint32 fileType, quint64 size, const QByteArray &sha256);

    /*! Takes the bytes that follow those received so far. */
    Outcome append(qint32 fileId, quint64 offset, const QByteArray &bytes);

    /*! Ends the transfer. A good image replaces the one that waited to be installed; any other file
        is gone. */
    Outcome close(qint32 fileId);

    /*! Bytes of \a fileId so far, 0 if no transfer of it is open. */
    quint64 received(qint32 fileId) const;

    /*! Percentage of \a fileId so far, 0 to 100. */
    int percentReceived(qint32 fileId) const;

    /*! Drops all transfers and announcements. */
    void clear();

private:
    struct Transfer {
        QFile file;
        QCryptographicHash hash { QCryptographicHash::Sha256 };
        quint64 size = 0;
        quint64 received = 0;
        QByteArray sha256;
    };

    Outcome keepImage(Transfer &transfer);
    void drop(qint32 fileId);

    const StateFolder &m_folder;
    DeviceState &m_state;
    std::map<qint32, AnnouncedFile> m_announced;
    std::map<qint32, std::unique_ptr<Transfer>> m_transfers;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_FILERECEIVER_H
