#include "run/httpguard.h"

#include "show/printable.h"

#include "upgradeclientproxy.h"

#include <QChildEvent>
#include <QCoreApplication>
#include <QDebug>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTextCodec>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace Velmar::Host {

namespace {

constexpr int StatusOk = 200;
constexpr int FirstErrorStatus = 400;

// Qt takes 16 KiB of an upload at a time, each by an event of the reply.
constexpr qint64 MostReadAtOnce = 65536;

/*! Tells the guard that a request has begun; in front of all that the request may lead to. */
class ReplyBegun : public QEvent
{
public:
    explicit ReplyBegun(QObject *reply)
        : QEvent(QEvent::User)
        , m_reply(reply)
    {
    }

    QNetworkReply *reply() const { return qobject_cast<QNetworkReply *>(m_reply.data()); }

private:
    const QPointer<QObject> m_reply; // under construction when the event is made
};

/*!
    No proxy, and yet a buffered connection.

    A connection that Qt knows to have no proxy has no buffer of its own either: all that has arrived
    is read and inflated in one go, a thousand times as much as there may be in the system's buffers.
    With a proxy that is still to be looked up, these are 64 KiB at a time.
*/
class DirectConnections : public QNetworkProxyFactory
{
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override
    {
        // As the connection will look it up.
        const auto found = proxyForQuery({ query.peerHostName(), query.peerPort() });
        const bool isDirect =
            std::all_of(found.begin(), found.end(), [](const QNetworkProxy &proxy) {
                return proxy.type() == QNetworkProxy::NoProxy;
            });
        return { QNetworkProxy(isDirect ? QNetworkProxy::DefaultProxy : QNetworkProxy::NoProxy) };
    }
};

QString seconds(std::chrono::milliseconds time)
{
    return QString::number(double(time.count()) / 1000);
}

QString statusText(const QNetworkReply &reply, int status)
{
    const QString reason =
        reply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString().simplified();
    return printable(QStringLiteral("%1 %2").arg(status).arg(reason).trimmed(), 80);
}

bool isProtocolFault(QNetworkReply::NetworkError error)
{
    return error == QNetworkReply::ProtocolUnknownError
        || error == QNetworkReply::ProtocolInvalidOperationError
        || error == QNetworkReply::ProtocolFailure;
}

/*! Bytes of a body of which that is known, else 0. */
qint64 plainLength(const QNetworkReply &reply)
{
    if (reply.hasRawHeader("Content-Encoding"))
        return 0;
    return reply.header(QNetworkRequest::ContentLengthHeader).toLongLong();
}

bool isUtf8(const QByteArray &bytes)
{
    QTextCodec::ConverterState state;
    QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0;
}

} // namespace

std::chrono::milliseconds HttpLimits::upload(qint64 size) const
{
    return uploadAtLeast + std::chrono::milliseconds(size * 1000 / uploadBytesPerSecond);
}

HttpGuard::HttpGuard(ProgressForm form, qint64 uploadSize, const HttpLimits &limits)
    : m_form(form)
    , m_uploadSize(uploadSize)
    , m_limits(limits)
    , m_client(UpgradeClientProxy::getInstance())
{
    const auto managers = m_client->findChildren<QNetworkAccessManager *>();
    for (QNetworkAccessManager *manager : managers) {
        disconnect(manager, &QNetworkAccessManager::finished, m_client, nullptr);
        // A proxy for the web knows no devices.
        manager->setProxyFactory(new DirectConnections); // the manager's from now on
        manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
        manager->installEventFilter(this);
        m_managers.emplace_back(manager);
    }
}

HttpGuard::~HttpGuard()
{
    stop();
    if (!m_client)
        return;
    for (const auto &manager : m_managers) {
        if (!manager)
            continue;
        // By name, since the client's slots are its own business.
        connect(manager, &QNetworkAccessManager::finished, m_client,
                [client = m_client.data()](QNetworkReply *reply) {
                    const char *slot = reply->operation() == QNetworkAccessManager::PostOperation
                        ? "slotReplyFinished"
                        : "slotScheduleReplyFinished";
                    QMetaObject::invokeMethod(client, slot, Qt::QueuedConnection,
                                              Q_ARG(QNetworkReply *, reply));
                });
    }
}

void HttpGuard::stop()
{
    m_wasOrdered = isOrdered(); // the file goes with its reply
    m_isOver = true;
    if (!m_client)
        return;
    m_client->stopPostReply();
    for (const auto &manager : m_managers) {
        if (!manager)
            continue;
        const auto replies = manager->findChildren<QNetworkReply *>();
        for (QNetworkReply *reply : replies)
            drop(reply);
    }
}

