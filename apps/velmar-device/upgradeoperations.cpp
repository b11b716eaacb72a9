#include "upgradeoperations.h"

#include "arguments.h"
#include "faults.h"
#include "filereceiver.h"
#include "fitting.h"
#include "installer.h"
#include "mishaps.h"
#include "operationtable.h"
#include "orderedparts.h"
#include "toldprogress.h"

namespace Velmar::Simulator {

using ProtoModel::Auxiliary::s_SectionPercent;
using ProtoModel::Auxiliary::s_UpgradeCardParts;
using ProtoModel::Auxiliary::s_UpgradePercent;

namespace {

/*! One card of an order, as it stands in the request. */
struct RequestedPart {
    PartOrder order;
    quint8 boardId = 0;
};

QCborMap toCbor(const s_UpgradePercent &progress)
{
    QCborArray parts;
    for (const s_UpgradeCardParts &part : progress.parts) {
        QCborArray sections;
        for (const s_SectionPercent &section : part.section) {
            sections.append(QCborMap { { QLatin1String("code"), section.code },
                                       { QLatin1String("rate"), section.rate },
                                       { QLatin1String("result"), section.result } });
        }
        parts.append(QCborMap { { QLatin1String("type"), part.type },
                                { QLatin1String("slotId"), part.slotId },
                                { QLatin1String("rate"), part.rate },
                                { QLatin1String("result"), part.result },
                                { QLatin1String("section"), sections } });
    }
    return { { QLatin1String("result"), progress.result },
             { QLatin1String("rate"), progress.rate },
             { QLatin1String("subSections"),
               QCborMap { { QLatin1String("rate"), progress.subSections.rate } } },
             { QLatin1String("parts"), parts } };
}

class UpgradeOperations
{
public:
    UpgradeOperations(const Fitting &fitting, FileReceiver &receiver, Installer &installer,
                      const Faults &faults, Mishaps &mishaps, std::function<void()> restart)
        : m_fitting(fitting)
        , m_receiver(receiver)
        , m_installer(installer)
        , m_faults(faults)
        , m_mishaps(mishaps)
        , m_told(installer, faults)
        , m_restart(std::move(restart))
    {
    }

    Reply configure(const QCborMap &arguments)
    {
        if (m_faults.isSet(Fault::RefuseConfigure))
            return Reply::refused(
                { LinkAck::Refused, QString::fromLatin1("the configuration is refused") });
        Outcome outcome;
        ArgumentReader reader(arguments, outcome);
        reader.number<qint32>("upgradeType"); // this device knows one way to upgrade
        reader.text("filePath"); // and one place for the image
        reader.number<qint32>("reboot"); // it restarts when it is told to by device.shutdown
        InstallationOrder order;
        order.deletesImage = reader.number<qint32>("deleteUpgradeFile") != 0;
        std::vector<RequestedPart> parts = readParts(reader);
        if (outcome.isAccepted() && parts.empty())
            outcome = { LinkAck::WrongArguments, QString::fromLatin1("\"parts\" is empty") };
        for (RequestedPart &part : parts) {
            if (outcome.isAccepted())
                outcome = addToOrder(m_fitting, part.order, part.boardId, order);
        }
        if (const auto fileVersion = m_fitting.fileVersionSection())
            order.sections.push_back(*fileVersion);
        if (outcome.isAccepted())
            outcome = m_installer.start(order);
        if (!outcome.isAccepted())
            return Reply::refused(outcome);
        m_receiver.clear(); // what was still on its way belongs to no installation
        return Reply::accepted(withRun({}));
    }

    Reply progress(const QCborMap &)
    {
        ++m_progressReads;
        if (m_progressReads == m_faults.value(Fault::DropProgress, 0))
            return Reply::dropped();
        if (m_progressReads == m_faults.value(Fault::RefuseProgress, 0))
            return Reply::refused(
                { LinkAck::Refused, QString::fromLatin1("the progress is refused") });
        return Reply::accepted(withRun(toCbor(m_told.next())));
    }

    Reply shutdown(const QCborMap &arguments)
    {
        Outcome outcome;
        ArgumentReader reader(arguments, outcome);
        const auto mode = reader.number<quint8>("mode");
        if (!outcome.isAccepted())
            return Reply::refused(outcome);
        if (mode != RestartMode)
            return Reply::refused(
                { LinkAck::Refused,
                  QString::fromLatin1("there is no shutdown mode %1").arg(mode) });
        if (m_faults.isSet(Fault::RefuseRestart))
            return Reply::refused(
                { LinkAck::Refused, QString::fromLatin1("the restart is refused") });
        m_mishaps.noteRestartOrdered();
        Reply reply = Reply::accepted();
        reply.afterwards = m_restart;
        return reply;
    }

private:
    static constexpr quint8 RestartMode = 0;

    /*! The number of the installation, if hosts are told it, in front of \a values. */
    QCborMap withRun(const QCborMap &values) const
    {
        QCborMap all;
        if (m_told.hasRun())
            all.insert(QLatin1String("run"), qint64(m_installer.run()));
        for (const auto &[key, value] : values)
            all.insert(key, value);
        return all;
    }

    static std::vector<RequestedPart> readParts(ArgumentReader &reader)
    {
        std::vector<RequestedPart> parts;
        for (ArgumentReader &argument : reader.maps("parts")) {
            RequestedPart part;
            part.order.type = argument.number<qint32>("type");
            part.order.slotId = argument.number<quint8>("slotId");
            part.boardId = argument.number<quint8>("boardId");
            for (ArgumentReader &section : argument.maps("section"))
                part.order.codes.push_back(section.number<quint16>("code"));
            parts.push_back(part);
        }
        return parts;
    }

    const Fitting &m_fitting;
    FileReceiver &m_receiver;
    Installer &m_installer;
    const Faults &m_faults;
    Mishaps &m_mishaps;
    ToldProgress m_told;
    const std::function<void()> m_restart;
    qint64 m_progressReads = 0;
};

} // namespace

void addUpgradeOperations(OperationTable &table, const Fitting &fitting, FileReceiver &receiver,
                          Installer &installer, const Faults &faults, Mishaps &mishaps,
                          std::function<void()> restart)
{
    const auto operations = std::make_shared<UpgradeOperations>(
        fitting, receiver, installer, faults, mishaps, std::move(restart));
    const auto add = [&](const QString &name,
                         Reply (UpgradeOperations::*operation)(const QCborMap &)) {
        table.add(name, [operations, operation](const QCborMap &arguments, LinkSession &) {
            return (*operations.*operation)(arguments);
        });
    };
    add(QStringLiteral("upgrade.configure"), &UpgradeOperations::configure);
    add(QStringLiteral("upgrade.progress"), &UpgradeOperations::progress);
    add(QStringLiteral("device.shutdown"), &UpgradeOperations::shutdown);
}

} // namespace Velmar::Simulator
