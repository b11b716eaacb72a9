#include "device/guardedlink.h"

#include <limits>
#include <tuple>
#include <utility>

namespace Velmar::Host {

using BizModel::LinkAnswer;
using BizModel::LinkRequest;
using Outcome = LinkAnswer::Outcome;

namespace {

// What a device reports of its installation.
constexpr int NothingInstalled = 0; // since its last restart
constexpr int Running = 1;
constexpr int Installed = 2;
constexpr int InstallationFailed = 3;

// Words of the device for what is refused here.
constexpr quint16 NotNow = 4;
constexpr quint16 WrongContents = 5;

constexpr std::chrono::minutes OverdueAfter { 1 };
constexpr int QuestionTimeoutMs = 5000; // as the control layer asks for the progress

const QString Announce = QStringLiteral("file.announce");
const QString Open = QStringLiteral("file.open");
const QString Data = QStringLiteral("file.data");
const QString Configure = QStringLiteral("upgrade.configure");
const QString Progress = QStringLiteral("upgrade.progress");
const QString Shutdown = QStringLiteral("device.shutdown");
const QString RegisterWrite = QStringLiteral("register.write");

// An answer is final: nobody repeats what was refused.
LinkAnswer refusal(quint16 ack, const QString &errorText)
{
    LinkAnswer answer;
    answer.outcome = Outcome::Answered;
    answer.ack = ack;
    answer.errorText = errorText;
    return answer;
}

LinkAnswer stoppedRefusal()
{
    return refusal(NotNow, QStringLiteral("the host has stopped the upgrade"));
}

// Proven: the device has not acted on it.
bool isWithoutEffect(const LinkAnswer &answer)
{
    return answer.outcome == Outcome::NotDelivered || answer.outcome == Outcome::Unsendable
        || (answer.outcome == Outcome::Answered && answer.ack != 0);
}

std::optional<qint64> readInteger(const QCborValue &value, qint64 least, qint64 greatest)
{
    if (!value.isInteger() || value.toInteger() < least || value.toInteger() > greatest)
        return std::nullopt;
    return value.toInteger();
}

} // namespace

bool LinkTraffic::operator==(const LinkTraffic &other) const
{
    const auto all = [](const LinkTraffic &each) {
        return std::tie(each.requests, each.answers, each.sentBytes, each.totalBytes, each.overdue,
                        each.result, each.isOrdered, each.isEndTold, each.isIdle,
                        each.isRestartOrdered);
    };
    return all(*this) == all(other);
}

bool GuardedLink::Shown::isEnd() const
{
    return result == Installed || result == InstallationFailed;
}

GuardedLink::GuardedLink(std::shared_ptr<BizModel::DeviceLink> link, Hooks hooks)
    : m_link(std::move(link))
    , m_hooks(std::move(hooks))
{
}

LinkTraffic GuardedLink::traffic() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    auto traffic = m_traffic;
    const auto now = Clock::now();
    for (const auto begin : m_underWay)
        traffic.overdue += static_cast<int>((now - begin) / OverdueAfter);
    return traffic;
}

QString GuardedLink::announcementFault() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_announcementFault;
}

void GuardedLink::stop()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isStopped = true;
}

bool GuardedLink::stopBeforeOrder()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_traffic.isOrdered)
            return false;
        m_isStopped = true;
    }
    m_link->close();
    return true;
}

void GuardedLink::setOldEndLimit(std::chrono::milliseconds limit)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_oldEndLimit = limit;
}

bool GuardedLink::open(int timeout, QString &errorText)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isStopped) {
            errorText = stoppedRefusal().errorText;
            return false;
        }
        ++m_connection;
    }
    return m_link->open(timeout, errorText);
}

void GuardedLink::close()
{
    m_link->close();
}

bool GuardedLink::isOpen() const
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isStopped)
            return true;
    }
    return m_link->isOpen();
}

LinkAnswer GuardedLink::send(const LinkRequest &request)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isStopped)
            return stoppedRefusal();
    }
    if (request.operation == Announce)
        return announce(request);
    if (request.operation == Configure)
        return order(request);
    if (request.operation == Progress)
        return askForProgress(request);
    if (request.operation == Shutdown)
        return restart(request);
    if (request.operation == RegisterWrite)
        return writeRegister(request);
    const auto answer = pass(request);
    countContents(request, answer);
    return answer;
}

void GuardedLink::pauseHeartbeat(int milliseconds)
{
    m_link->pauseHeartbeat(milliseconds);
}

void GuardedLink::restartHeartbeat()
{
    m_link->restartHeartbeat();
}

LinkAnswer GuardedLink::announce(const LinkRequest &request)
{
    const auto fault = m_hooks.announcementFault ? m_hooks.announcementFault() : QString();
    if (fault.isEmpty())
        return pass(request);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_announcementFault = fault;
    return refusal(WrongContents, fault);
}

LinkAnswer GuardedLink::order(const LinkRequest &request)
{
    bool wasOrdered = false;
    LinkTraffic traffic;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isStopped)
            return stoppedRefusal();
        wasOrdered = std::exchange(m_traffic.isOrdered, true);
        m_traffic.result = LinkTraffic::NoResult;
        m_traffic.isEndTold = false;
        m_traffic.isIdle = false;
        m_run.reset();
        m_isBeginningShown = false;
        m_isRunningShown = false;
        traffic = m_traffic;
    }
    tellOrdering(traffic);
    auto answer = pass(request);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (isWithoutEffect(answer))
        m_traffic.isOrdered = wasOrdered;
    else if (answer.isAccepted())
        m_run = readInteger(answer.values.value(QLatin1String("run")), 1,
                            std::numeric_limits<quint32>::max());
    m_oldEnd.setRemainingTime(m_oldEndLimit);
    return answer;
}

