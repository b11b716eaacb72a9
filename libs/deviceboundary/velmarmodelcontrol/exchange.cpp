#include "exchange.h"

#include <QDeadlineTimer>
#include <QThread>

namespace Velmar::ModelControl::Internal {

using BizModel::DeviceLink;
using BizModel::LinkAnswer;
using BizModel::LinkRequest;

namespace {

LinkAnswer tryOnce(DeviceLink &link, const LinkRequest &request, int connectTimeout)
{
    LinkAnswer answer;
    // A link that is open may be lost before the request leaves: it says so itself then.
    if (link.isOpen() || link.open(connectTimeout, answer.errorText))
        answer = link.send(request);
    return answer;
}

// Whether another try could end in another way.
bool isPassing(LinkAnswer::Outcome outcome)
{
    return outcome != LinkAnswer::Outcome::Answered && outcome != LinkAnswer::Outcome::Unsendable;
}

// Waits before the next try, unless the time for tries is over by then.
bool mayTryAgain(const QDeadlineTimer &giveUp, const LinkPolicy &policy)
{
    if (giveUp.remainingTime() <= policy.repeatPause)
        return false;
    QThread::msleep(ulong(policy.repeatPause));
    return true;
}

int withinRest(int timeout, const QDeadlineTimer &giveUp)
{
    return int(qBound(qint64(1), giveUp.remainingTime(), qint64(timeout)));
}

} // namespace

LinkAnswer ask(DeviceLink &link, const LinkRequest &request, const LinkPolicy &policy)
{
    const QDeadlineTimer giveUp(policy.readRepeatTime);
    LinkAnswer answer = tryOnce(link, request, policy.connectTimeout);
    while (isPassing(answer.outcome) && mayTryAgain(giveUp, policy)) {
        LinkRequest again = request;
        again.timeout = withinRest(request.timeout, giveUp);
        answer = tryOnce(link, again, withinRest(policy.connectTimeout, giveUp));
    }
    return answer;
}

LinkAnswer order(DeviceLink &link, const LinkRequest &request, const LinkPolicy &policy)
{
    const QDeadlineTimer giveUp(policy.writeRepeatTime);
    LinkAnswer answer = tryOnce(link, request, policy.connectTimeout);
    // The answer always gets its whole time: whoever stops waiting no longer knows what was done.
    while (answer.outcome == LinkAnswer::Outcome::NotDelivered && mayTryAgain(giveUp, policy))
        answer = tryOnce(link, request, withinRest(policy.connectTimeout, giveUp));
    return answer;
}

QString failureText(const LinkRequest &request, const LinkAnswer &answer)
{
    switch (answer.outcome) {
    case LinkAnswer::Outcome::Answered:
        return QStringLiteral("the device refused %1 with %2: %3")
            .arg(request.operation, QString::number(answer.ack), answer.errorText);
    case LinkAnswer::Outcome::NotDelivered:
        return QStringLiteral("%1 did not reach the device: %2")
            .arg(request.operation, answer.errorText);
    case LinkAnswer::Outcome::TimedOut:
        return QStringLiteral("no answer to %1: %2").arg(request.operation, answer.errorText);
    case LinkAnswer::Outcome::Lost:
        return QStringLiteral("connection lost during %1: %2")
            .arg(request.operation, answer.errorText);
    case LinkAnswer::Outcome::Unsendable:
        return QStringLiteral("%1 cannot be sent: %2").arg(request.operation, answer.errorText);
    }
    Q_UNREACHABLE();
}

} // namespace Velmar::ModelControl::Internal
