#include "registeroperations.h"

#include "arguments.h"
#include "devicestate.h"
#include "faults.h"
#include "installer.h"
#include "mishaps.h"
#include "operationtable.h"
#include "registerbank.h"

#include <algorithm>

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
    RegisterOperations(const RegisterDevice &device, std::function<void()> restart)
        : m_device(device)
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
            ? Reply::refused({ LinkAck(quint16(m_device.faults.secondValue(Fault::RegisterAck))),
                               QString::fromLatin1("the write is refused") })
            : carryOut(arguments);
        reply.delayMs = std::max(reply.delayMs, int(m_device.faults.value(Fault::RegisterSlow, 0)));
        if (isDue(Fault::RegisterNotReady))
            reply.afterwards = [&session, next = reply.afterwards] {
                if (next)
                    next();
                session.endConnection();
            };
        return reply;
    }

private:
    bool isDue(Fault fault) const { return m_device.faults.value(fault, 0) == m_writes; }

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
        if (m_device.installer.isRunning())
            return Reply::refused(toOutcome(
                { RegisterAck::Busy, QString::fromLatin1("an installation is running") }));
        const int percent = m_device.bank.percentWith(write);
        if (percent > 0)
            m_device.mishaps.noteSending(percent);
        if (percent == Whole)
            m_device.mishaps.noteInstalling(Whole);
        if (m_device.mishaps.isMute())
            return Reply::unanswered();
        return percent == Whole ? takeLast(write) : take(write);
    }

    Reply take(const RegisterWrite &write)
    {
        const Outcome outcome = toOutcome(m_device.bank.write(write));
        return outcome.isAccepted() ? Reply::accepted() : Reply::refused(outcome);
    }

    /*! The write that brings the end of a file, and has the device store it. */
    Reply takeLast(const RegisterWrite &write)
    {
        const bool isFragile = m_device.faults.isSet(Fault::Brick);
        if (isFragile)
            noteStoring(true);
        Reply reply = take(write);
        if (!m_device.bank.isComplete()) {
            if (isFragile)
                noteStoring(false);
            return reply;
        }
        m_device.installer.waitForRestart();
        m_device.mishaps.noteInstalled();
        reply.afterwards = m_restart;
        if (isFragile) {
            reply.delayMs = m_device.storingMs;
            reply.afterwards = [this] {
                noteStoring(false);
                m_restart();
            };
        }
        return reply;
    }

    void noteStoring(bool isStoring)
    {
        QString errorText;
        const auto change = [isStoring](DeviceRecord &record) {
            record.isStoring = isStoring;
        };
        if (!m_device.state.update(change, errorText))
            qWarning("%s", qUtf8Printable(errorText));
    }

    static constexpr int Whole = 100; // percent

    const RegisterDevice m_device;
    const std::function<void()> m_restart;
    qint64 m_writes = 0; // since the device was switched on
};

} // namespace

void addRegisterOperations(OperationTable &table, const RegisterDevice &device,
                           std::function<void()> restart)
{
    const auto operations = std::make_shared<RegisterOperations>(device, std::move(restart));
    table.add(QStringLiteral("register.write"),
              [operations](const QCborMap &arguments, LinkSession &session) {
                  return operations->write(arguments, session);
              });
}

} // namespace Velmar::Simulator
