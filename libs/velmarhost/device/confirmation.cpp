#include "device/confirmation.h"

#include "device/devicelooks.h"

#include <velmarbizmodel/devicelink.h>

#include <system_error>
#include <utility>

namespace Velmar::Host {

Confirmation::Confirmation(ConfirmationOrder order, ConfirmationTimes times, LinkFactory makeLink)
    : m_device(order.device)
    , m_times(times)
    , m_makeLink(std::move(makeLink))
    , m_judge(order, times)
{
    m_tick.setInterval(times.poll);
    connect(&m_tick, &QTimer::timeout, this, &Confirmation::judge);
}

Confirmation::~Confirmation() = default;

void Confirmation::start()
{
    if (m_isOver)
        return;
    m_elapsed.start();
    m_tick.start();
    try {
        m_looks = std::make_unique<DeviceLooks>(m_device, m_makeLink(m_device), m_times.answer,
                                                m_times.poll, [this](const DeviceLook &look) {
                                                    // Dropped with the object, which outlives the thread.
                                                    QMetaObject::invokeMethod(
                                                        this, [this, look] { slotLook(look); },
                                                        Qt::QueuedConnection);
                                                });
        judge();
    } catch (const std::system_error &error) { // no room for a thread
        const auto cause = QString::fromLocal8Bit(error.what());
        QMetaObject::invokeMethod(
            this, [this, cause] { endUnseen(cause); }, Qt::QueuedConnection);
    }
}

void Confirmation::endUnseen(const QString &cause)
{
    if (m_isOver)
        return;
    stop();
    Q_EMIT signalEnded(
        verdict(VerdictCode::VersionsUnreadable,
                QStringLiteral("The device cannot be asked for its versions: %1").arg(cause)));
}

void Confirmation::stop()
{
    m_isOver = true;
    m_tick.stop();
    if (m_looks)
        m_looks->stop();
}

const std::optional<ProtoModel::Auxiliary::s_DeviceVersion> &Confirmation::versions() const
{
    return m_versions;
}

void Confirmation::slotLook(const DeviceLook &look)
{
    if (m_isOver)
        return;
    m_judge.note(look, std::chrono::milliseconds(m_elapsed.elapsed()));
    if (look.kind == DeviceLook::Kind::Versions && m_judge.isOwnDevice())
        m_versions = look.versions;
    judge();
}

void Confirmation::judge()
{
    if (m_isOver)
        return;
    const std::chrono::milliseconds now(m_elapsed.elapsed());
    const auto status = m_judge.statusAt(now);
    if (status != m_status) {
        m_status = status;
        Q_EMIT signalStatus(status);
    }
    if (!m_isOver && !m_hasReturned && m_judge.hasReturnedAt(now)) {
        m_hasReturned = true;
        Q_EMIT signalReturned();
    }
    if (m_isOver) // a receiver has stopped it
        return;
    if (const auto verdict = m_judge.verdictAt(now)) {
        stop();
        Q_EMIT signalEnded(*verdict);
    }
}

} // namespace Velmar::Host
