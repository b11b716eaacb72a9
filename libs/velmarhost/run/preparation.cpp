#include "run/preparation.h"

#include "device/devicelock.h"
#include "package/packagecheck.h"

#include <QElapsedTimer>

#include <algorithm>
#include <utility>

namespace Velmar::Host {

namespace {

constexpr std::chrono::seconds AnswerLimit { 5 }; // for each of the few questions to the device
constexpr int TryCount = 3;
constexpr int TryMs = 5000; // no further try behind that

Verdict refusal(const std::vector<PackageFinding> &findings, const PackageFinding &first)
{
    const auto count =
        std::count_if(findings.begin(), findings.end(),
                      [](const PackageFinding &finding) { return finding.isRefusal; });
    auto text = QStringLiteral("%1: %2 (%3)").arg(first.place, first.text, first.code);
    if (count > 1)
        text += QStringLiteral(", and %1 more").arg(count - 1);
    return verdict(VerdictCode::PackageRefused, text);
}

Verdict interruption()
{
    return verdict(VerdictCode::Interrupted,
                   QStringLiteral("Interrupted. The device stays as it was"));
}

} // namespace

Preparation::Preparation(PreparationOrder order, LinkFactory makeLink)
    : m_order(std::move(order))
    , m_links(std::move(makeLink))
    , m_task([this](const std::atomic<bool> &isCancelled) { work(isCancelled); })
{
    connect(&m_task, &BackgroundTask::signalEnded, this, &Preparation::slotEnded);
}

Preparation::~Preparation()
{
    cancel(); // the task is waited for
}

void Preparation::start()
{
    m_task.start();
}

void Preparation::cancel()
{
    m_isCancelled = true;
    m_task.cancel();
    m_links.close();
}

void Preparation::leaveCopy()
{
    if (m_copy)
        m_copy->leave();
}

const PackageCopy *Preparation::copy() const
{
    return m_copy.get();
}

const DeviceLock *Preparation::lock() const
{
    return m_lock.get();
}

const DeviceFacts &Preparation::facts() const
{
    return *m_facts;
}

void Preparation::tell(const std::function<void()> &signal)
{
    QMetaObject::invokeMethod(this, signal, Qt::QueuedConnection);
}

void Preparation::work(const std::atomic<bool> &isCancelled)
{
    const bool isDone =
        (m_order.packagePath.isEmpty() || (copyPackage(isCancelled) && checkCopy(isCancelled)))
        && !isCancelled && askDevice() && (!m_order.isExclusive || lockDevice());
    if (isDone && !isCancelled)
        return;
    if (isCancelled)
        m_refusal = interruption();
}

bool Preparation::copyPackage(const std::atomic<bool> &isCancelled)
{
    tell([this] { Q_EMIT signalPhase(Phase::Copying); });
    PackageCopyOptions options;
    options.baseFolder = m_order.workFolder;
    options.progress = [this](qint64 done, qint64 total) {
        tell([this, done, total] { Q_EMIT signalCopied(done, total); });
    };
    auto code = VerdictCode::Internal;
    QString errorText;
    m_copy = PackageCopy::make(m_order.packagePath, options, isCancelled, code, errorText);
    if (!m_copy)
        m_refusal = verdict(code, errorText);
    return m_copy != nullptr;
}

bool Preparation::checkCopy(const std::atomic<bool> &isCancelled)
{
    tell([this] { Q_EMIT signalPhase(Phase::Checking); });
    PackageCheckOptions options;
    options.isCancelled = &isCancelled;
    const auto findings = checkPackage(m_copy->path(), m_copy->manifest(), options);
    for (const auto &finding : findings) {
        const auto text = QStringLiteral("%1: %2").arg(finding.place, finding.text);
        tell([this, code = finding.code, text] { Q_EMIT signalFinding(code, text); });
    }
    const auto *first = firstRefusal(findings);
    if (first)
        m_refusal = refusal(findings, *first);
    return !first;
}

bool Preparation::askDevice()
{
    tell([this] { Q_EMIT signalPhase(Phase::Planning); });
    QString errorText;
    // Nothing is repeated in there, and a connection that breaks once is no reason to give up.
    QElapsedTimer elapsed;
    elapsed.start();
    for (int tries = 0; !m_facts && tries < TryCount && !elapsed.hasExpired(TryMs); ++tries)
        m_facts =
            readDeviceFacts(m_order.device, AnswerLimit, errorText,
                            [this](const DeviceAddress &address) { return m_links.make(address); });
    if (!m_facts)
        m_refusal = verdict(VerdictCode::Unreachable, errorText);
    return m_facts.has_value();
}

bool Preparation::lockDevice()
{
    bool isHeld = false;
    QString errorText;
    m_lock = DeviceLock::take(*m_facts, errorText, isHeld);
    if (!m_lock)
        m_refusal = verdict(isHeld ? VerdictCode::DeviceBusy : VerdictCode::Internal, errorText);
    return m_lock != nullptr;
}

void Preparation::slotEnded()
{
    // The task may have ended well just before it was cancelled.
    if (m_isCancelled && !m_refusal)
        m_refusal = interruption();
    else if (!m_task.fault().isEmpty())
        m_refusal = verdict(VerdictCode::Internal, m_task.fault());
    if (m_refusal)
        Q_EMIT signalRefused(*m_refusal);
    else
        Q_EMIT signalReady();
}

} // namespace Velmar::Host
