#include "device/onetrylink.h"

#include <utility>

namespace Velmar::Host {

using BizModel::LinkAnswer;
using BizModel::LinkRequest;

namespace {

constexpr quint16 Refused = 1;

} // namespace

OneTryLink::OneTryLink(std::shared_ptr<BizModel::DeviceLink> link,
                       std::chrono::milliseconds timeout)
    : m_link(std::move(link))
    , m_timeout(timeout)
{
}

const QString &OneTryLink::failure() const
{
    return m_failure;
}

// Open to its user in any case: a closed link would be opened for a second try.
bool OneTryLink::open(int timeout, QString &errorText)
{
    Q_UNUSED(timeout)
    Q_UNUSED(errorText)
    return true;
}

bool OneTryLink::isOpen() const
{
    return true;
}

void OneTryLink::close()
{
    // Whoever made the link below decides on its end.
}

LinkAnswer OneTryLink::send(const LinkRequest &request)
{
    LinkRequest once = request;
    once.timeout = static_cast<int>(m_timeout.count());
    LinkAnswer answer = m_link->send(once);
    m_failure = answer.isAccepted() ? QString() : answer.errorText;
    if (answer.outcome != LinkAnswer::Outcome::Answered) {
        answer.outcome = LinkAnswer::Outcome::Answered;
        answer.ack = Refused;
    }
    return answer;
}

void OneTryLink::pauseHeartbeat(int milliseconds)
{
    m_link->pauseHeartbeat(milliseconds);
}

void OneTryLink::restartHeartbeat()
{
    m_link->restartHeartbeat();
}

} // namespace Velmar::Host
