#include "operationtable.h"

namespace Velmar::Simulator {

namespace {

constexpr int MaxShownName = 64; // characters of a name that no operation has

QString shortened(const QString &name)
{
    return name.size() <= MaxShownName ? name : name.left(MaxShownName) + QLatin1String("...");
}

} // namespace

LinkSession::~LinkSession() = default;

Reply Reply::accepted(const QCborMap &values)
{
    Reply reply;
    reply.values = values;
    return reply;
}

Reply Reply::refused(const Outcome &outcome)
{
    Reply reply;
    reply.outcome = outcome;
    return reply;
}

Reply Reply::dropped()
{
    Reply reply;
    reply.dropsConnection = true;
    return reply;
}

Reply Reply::unanswered()
{
    Reply reply;
    reply.isUnanswered = true;
    return reply;
}

void OperationTable::add(const QString &name, const OperationHandler &handler)
{
    Q_ASSERT(!m_handlers.contains(name));
    m_handlers.insert(name, handler);
}

Reply OperationTable::perform(const QString &operation, const QCborMap &arguments,
                              LinkSession &session) const
{
    if (m_isMute && m_isMute())
        return Reply::unanswered();
    const auto handler = m_handlers.constFind(operation);
    if (handler == m_handlers.constEnd())
        return Reply::refused(
            { LinkAck::UnknownOperation,
              QString::fromLatin1("unknown operation \"%1\"").arg(shortened(operation)) });
    const Reply reply = (*handler)(arguments, session);
    return m_isMute && m_isMute() ? Reply::unanswered() : reply;
}

} // namespace Velmar::Simulator
