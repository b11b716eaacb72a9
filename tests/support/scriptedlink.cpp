#include "scriptedlink.h"

using Velmar::BizModel::LinkAnswer;
using Velmar::BizModel::LinkRequest;

namespace {

constexpr quint16 UnknownOperation = 2;

} // namespace

LinkAnswer ScriptedLink::accepted(const QCborMap &values)
{
    LinkAnswer answer;
    answer.outcome = LinkAnswer::Outcome::Answered;
    answer.values = values;
    return answer;
}

LinkAnswer ScriptedLink::refused(quint16 ack, const QString &errorText)
{
    LinkAnswer answer;
    answer.outcome = LinkAnswer::Outcome::Answered;
    answer.ack = ack;
    answer.errorText = errorText;
    return answer;
}

LinkAnswer ScriptedLink::failed(LinkAnswer::Outcome outcome)
{
    LinkAnswer answer;
    answer.outcome = outcome;
    answer.errorText = QStringLiteral("scripted failure");
    return answer;
}

void ScriptedLink::queue(const QString &operation, const LinkAnswer &answer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_queued[operation].enqueue(answer);
}

void ScriptedLink::answer(const QString &operation, const LinkAnswer &answer)
{
    handle(operation, [answer](const LinkRequest &) { return answer; });
}

void ScriptedLink::handle(const QString &operation, const Handler &handler)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_handlers[operation] = handler;
}

void ScriptedLink::setReachable(bool isReachable)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isReachable = isReachable;
}

QVector<LinkRequest> ScriptedLink::requests() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

QStringList ScriptedLink::operations() const
{
    QStringList operations;
    const auto sent = requests();
    for (const LinkRequest &request : sent)
        operations.append(request.operation);
    return operations;
}

QVector<QCborMap> ScriptedLink::arguments(const QString &operation) const
{
    QVector<QCborMap> arguments;
    const auto sent = requests();
    for (const LinkRequest &request : sent) {
        if (request.operation == operation)
            arguments.append(request.arguments);
    }
    return arguments;
}

int ScriptedLink::openCount() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_openCount;
}

bool ScriptedLink::open(int timeout, QString &errorText)
{
    Q_UNUSED(timeout)
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isOpen) {
        ++m_openCount;
        m_isOpen = m_isReachable;
    }
    if (!m_isOpen)
        errorText = QStringLiteral("scripted device is unreachable");
    return m_isOpen;
}

void ScriptedLink::close()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isOpen = false;
}

bool ScriptedLink::isOpen() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_isOpen;
}

LinkAnswer ScriptedLink::send(const LinkRequest &request)
{
    Handler handler;
    quint32 label = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_isOpen) {
            LinkAnswer closed = failed(LinkAnswer::Outcome::NotDelivered);
            closed.errorText = QStringLiteral("scripted link is closed");
            return closed;
        }
        m_requests.append(request);
        label = ++m_lastLabel;
        handler = takeHandler(request.operation);
    }
    LinkAnswer answer = handler(request);
    answer.label = label;
    if (answer.outcome == LinkAnswer::Outcome::Lost
        || answer.outcome == LinkAnswer::Outcome::NotDelivered)
        close();
    return answer;
}

void ScriptedLink::pauseHeartbeat(int milliseconds)
{
    QCborMap arguments;
    arguments.insert(QLatin1String("milliseconds"), milliseconds);
    send({ QStringLiteral("heartbeat.pause"), arguments, 0 });
}

void ScriptedLink::restartHeartbeat()
{
    send({ QStringLiteral("heartbeat.resume"), {}, 0 });
}

ScriptedLink::Handler ScriptedLink::takeHandler(const QString &operation)
{
    QQueue<LinkAnswer> &queued = m_queued[operation];
    if (!queued.isEmpty())
        return [answer = queued.dequeue()](const LinkRequest &) {
            return answer;
        };
    return m_handlers.value(operation, [](const LinkRequest &) {
        return refused(UnknownOperation, QStringLiteral("not in the script"));
    });
}