void HttpGuard::noteProgressRead()
{
    m_isProgressRead = true;
}

bool HttpGuard::eventFilter(QObject *watched, QEvent *event)
{
    const bool isOfManager = qobject_cast<QNetworkAccessManager *>(watched) != nullptr;
    if (isOfManager && event->type() == QEvent::ChildAdded && !m_isOver)
        QCoreApplication::postEvent(this,
                                    new ReplyBegun(static_cast<QChildEvent *>(event)->child()),
                                    Qt::HighEventPriority);
    else if (!isOfManager && event->type() == QEvent::MetaCall)
        noteReading();
    return QObject::eventFilter(watched, event);
}

// The control text behind the file is the last that goes out.
void HttpGuard::noteReading()
{
    if (m_isEndNear || m_isOver || (m_file && m_file->size() - m_file->pos() > MostReadAtOnce))
        return;
    m_isEndNear = true;
    Q_EMIT signalOrdering();
}

bool HttpGuard::isOrdered() const
{
    if (m_isOver)
        return m_wasOrdered;
    return m_hasSentAll || (m_isEndNear && (!m_file || m_file->pos() > 0));
}

void HttpGuard::customEvent(QEvent *event)
{
    QNetworkReply *reply = static_cast<ReplyBegun *>(event)->reply();
    if (reply && !m_isOver)
        adopt(reply);
}

void HttpGuard::adopt(QNetworkReply *reply)
{
    const bool isUpload = reply->operation() == QNetworkAccessManager::PostOperation;
    const Request request = isUpload ? Request::Upload : Request::Poll;
    // Qt reads on no sooner than this much has been taken, which nobody does before the end.
    reply->setReadBufferSize(2 * m_limits.bodySize);
    if (isUpload) {
        m_file = reply->findChild<QFile *>();
        reply->installEventFilter(this);
    }
    // The library would tell an upload's end by this one.
    disconnect(reply, SIGNAL(error(QNetworkReply::NetworkError)), m_client, nullptr);
    connect(reply, &QNetworkReply::uploadProgress, this, [this](qint64 sent, qint64 total) {
        if (sent <= 0 || total <= 0) // an upload that ends without an answer tells this, too
            return;
        m_hasSentSome = true;
        // Qt sends a request once more if the connection ends without an answer.
        m_isSentAgain = m_hasSentAll;
        m_hasSentAll = m_hasSentAll || sent >= total;
    });
    connect(reply, &QNetworkReply::metaDataChanged, this,
            [this, reply, request] { checkStatus(*reply, request); });
    connect(reply, &QIODevice::readyRead, this, [this, reply] { checkSize(*reply); });
    // Not from inside the reply's own signal, as the client does it.
    connect(
        reply, &QNetworkReply::finished, this,
        [this, finished = QPointer<QNetworkReply>(reply), request] {
            if (finished)
                judge(finished, request);
        },
        Qt::QueuedConnection);

    auto *overdue = new QTimer(reply);
    overdue->setSingleShot(true);
    connect(overdue, &QTimer::timeout, this, [this, reply, request] {
        if (reply->isRunning()) // else it is judged next, or was
            tellOverdue(request);
    });
    overdue->start(isUpload ? m_limits.upload(m_uploadSize) : m_limits.poll);
    // The client has armed its timer already; a slow device would have more and more polls to answer.
    if (!isUpload)
        m_client->stopPostReply();
}

void HttpGuard::drop(QNetworkReply *reply)
{
    reply->disconnect(this);
    reply->disconnect(m_client);
    reply->abort();
    reply->deleteLater();
}

bool HttpGuard::checkStatus(const QNetworkReply &reply, Request request)
{
    const QVariant attribute = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const int status = attribute.toInt();
    if (!attribute.isValid() || status == StatusOk)
        return true;
    const QString told = statusText(reply, status);
    if (request == Request::Poll)
        tellFault(
            VerdictCode::BadAnswer,
            QStringLiteral("The device answers the question for its progress with %1").arg(told));
    else if (status >= FirstErrorStatus && m_isSentAgain) // it may be installing the first one
        tellFault(VerdictCode::DeviceLost,
                  QStringLiteral("The device refuses the file, which was sent to it twice: %1")
                      .arg(told));
    else if (status >= FirstErrorStatus)
        tellFault(VerdictCode::SendFailed,
                  QStringLiteral("The device refuses the file: %1").arg(told));
    else
        tellFault(VerdictCode::BadAnswer,
                  QStringLiteral("The device answers the file with %1").arg(told));
    return false;
}