LinkAnswer GuardedLink::askForProgress(const LinkRequest &request)
{
    int connection = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        connection = m_connection;
    }
    auto answer = pass(request);
    const auto shown = readShown(answer);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!shown) {
        // Of an answer that never came, the library asks for another one.
        if (answer.outcome == Outcome::Answered)
            m_traffic.isEndTold = false;
        return answer;
    }
    noteShown(*shown, connection);
    if (shown->isEnd() && !m_traffic.isEndTold && !m_oldEnd.hasExpired()) {
        answer.values = { { QLatin1String("result"), Running }, { QLatin1String("rate"), 0 } };
        if (shown->run)
            answer.values.insert(QLatin1String("run"), *shown->run);
    }
    return answer;
}

LinkAnswer GuardedLink::restart(const LinkRequest &request)
{
    bool isOutdated = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        isOutdated = m_traffic.isEndTold && m_endConnection != m_connection;
    }
    // Since the end was told the device may have begun anew, or be another one at the address.
    if (isOutdated
        && askForProgress({ Progress, {}, QuestionTimeoutMs }).outcome != Outcome::Answered) {
        LinkAnswer answer; // not delivered: another connection may do better
        answer.errorText = QStringLiteral("the device does not tell whether it is installing");
        return answer;
    }
    bool wasRestartOrdered = false;
    LinkTraffic traffic;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isStopped)
            return stoppedRefusal();
        if (!m_traffic.isEndTold || m_endConnection != m_connection)
            return refusal(NotNow,
                           QStringLiteral("the device has not told the end of an installation, and "
                                          "is not restarted while it may be at work"));
        wasRestartOrdered = std::exchange(m_traffic.isRestartOrdered, true);
        traffic = m_traffic;
    }
    tellOrdering(traffic);
    const auto answer = pass(request);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (isWithoutEffect(answer))
        m_traffic.isRestartOrdered = wasRestartOrdered;
    return answer;
}

// The device installs by itself behind the last write, and which one that is it alone knows.
LinkAnswer GuardedLink::writeRegister(const LinkRequest &request)
{
    bool wasOrdered = false;
    LinkTraffic traffic;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isStopped)
            return stoppedRefusal();
        wasOrdered = std::exchange(m_traffic.isOrdered, true);
        traffic = m_traffic;
    }
    if (!wasOrdered)
        tellOrdering(traffic);
    const auto answer = pass(request);
    countContents(request, answer);
    if (isWithoutEffect(answer)) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_traffic.isOrdered = wasOrdered;
    }
    return answer;
}

LinkAnswer GuardedLink::pass(const LinkRequest &request)
{
    std::multiset<Clock::time_point>::iterator entry;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_traffic.requests;
        entry = m_underWay.insert(Clock::now());
    }
    auto answer = m_link->send(request);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_underWay.erase(entry);
    if (answer.outcome == Outcome::Answered) {
        ++m_traffic.answers;
        m_traffic.overdue = 0;
    } else if (answer.outcome != Outcome::Unsendable) {
        ++m_traffic.overdue;
    }
    return answer;
}

void GuardedLink::countContents(const LinkRequest &request, const LinkAnswer &answer)
{
    if (!answer.isAccepted())
        return;
    const auto &arguments = request.arguments;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (request.operation == Open) { // begins anew, also a file that is open already
        m_traffic.totalBytes = arguments.value(QLatin1String("size")).toInteger();
        m_traffic.sentBytes = 0;
    } else if (request.operation == Data) {
        m_traffic.sentBytes += arguments.value(QLatin1String("bytes")).toByteArray().size();
    } else if (request.operation == RegisterWrite) {
        m_traffic.sentBytes += arguments.value(QLatin1String("body")).toByteArray().size();
    }
}

std::optional<GuardedLink::Shown> GuardedLink::readShown(const LinkAnswer &answer)
{
    if (!answer.isAccepted())
        return std::nullopt;
    const auto result =
        readInteger(answer.values.value(QLatin1String("result")), std::numeric_limits<int>::min(),
                    std::numeric_limits<int>::max());
    const auto run = answer.values.value(QLatin1String("run"));
    Shown shown;
    if (!run.isUndefined()) {
        shown.run = readInteger(run, 0, std::numeric_limits<quint32>::max());
        if (!shown.run)
            return std::nullopt;
    }
    if (!result)
        return std::nullopt;
    shown.result = static_cast<int>(*result);
    return shown;
}

// With the mutex locked, as for isOld().
void GuardedLink::noteShown(const Shown &shown, int connection)
{
    m_traffic.result = shown.result;
    m_traffic.isEndTold = shown.isEnd() && !isOld(shown);
    if (m_traffic.isEndTold)
        m_endConnection = connection;
    else if (!shown.isEnd())
        m_isBeginningShown = true;
    m_isRunningShown = m_isRunningShown || shown.result == Running;
    m_traffic.isIdle =
        shown.result == NothingInstalled && (m_isRunningShown || !m_traffic.isOrdered);
}

bool GuardedLink::isOld(const Shown &shown) const
{
    if (!m_traffic.isOrdered) // what is watched was ordered by somebody else
        return false;
    if (shown.run && m_run)
        return *shown.run < *m_run;
    return !m_isBeginningShown;
}

void GuardedLink::tellOrdering(const LinkTraffic &traffic) const
{
    if (m_hooks.ordering)
        m_hooks.ordering(traffic);
}

} // namespace Velmar::Host
