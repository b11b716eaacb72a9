#include "run/upgraderun.h"

#include "run/sendingpercent.h"
#include "run/workerwatch.h"

#include "upgradeprocess.h"

#include <velmarbizmodel/devicelist.h>

#include <algorithm>
#include <utility>

namespace Velmar::Host {

namespace {

using ProtoModel::Auxiliary::s_SectionPercent;
using ProtoModel::Auxiliary::s_UpgradeCardParts;
using ProtoModel::Auxiliary::s_UpgradePercent;

template<typename Record, typename Equal>
bool areEqual(const std::vector<Record> &left, const std::vector<Record> &right, Equal equal)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), equal);
}

bool isSameSection(const s_SectionPercent &left, const s_SectionPercent &right)
{
    return left.code == right.code && left.rate == right.rate && left.result == right.result;
}

bool isSamePart(const s_UpgradeCardParts &left, const s_UpgradeCardParts &right)
{
    return left.rate == right.rate && left.type == right.type && left.slotId == right.slotId
        && left.result == right.result && areEqual(left.section, right.section, isSameSection);
}

bool isSameProgress(const s_UpgradePercent &left, const s_UpgradePercent &right)
{
    return left.rate == right.rate && left.result == right.result
        && left.subSections.rate == right.subSections.rate
        && areEqual(left.parts, right.parts, isSamePart);
}

} // namespace

UpgradeRun::UpgradeRun(UpgradeOrder order)
    : m_process(std::make_unique<Firmware::UpgradeProcess>(
        std::move(order.device), std::move(order.parts), std::move(order.units),
        std::move(order.dataFilePaths), order.packagePath))
{
    m_progressTimer.setInterval(std::chrono::milliseconds(200));
    connect(&m_progressTimer, &QTimer::timeout, this, &UpgradeRun::reportProgress);
    connect(this, &DeviceRun::signalStageChanged, this, [this](Stage stage) {
        if (stage == Stage::Ended)
            m_progressTimer.stop();
    });

    using Process = Firmware::UpgradeProcess;
    connect(m_process.get(), &Process::signalUpgradeFinished,
            [worker = m_worker] { worker->noteWorker(); });
    connect(m_process.get(), &Process::signalUpgradeFinished, this, &UpgradeRun::slotFinished,
            Qt::QueuedConnection);
    connect(m_process.get(), &Process::signalStartReadUpgradeProgress, this,
            &UpgradeRun::slotInstallingStarted, Qt::QueuedConnection);
}

UpgradeRun::~UpgradeRun()
{
    if (isWorkerAlive())
        keepForWorker(std::move(m_process));
}

void UpgradeRun::setProgressInterval(std::chrono::milliseconds interval)
{
    m_progressTimer.setInterval(interval);
}

void UpgradeRun::start(Firmware::Enum::UpgradeProcessType type, std::chrono::milliseconds timeLimit)
{
    begin(timeLimit);
    connect(
        BizModel::DeviceList::instance(), &BizModel::DeviceList::signalShowStatusBarMsg, this,
        [this](BizModel::Enum::StatusBarMsgType, const QString &text) { slotStatusBar(text); },
        Qt::QueuedConnection);
    m_process->start(type);
}

s_UpgradePercent UpgradeRun::progress() const
{
    s_UpgradePercent progress;
    m_process->upgradeProgressDetails(progress);
    return progress;
}

void UpgradeRun::slotStatusBar(const QString &text)
{
    if (stage() == Stage::Ended || text.isEmpty()) // an empty text clears a status bar
        return;
    if (const auto percent = sendingPercent(text)) {
        enter(Stage::Sending);
        Q_EMIT signalSending(*percent, text);
    } else {
        Q_EMIT signalStatusText(text);
    }
}

void UpgradeRun::slotInstallingStarted()
{
    if (stage() == Stage::Ended)
        return;
    enter(Stage::Installing);
    m_progressTimer.start();
}

void UpgradeRun::slotFinished(bool result, const QString &text)
{
    if (stage() == Stage::Installing)
        reportProgress();
    finish(result, text);
}

void UpgradeRun::reportProgress()
{
    const auto now = progress();
    if (isSameProgress(now, m_reported))
        return;
    m_reported = now;
    Q_EMIT signalInstalling(m_reported);
}

} // namespace Velmar::Host