bool HttpGuard::checkSize(const QNetworkReply &reply)
{
    if (reply.bytesAvailable() <= m_limits.bodySize)
        return true;
    tellFault(VerdictCode::BadAnswer,
              QStringLiteral("The device answers with more than %1 bytes").arg(m_limits.bodySize));
    return false;
}

void HttpGuard::judge(QNetworkReply *reply, Request request)
{
    if (m_isOver || !checkStatus(*reply, request) || !checkSize(*reply))
        return;
    if (isProtocolFault(reply->error())) {
        tellFault(VerdictCode::BadAnswer,
                  QStringLiteral("The device answers with what is no HTTP: %1")
                      .arg(printable(reply->errorString())));
        return;
    }
    if (reply->error() != QNetworkReply::NoError) {
        tellNetworkError(request, printable(reply->errorString()));
        return;
    }
    const QByteArray body = reply->readAll();
    // With "Connection: close" the end of a connection is for Qt that of the answer, too.
    if (body.size() < plainLength(*reply)) {
        tellNetworkError(request, QStringLiteral("Connection closed"));
        return;
    }
    drop(reply);
    if (request == Request::Upload)
        judgeUpload(body);
    else
        judgePoll(body);
}

void HttpGuard::judgeUpload(const QByteArray &body)
{
    if (!isUtf8(body)) {
        tellFault(VerdictCode::BadAnswer,
                  QStringLiteral("The device answers the file with bytes that are no text"));
        return;
    }
    // What a device says besides its status is its own affair; its progress shows what became of it.
    const QString text = QString::fromUtf8(body);
    if (text.trimmed() != QLatin1String("ok"))
        qWarning().noquote()
            << QStringLiteral("The device answers the file with \"%1\"").arg(printable(text));
    Q_EMIT m_client->signalReplyUploadFinished(0);
}

void HttpGuard::judgePoll(const QByteArray &body)
{
    QString errorText;
    const auto progress = judgedProgress(body, m_form, errorText);
    if (!progress) {
        tellFault(VerdictCode::BadAnswer,
                  QStringLiteral("The device tells its progress wrongly: it %1").arg(errorText));
        return;
    }
    // Before the library hears of it: at an end it stops this timer.
    m_client->startPostReply();
    m_isProgressRead = false;
    const QPointer<HttpGuard> self(this);
    Q_EMIT m_client->signalReplyUpdataSchedule(*progress);
    if (self && m_form == ProgressForm::Either && !m_isProgressRead)
        tellFault(VerdictCode::BadAnswer,
                  QStringLiteral("The device tells its progress wrongly: it is in the form of the "
                                 "other generation"));
}

void HttpGuard::tellNetworkError(Request request, const QString &cause)
{
    if (request == Request::Poll)
        tellFault(
            VerdictCode::DeviceLost,
            QStringLiteral("The device cannot be asked for its progress any more: %1").arg(cause));
    else if (isOrdered())
        tellFault(VerdictCode::DeviceLost,
                  QStringLiteral(
                      "The connection has ended before the device said whether it has the file: %1")
                      .arg(cause));
    else if (m_hasSentSome)
        tellFault(
            VerdictCode::SendFailed,
            QStringLiteral("The connection has ended while the file was sent: %1").arg(cause));
    else
        tellFault(VerdictCode::Unreachable,
                  QStringLiteral("The device's HTTP service cannot be reached: %1").arg(cause));
}

void HttpGuard::tellOverdue(Request request)
{
    if (request == Request::Poll)
        tellFault(VerdictCode::DeviceLost,
                  QStringLiteral("The device has not told its progress within %1 s")
                      .arg(seconds(m_limits.poll)));
    else if (isOrdered())
        tellFault(VerdictCode::DeviceLost,
                  QStringLiteral("The device has not said within %1 s whether it has the file")
                      .arg(seconds(m_limits.upload(m_uploadSize))));
    else
        tellFault(VerdictCode::SendFailed,
                  QStringLiteral("The file could not be sent within %1 s")
                      .arg(seconds(m_limits.upload(m_uploadSize))));
}

void HttpGuard::tellFault(VerdictCode code, const QString &text)
{
    if (m_isOver)
        return;
    stop();
    Q_EMIT signalFault(code, text);
}

} // namespace Velmar::Host
