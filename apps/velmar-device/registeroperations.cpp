#include "registeroperations.h"

#include "arguments.h"
#include "faults.h"
#include "installer.h"
#include "operationtable.h"
#include "registerbank.h"

namespace Velmar::Simulator {

namespace {

/*! A register's word goes where the link's own does. */
Outcome toOutcome(const RegisterAnswer &answer)
{
    return { LinkAck(quint16(answer.ack)), answer.errorText };
}

class RegisterOperations
{
public:
    RegisterOperations(RegisterBank &bank, Installer &installer, const Faults &faults,
                       std::function<void()> restart)
        : m_bank(bank)
        , m_installer(installer)
        , m_faults(faults)
        , m_restart(std::move(restart))
    {
    }

    Reply write(const QCborMap &arguments, LinkSession &session)
    {
        ++m_writes;
        if (isDue(Fault::RegisterSilent))
            return Reply::unanswered();
        if (isDue(Fault::RegisterCut))
            return Reply::dropped();
        Reply reply = isDue(Fault::RegisterAck)
            ? Reply::refused({ LinkAck(quint16(m_faults.secondValue(Fault::RegisterAck))),
                               QString::fromLatin1("the write is refused") })
            : carryOut(arguments);
        reply.delayMs = int(m_faults.value(Fault::RegisterSlow, 0));
        if (isDue(Fault::RegisterNotReady))
            reply.afterwards = [&session, next = reply.afterwards] {
                if (next)
                    next();
                session.endConnection();
            };
        return reply;
    }

private:
    bool isDue(Fault fault) const { return m_faults.value(fault, 0) == m_writes; }

    Reply carryOut(const QCborMap &arguments)
    {
        Outcome outcome;
        ArgumentReader reader(arguments, outcome);
        RegisterWrite write;
        write.scanner = reader.number<quint8>("scanner");
        write.write = reader.number<quint8>("write");
        write.reserved = reader.number<quint8>("reserved");
        write.address = reader.number<quint32>("address");
        write.length = reader.number<quint16>("length");
        write.trailing = reader.number<quint8>("trailing");
        write.body = reader.bytes("body");
        if (!outcome.isAccepted())
            return Reply::refused(outcome);
        if (m_installer.isRunning())
            return Reply::refused(toOutcome(
                { RegisterAck::Busy, QString::fromLatin1("an installation is running") }));
        outcome = toOutcome(m_bank.write(write));
        if (!outcome.isAccepted())
            return Reply::refused(outcome);
        Reply reply = Reply::accepted();
        if (m_bank.isComplete()) {
            m_installer.waitForRestart();
            reply.afterwards = m_restart;
        }
        return reply;
    }

    RegisterBank &m_bank;
    Installer &m_installer;
    const Faults &m_faults;
    const std::function<void()> m_restart;
    qint64 m_writes = 0; // since the device was switched on
};

} // namespace

void addRegisterOperations(OperationTable &table, RegisterBank &bank, Installer &installer,
                           const Faults &faults, std::function<void()> restart)
{
    const auto operations =
        std::make_shared<RegisterOperations>(bank, installer, faults, std::move(restart));
    table.add(QStringLiteral("register.write"),
              [operations](const QCborMap &arguments, LinkSession &session) {
                  return operations->write(arguments, session);
              });
}

} // namespace Velmar::Simulator
