#include "transferoperations.h"

#include "arguments.h"
#include "faults.h"
#include "filereceiver.h"
#include "installer.h"
#include "mishaps.h"
#include "operationtable.h"

namespace Velmar::Simulator {

namespace {

Reply reply(const Outcome &outcome)
{
    return outcome.isAccepted() ? Reply::accepted() : Reply::refused(outcome);
}

class TransferOperations
{
public:
    TransferOperations(FileReceiver &receiver, const Installer &installer, const Faults &faults,
                       Mishaps &mishaps)
        : m_receiver(receiver)
        , m_installer(installer)
        , m_faults(faults)
        , m_mishaps(mishaps)
    {
    }

    Reply announce(const QCborMap &arguments)
    {
        if (m_faults.isSet(Fault::RefuseAnnounce))
            return Reply::refused(
                { LinkAck::Refused, QString::fromLatin1("the announcement is refused") });
        Outcome outcome;
        ArgumentReader reader(arguments, outcome);
        std::vector<AnnouncedFile> files;
        for (ArgumentReader &file : reader.maps("files")) {
            AnnouncedFile announced;
            announced.fileId = file.number<qint32>("fileId");
            announced.fileType = file.number<qint32>("fileType");
            file.text("fileName"); // for people alone: an image has no name on the device
            announced.fileSize = file.number<qint32>("fileSize");
            files.push_back(announced);
        }
        return carryOut(outcome, [&] { return m_receiver.announce(files); });
    }

    Reply open(const QCborMap &arguments)
    {
        Outcome outcome;
        ArgumentReader reader(arguments, outcome);
        const auto fileId = reader.number<qint32>("fileId");
        const auto fileType = reader.number<qint32>("fileType");
        const auto size = reader.number<quint64>("size");
        const QByteArray sha256 = reader.bytes("sha256");
        return carryOut(outcome, [&] { return m_receiver.open(fileId, fileType, size, sha256); });
    }

    Reply data(const QCborMap &arguments)
    {
        Outcome outcome;
        ArgumentReader reader(arguments, outcome);
        const auto fileId = reader.number<qint32>("fileId");
        const auto offset = reader.number<quint64>("offset");
        const QByteArray bytes = reader.bytes("bytes");
        Reply answer = carryOut(outcome, [&] { return m_receiver.append(fileId, offset, bytes); });
        if (!answer.outcome.isAccepted())
            return answer;
        m_mishaps.noteSending(m_receiver.percentReceived(fileId));
        if (m_faults.isSet(Fault::CutTransfer) && !m_wasCut
            && m_receiver.percentReceived(fileId) >= m_faults.value(Fault::CutTransfer, 0)) {
            m_wasCut = true;
            return Reply::dropped();
        }
        answer.values.insert(QLatin1String("received"), qint64(m_receiver.received(fileId)));
        return answer;
    }

    Reply close(const QCborMap &arguments)
    {
        Outcome outcome;
        ArgumentReader reader(arguments, outcome);
        const auto fileId = reader.number<qint32>("fileId");
        return carryOut(outcome, [&] { return m_receiver.close(fileId); });
    }

private:
    /*! Does \a step, unless the arguments are wrong or the device is busy. */
    template<typename Step> Reply carryOut(const Outcome &arguments, Step step)
    {
        if (!arguments.isAccepted())
            return reply(arguments);
        if (m_installer.isRunning())
            return reply({ LinkAck::NotNow, QString::fromLatin1("an installation is running") });
        return reply(step());
    }

    FileReceiver &m_receiver;
    const Installer &m_installer;
    const Faults &m_faults;
    Mishaps &m_mishaps;
    bool m_wasCut = false;
};

} // namespace

void addTransferOperations(OperationTable &table, FileReceiver &receiver,
                           const Installer &installer, const Faults &faults, Mishaps &mishaps)
{
    const auto operations =
        std::make_shared<TransferOperations>(receiver, installer, faults, mishaps);
    const auto add = [&](const QString &name,
                         Reply (TransferOperations::*operation)(const QCborMap &)) {
        table.add(name, [operations, operation](const QCborMap &arguments, LinkSession &) {
            return (*operations.*operation)(arguments);
        });
    };
    add(QStringLiteral("file.announce"), &TransferOperations::announce);
    add(QStringLiteral("file.open"), &TransferOperations::open);
    add(QStringLiteral("file.data"), &TransferOperations::data);
    add(QStringLiteral("file.close"), &TransferOperations::close);
}

} // namespace Velmar::Simulator
