#include "run/registerrun.h"

#include "run/workerwatch.h"

#include "compatibilityupgrade_dat.h"

#include <velmarbizmodel/devicelink.h>
#include <velmarssproxy/devicechannel.h>

#include <QEventLoop>

#include <utility>

namespace Velmar::Host {

RegisterRun::RegisterRun(const std::shared_ptr<BizModel::DeviceLink> &link,
                         std::vector<ProtoModel::Auxiliary::s_CardInfoParts> parts)
    : m_link(link)
    , m_channel(std::make_shared<SSProxy::DeviceChannel>(link))
    , m_parts(std::move(parts))
    , m_upgrade(std::make_unique<Firmware::CompatibilityUpgradeDat>())
{
    using Upgrade = Firmware::CompatibilityUpgradeDat;
    connect(m_upgrade.get(), &Upgrade::signalUpdateProcessChanged, this,
            [this](int, double fraction) { slotProgress(fraction); });
    connect(m_upgrade.get(), &Upgrade::signalUpdateFinished, this, &RegisterRun::slotFinished);
}

RegisterRun::~RegisterRun()
{
    if (m_isStarted && isWorkerAlive())
        keepForWorker(std::move(m_upgrade));
}

void RegisterRun::start(std::chrono::milliseconds timeLimit)
{
    begin(timeLimit);
    m_isStarted = m_upgrade->update(m_parts, m_channel);
    if (!m_isStarted)
        QMetaObject::invokeMethod(
            this, [this] { slotFinished(false, QString()); }, Qt::QueuedConnection);
}

bool RegisterRun::endWorker(std::chrono::milliseconds limit)
{
    if (!m_isStarted)
        return true;
    QEventLoop loop;
    bool hasEnded = false;
    connect(m_upgrade.get(), &Firmware::CompatibilityUpgradeDat::signalUpdateFinished, &loop, [&] {
        hasEnded = true;
        loop.quit();
    });
    QTimer::singleShot(limit, &loop, &QEventLoop::quit);
    m_link->close();
    loop.exec();
    return hasEnded;
}

void RegisterRun::slotProgress(double fraction)
{
    if (stage() == Stage::Ended)
        return;
    enter(Stage::Sending);
    // A number like 0.29 is a little less than that, and its hundredfold less than 29. The least
    // part of a percent that a file can come to is far above what is added.
    const int percent = int(fraction * 100 + 1e-9);
    if (percent == m_percent)
        return;
    m_percent = percent;
    Q_EMIT signalSending(percent,
                         QStringLiteral("Writing firmware, current progress is %1%").arg(percent));
}

void RegisterRun::slotFinished(bool result, const QString &errorText)
{
    // The worker has done everything by now, and Qt waits for a thread that is merely ending when
    // the library's object goes.
    // The library words no success, and of the faults of a device it has only the log speak.
    if (result)
        finish(true, QStringLiteral("The firmware is written, and the device restarts with it"));
    else if (errorText.isEmpty())
        finish(false, QStringLiteral("The firmware could not be written"));
    else
        finish(false, errorText);
}

} // namespace Velmar::Host
