#include "upgradeclientproxy.h"

#include <QDebug>
#include <QFile>
#include <QHttpMultiPart>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkRequest>
#include <QPointer>
#include <QSslError>
#include <QTimer>

namespace {

constexpr int PollIntervalMs = 1000;
constexpr char Boundary[] = "----weasdashDsdesd";

// Devices set cookies that they never look at; none is kept or sent back.
class NoCookies : public QNetworkCookieJar
{
public:
    using QNetworkCookieJar::QNetworkCookieJar;

    QList<QNetworkCookie> cookiesForUrl(const QUrl & /*url*/) const override { return {}; }
    bool setCookiesFromUrl(const QList<QNetworkCookie> & /*cookies*/, const QUrl & /*url*/) override
    {
        return false;
    }
};

QNetworkAccessManager *newManager(QObject *parent)
{
    auto *manager = new QNetworkAccessManager(parent);
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    // The interface sets it right after construction.
    manager->setNetworkAccessible(QNetworkAccessManager::Accessible);
    QT_WARNING_POP
    manager->setCookieJar(new NoCookies(manager));
    return manager;
}

/*!
    A file with two owners: the pointer, and the chain of reply, multi-part and file.

    Whichever goes first ends it. A reply that is still sending keeps its file until it has ended.
*/
std::shared_ptr<QFile> sharedUploadFile(const QString &filePath)
{
    auto *const file = new QFile(filePath);
    return std::shared_ptr<QFile>(file, [guard = QPointer<QFile>(file)](QFile *) {
        if (!guard)
            return;
        const QObject *multiPart = guard->parent();
        const auto *reply =
            multiPart ? qobject_cast<const QNetworkReply *>(multiPart->parent()) : nullptr;
        if (reply && reply->isRunning())
            QObject::connect(reply, &QNetworkReply::finished, guard, &QObject::deleteLater);
        else
            delete guard;
    });
}

QHttpPart filePart(QFile *file)
{
    QHttpPart part;
    // The name is fixed, whatever the file is called: devices look for it.
    part.setHeader(QNetworkRequest::ContentDispositionHeader,
                   QStringLiteral("form-data; name=\"file\"; filename=\"file.jpg\""));
    part.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("image/jpeg"));
    // Takes the place of the header above; it is this one that goes out.
    part.setRawHeader("Content-Type", "application/octet-stream");
    part.setBodyDevice(file);
    return part;
}

QHttpPart textPart(const QByteArray &body)
{
    QHttpPart part;
    part.setHeader(QNetworkRequest::ContentDispositionHeader,
                   QStringLiteral("form-data; name=\"text\"; filename=\"text.text\""));
    part.setRawHeader("Content-Type", "multipart/form-data"); // although it holds JSON
    part.setBody(body);
    return part;
}

} // namespace

UpgradeClientProxy *UpgradeClientProxy::m_pClientProxy = nullptr;

UpgradeClientProxy *UpgradeClientProxy::getInstance()
{
    if (!m_pClientProxy)
        m_pClientProxy = new UpgradeClientProxy(nullptr);
    return m_pClientProxy;
}

void UpgradeClientProxy::destoryInstance()
{
    // The pointer keeps its value: a second object would not be the one that drivers know.
    if (m_pClientProxy)
        delete m_pClientProxy;
}

UpgradeClientProxy::UpgradeClientProxy(QObject *parent)
    : QObject(parent)
    , m_pUploadManager(newManager(this))
    , m_pScheduleManager(newManager(this))
    , m_pScheduleTimer(new QTimer)
{
    m_pScheduleTimer->setSingleShot(true);
    m_pScheduleTimer->setInterval(PollIntervalMs);
    createConnect();
}

UpgradeClientProxy::~UpgradeClientProxy()
{
    // With all replies, and the multi-parts and files below them.
    delete m_pUploadManager;
    delete m_pScheduleManager;
    m_pScheduleTimer->stop();
    delete m_pScheduleTimer;
}

void UpgradeClientProxy::createConnect()
{
    qRegisterMetaType<QNetworkReply *>(); // for the queued connections
    connect(m_pUploadManager, &QNetworkAccessManager::finished, this,
            &UpgradeClientProxy::slotReplyFinished, Qt::QueuedConnection);
    connect(m_pUploadManager, &QNetworkAccessManager::sslErrors, this,
            &UpgradeClientProxy::slotReplySslErrors);
    connect(m_pScheduleManager, &QNetworkAccessManager::finished, this,
            &UpgradeClientProxy::slotScheduleReplyFinished, Qt::QueuedConnection);
    connect(m_pScheduleManager, &QNetworkAccessManager::sslErrors, this,
            &UpgradeClientProxy::slotScheduleReplySslErrors);
    connect(m_pScheduleTimer, &QTimer::timeout, this, &UpgradeClientProxy::slotRunReply);
}

void UpgradeClientProxy::setDeviceIp(QString ip)
{
    m_deviceIp = std::move(ip);
}

void UpgradeClientProxy::startPostReply()
{
    m_pScheduleTimer->start();
}

void UpgradeClientProxy::stopPostReply()
{
    m_pScheduleTimer->stop();
}

