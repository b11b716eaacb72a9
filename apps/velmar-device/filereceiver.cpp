#include "filereceiver.h"

#include "durable.h"
#include "receivedimage.h"
#include "statefolder.h"

namespace Velmar::Simulator {

namespace {

Outcome noTransfer(qint32 fileId)
{
    return { LinkAck::NotNow, QString::fromLatin1("no transfer of file %1 is open").arg(fileId) };
}

} // namespace

FileReceiver::FileReceiver(const StateFolder &folder, DeviceState &state)
    : m_folder(folder)
    , m_state(state)
{
}

FileReceiver::~FileReceiver()
{
    clear();
}

Outcome FileReceiver::announce(const std::vector<AnnouncedFile> &files)
{
    if (files.empty())
        return { LinkAck::WrongArguments, QString::fromLatin1("no file is announced") };
    std::map<qint32, AnnouncedFile> announced;
    for (const AnnouncedFile &file : files) {
        if (file.fileType != UpgradeImageType)
            return { LinkAck::Refused,
                     QString::fromLatin1("files of type %1 are not taken").arg(file.fileType) };
        if (!announced.emplace(file.fileId, file).second)
            return { LinkAck::WrongArguments,
                     QString::fromLatin1("file %1 is announced twice").arg(file.fileId) };
    }
    clear();
    m_announced = std::move(announced);
    return {};
}

Outcome FileReceiver::open(qint32 fileId, qint32 fileType, quint64 size, const QByteArray &sha256)
{
    const auto announced = m_announced.find(fileId);
    if (announced == m_announced.end())
        return { LinkAck::NotNow, QString::fromLatin1("file %1 is not announced").arg(fileId) };
    if (sha256.size() != QCryptographicHash::hashLength(QCryptographicHash::Sha256))
        return { LinkAck::WrongArguments, QString::fromLatin1("the hash is not of 32 bytes") };
    if (fileType != announced->second.fileType
        || quint32(size) != quint32(announced->second.fileSize))
        return { LinkAck::Refused,
                 QString::fromLatin1("file %1 is not the one announced").arg(fileId) };
    drop(fileId);
    auto transfer = std::make_unique<Transfer>();
    transfer->size = size;
    transfer->sha256 = sha256;
    transfer->file.setFileName(QString::fromLatin1("%1/%2").arg(m_folder.incoming()).arg(fileId));
    if (!transfer->file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {
            LinkAck::Refused,
            QString::fromLatin1("the file cannot be stored: %1").arg(transfer->file.errorString())
        };
    m_transfers[fileId] = std::move(transfer);
    return {};
}

Outcome FileReceiver::append(qint32 fileId, quint64 offset, const QByteArray &bytes)
{
    const auto found = m_transfers.find(fileId);
    if (found == m_transfers.end())
        return noTransfer(fileId);
    Transfer &transfer = *found->second;
    if (bytes.isEmpty() || bytes.size() > MaxChunk)
        return { LinkAck::WrongArguments,
                 QString::fromLatin1("a chunk has 1 to %1 bytes").arg(MaxChunk) };
    if (offset != transfer.received)
        return {
            LinkAck::NotNow,
            QString::fromLatin1("byte %1 comes next, not %2").arg(transfer.received).arg(offset)
        };
    if (quint64(bytes.size()) > transfer.size - transfer.received)
        return { LinkAck::NotNow,
                 QString::fromLatin1("the file has %1 bytes, not more").arg(transfer.size) };
    if (transfer.file.write(bytes) != bytes.size()) {
        const QString cause = writeFault(transfer.file);
        drop(fileId);
        return { LinkAck::Refused,
                 QString::fromLatin1("the file cannot be stored: %1").arg(cause) };
    }
    transfer.hash.addData(bytes);
    transfer.received += quint64(bytes.size());
    return {};
}

Outcome FileReceiver::close(qint32 fileId)
{
    const auto found = m_transfers.find(fileId);
    if (found == m_transfers.end())
        return noTransfer(fileId);
    const Outcome outcome = keepImage(*found->second);
    drop(fileId);
    return outcome;
}

quint64 FileReceiver::received(qint32 fileId) const
{
    const auto found = m_transfers.find(fileId);
    return found == m_transfers.end() ? 0 : found->second->received;
}

int FileReceiver::percentReceived(qint32 fileId) const
{
    const auto found = m_transfers.find(fileId);
    if (found == m_transfers.end())
        return 0;
    const Transfer &transfer = *found->second;
    return transfer.size == 0 ? 100
                              : int(double(transfer.received) / double(transfer.size) * 100.0);
}

void FileReceiver::clear()
{
    while (!m_transfers.empty())
        drop(m_transfers.begin()->first);
    m_announced.clear();
}

Outcome FileReceiver::keepImage(Transfer &transfer)
{
    if (transfer.received != transfer.size)
        return { LinkAck::WrongContents,
                 QString::fromLatin1("%1 of %2 bytes have arrived")
                     .arg(transfer.received)
                     .arg(transfer.size) };
    if (transfer.hash.result() != transfer.sha256)
        return { LinkAck::WrongContents, QString::fromLatin1("the hash is wrong") };
    if (!syncFile(transfer.file))
        return { LinkAck::Refused, QString::fromLatin1("the file cannot be stored") };
    transfer.file.close();
    return Simulator::keepImage(transfer.file.fileName(), transfer.sha256, m_folder, m_state);
}

void FileReceiver::drop(qint32 fileId)
{
    const auto found = m_transfers.find(fileId);
    if (found == m_transfers.end())
        return;
    found->second->file.remove(); // does nothing if the file was kept under another name
    m_transfers.erase(found);
}

} // namespace Velmar::Simulator
