#ifndef TESTS_SUPPORT_SCRIPTEDLINK_H
#define TESTS_SUPPORT_SCRIPTEDLINK_H

#include <velmarbizmodel/devicelink.h>

#include <QHash>
#include <QQueue>
#include <QStringList>
#include <QVector>

#include <functional>
#include <mutex>

/*!
    A link without a device behind it: it gives prepared answers at once and records what was asked.

    Open from the start. A request gets the first queued answer for its operation, else what the
    operation's handler says, else the refusal 2 (unknown operation). Any thread may use it;
    handlers run on the thread that sends, with no lock held.
*/
class ScriptedLink : public Velmar::BizModel::DeviceLink
{
public:
    using Handler =
        std::function<Velmar::BizModel::LinkAnswer(const Velmar::BizModel::LinkRequest &request)>;

    static Velmar::BizModel::LinkAnswer accepted(const QCborMap &values = {});
    static Velmar::BizModel::LinkAnswer refused(quint16 ack, const QString &errorText);

    /*! The connection is closed behind such an answer, but for TimedOut and Unsendable. */
    static Velmar::BizModel::LinkAnswer failed(Velmar::BizModel::LinkAnswer::Outcome outcome);

    /*! \a answer is for one request, the next one that has no queued answer before it. */
    void queue(const QString &operation, const Velmar::BizModel::LinkAnswer &answer);

    /*! \a answer is for every request that finds no queued one. */
    void answer(const QString &operation, const Velmar::BizModel::LinkAnswer &answer);

    /*! \a handler answers every request that finds no queued answer. */
    void handle(const QString &operation, const Handler &handler);

    /*! Whether open() succeeds; it does from the start. */
    void setReachable(bool isReachable);

    QVector<Velmar::BizModel::LinkRequest>
    requests() const; //!< all that were sent while it was open
    QStringList operations() const; //!< of requests()
    QVector<QCborMap> arguments(const QString &operation) const; //!< of its requests, in order
    int openCount() const; //!< calls of open() while it was closed

    bool open(int timeout, QString &errorText) override;
    void close() override;
    bool isOpen() const override;
    Velmar::BizModel::LinkAnswer send(const Velmar::BizModel::LinkRequest &request) override;

    // Sent as "heartbeat.pause" with "milliseconds" and "heartbeat.resume", as over the network.
    void pauseHeartbeat(int milliseconds) override;
    void restartHeartbeat() override;

private:
    Handler takeHandler(const QString &operation);

    mutable std::mutex m_mutex; // guards all members
    bool m_isOpen = true;
    bool m_isReachable = true;
    int m_openCount = 0;
    quint32 m_lastLabel = 0;
    QVector<Velmar::BizModel::LinkRequest> m_requests;
    QHash<QString, QQueue<Velmar::BizModel::LinkAnswer>> m_queued;
    QHash<QString, Handler> m_handlers;
};

#endif // TESTS_SUPPORT_SCRIPTEDLINK_H
