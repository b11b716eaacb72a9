#ifndef VELMARDEVICE_OPERATIONTABLE_H
#define VELMARDEVICE_OPERATIONTABLE_H

#include "outcome.h"

#include <QCborMap>
#include <QHash>
#include <QString>

#include <functional>

namespace Velmar::Simulator {

/*! What an operation can ask of the connection that its request came over. */
class LinkSession
{
public:
    virtual ~LinkSession();

    /*! Lets the host be silent for \a milliseconds beyond the limit. */
    virtual void pauseSilenceLimit(qint64 milliseconds) = 0;

    /*! Holds the host to the limit again. */
    virtual void resumeSilenceLimit() = 0;

    /*! Ends the connection. */
    virtual void endConnection() = 0;

protected:
    LinkSession() = default;
    Q_DISABLE_COPY_MOVE(LinkSession)
};

/*! What the device does about a request. */
struct Reply {
    Outcome outcome;
    QCborMap values;
    bool dropsConnection = false; //!< instead of an answer
    bool isUnanswered = false; //!< nothing at all happens
    int delayMs = 0; //!< before the answer leaves; no other request is looked at meanwhile
    std::function<void()> afterwards; //!< called once the answer has left; may be empty

    static Reply accepted(const QCborMap &values = {});
    static Reply refused(const Outcome &outcome);
    static Reply dropped();
    static Reply unanswered();
};

/*! Carries out an operation with \a arguments for \a session. */
using OperationHandler = std::function<Reply(const QCborMap &arguments, LinkSession &session)>;

/*! The operations that the device knows, by name. */
class OperationTable
{
public:
    /*! Adds the operation \a name, which is not in the table yet. */
    void add(const QString &name, const OperationHandler &handler);

    /*! While \a isMute says so, nothing is carried out; what it says behind an operation holds for
        the answer. Never mute without it. */
    void setMuteness(const std::function<bool()> &isMute) { m_isMute = isMute; }

    /*! Carries out \a operation; one that is not in the table is answered with "unknown". */
    Reply perform(const QString &operation, const QCborMap &arguments, LinkSession &session) const;

private:
    QHash<QString, OperationHandler> m_handlers;
    std::function<bool()> m_isMute; // may be empty
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_OPERATIONTABLE_H