int UpgradeClientProxy::uploadFiletoDevice(const QString &filePath, QByteArray body)
{
    m_pUploadFile = sharedUploadFile(filePath);
    if (!m_pUploadFile->exists()) {
        qWarning().noquote().nospace() << filePath << " is not exits!";
        return -1;
    }
    if (!m_pUploadFile->open(QIODevice::ReadOnly)) {
        qWarning().noquote().nospace() << filePath << "file open error!";
        return -1;
    }
    auto *const multiPart = new QHttpMultiPart(QHttpMultiPart::FormDataType);
    m_pUploadFile->setParent(multiPart);
    multiPart->append(filePart(m_pUploadFile.get()));
    multiPart->append(textPart(body));
    multiPart->setBoundary(QByteArray(Boundary));

    // Looked at only now: the file has been opened and stays open until the next upload.
    if (m_deviceIp.isEmpty()) {
        qWarning() << "the device ip is null. upgrade failed.";
        multiPart->setParent(this); // there is no reply to own it, so it goes with the proxy
        return -1;
    }
    QNetworkRequest request(QUrl(QStringLiteral("http://%1:8080/uploadUpgrade").arg(m_deviceIp)));
    // Devices want no blank behind the semicolon.
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QByteArray("multipart/form-data;boundary=") + Boundary);
    if (!m_pUploadManager) {
        multiPart->setParent(this); // as above
        return -1;
    }
    m_pUploadReply = m_pUploadManager->post(request, multiPart);
    qDebug().noquote().nospace() << "VelmarCmd post upgrade file to " << m_deviceIp;
    multiPart->setParent(m_pUploadReply);
    // `error` is the signal that the interface names; by name because Qt 5.15 deprecates the
    // member.
    connect(m_pUploadReply, SIGNAL(error(QNetworkReply::NetworkError)), this,
            SLOT(slotUpLoadReplyError(QNetworkReply::NetworkError)), Qt::UniqueConnection);
    connect(m_pUploadReply, &QNetworkReply::uploadProgress, this,
            &UpgradeClientProxy::slotOnUploadProgress, Qt::UniqueConnection);
    return 0;
}

void UpgradeClientProxy::slotOnUploadProgress(qint64 bytesSent, qint64 bytesTotal)
{
    if (bytesSent != 0 && bytesTotal != 0)
        Q_EMIT signalOnUploadProgress(bytesSent, bytesTotal);
}

void UpgradeClientProxy::slotUpLoadReplyError(QNetworkReply::NetworkError error)
{
    Q_EMIT signalReplyUploadFinished(error);
}

void UpgradeClientProxy::slotReplyFinished(QNetworkReply *pNetReply)
{
    if (!pNetReply)
        return;
    const QByteArray data = pNetReply->readAll();
    qDebug() << pNetReply << data;
    // The first reading has taken all there was, so this one is empty and "ok" never matches: a
    // device's "ok" does not turn a network fault into success.
    const QString text = QString::fromUtf8(pNetReply->readAll());
    const int code = text == QLatin1String("ok") ? 0 : pNetReply->error();
    Q_EMIT signalReplyUploadFinished(code);
}

void UpgradeClientProxy::slotReplySslErrors(QNetworkReply *reply, const QList<QSslError> &errors)
{
    if (!reply)
        return;
    qDebug() << reply << errors;
    if (reply->error() != QNetworkReply::NoError)
        Q_EMIT signalReplyUploadFinished(reply->error());
}

void UpgradeClientProxy::slotRunReply()
{
    if (m_deviceIp.isEmpty()) {
        qWarning() << "the device ip is null. upgrade failed.";
        Q_EMIT signalReplyUpdataFinished(-1);
        return;
    }
    QNetworkRequest request(QUrl(QStringLiteral("http://%1:8080/getUpgradeRate").arg(m_deviceIp)));
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QByteArrayLiteral("application/x-www-form-urlencoded"));
    if (!m_pScheduleManager)
        return;
    // Armed before the poll goes out: polls follow each other whatever the time that answers take.
    startPostReply();
    m_pScheduleManager->get(request);
    qDebug().noquote().nospace() << "VelmarCmd get upgrade process from " << m_deviceIp;
}

void UpgradeClientProxy::slotScheduleReplyFinished(QNetworkReply *reply)
{
    if (!reply) {
        qWarning() << "process reply is null.";
        stopPostReply();
        Q_EMIT signalReplyUpdataFinished(-1);
        return;
    }
    if (reply->error() != QNetworkReply::NoError) {
        qWarning() << reply->error();
        stopPostReply();
        Q_EMIT signalReplyUpdataFinished(reply->error());
        reply->deleteLater();
        return;
    }
    Q_EMIT signalReplyUpdataSchedule(reply->readAll());
    reply->deleteLater();
}

void UpgradeClientProxy::slotScheduleReplySslErrors(QNetworkReply *reply,
                                                    const QList<QSslError> & /*errors*/)
{
    if (!reply) {
        qWarning() << "process reply is null.";
        stopPostReply();
        Q_EMIT signalReplyUpdataFinished(-1);
        return;
    }
    if (reply->error() == QNetworkReply::NoError)
        return;
    stopPostReply();
    qWarning() << reply << reply->error();
    Q_EMIT signalReplyUpdataFinished(reply->error());
}

void UpgradeClientProxy::slotGetReplyError(QNetworkReply::NetworkError error)
{
    if (error == QNetworkReply::NoError)
        return;
    stopPostReply();
    Q_EMIT signalReplyUpdataFinished(error);
}
