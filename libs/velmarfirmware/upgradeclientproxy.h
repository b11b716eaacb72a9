#ifndef VELMARFIRMWARE_UPGRADECLIENTPROXY_H
#define VELMARFIRMWARE_UPGRADECLIENTPROXY_H

#include "velmarfirmware_export.h"

#include <QNetworkReply>
#include <QObject>
#include <QString>

#include <memory>

class QFile;
class QNetworkAccessManager;
class QSslError;
class QTimer;

/*!
    The HTTP client of an upgrade: uploads one file and polls the device for progress.

    One object for the process, on the thread that first asked for it; that thread runs an event
    loop. It carries bytes and reports network results as numbers, and knows nothing of what the
    bytes mean. It has no time-out and repeats nothing; Qt itself sends a request once more if the
    peer closes or resets the connection before it answers.
*/
class VELMARFIRMWARE_EXPORT UpgradeClientProxy : public QObject
{
    Q_OBJECT

public:
    /*! The one object, made at the first call. Not safe against a first call on two threads. */
    static UpgradeClientProxy *getInstance();

    /*! Deletes the object. At most once in a process, at its very end: getInstance() answers the
        stale pointer afterwards. Never from a slot or callback that one of its signals runs. */
    static void destoryInstance();

    ~UpgradeClientProxy() override;

    /*! Sets the host part of both addresses; the port is 8080. */
    void setDeviceIp(QString ip);

    /*! Starts the timer of the next poll, 1000 ms ahead. */
    void startPostReply();

    /*! Stops the timer. The answer to a poll that is under way still arrives. */
    void stopPostReply();

    /*!
        Begins to send the file at \a filePath, streamed, with the control text \a body.

        0 if the request has begun, -1 otherwise: the file is missing or cannot be opened, or there
        is no device address. The outcome arrives by signalReplyUploadFinished().
    */
    int uploadFiletoDevice(const QString &filePath, QByteArray body);

Q_SIGNALS:
    /*! \a bytesSent of \a bytesTotal bytes have gone out; neither is 0. */
    void signalOnUploadProgress(qint64 bytesSent, qint64 bytesTotal);

    /*! The upload has ended: 0 is success, any other value a QNetworkReply::NetworkError. A failed
        upload is reported twice. */
    void signalReplyUploadFinished(int nCode);

    /*! The polling has ended with a fault: a QNetworkReply::NetworkError, or -1. */
    void signalReplyUpdataFinished(int nCode);

    /*! The body of a poll's answer. */
    void signalReplyUpdataSchedule(QByteArray buffer);

public Q_SLOTS:
    /*! Sends one poll and starts the timer of the next one. */
    void slotRunReply();

protected:
    void createConnect();

private Q_SLOTS:
    void slotReplyFinished(QNetworkReply *pNetReply);
    void slotReplySslErrors(QNetworkReply *reply, const QList<QSslError> &errors);
    void slotUpLoadReplyError(QNetworkReply::NetworkError);
    void slotOnUploadProgress(qint64, qint64);
    void slotScheduleReplyFinished(QNetworkReply *);
    void slotScheduleReplySslErrors(QNetworkReply *, const QList<QSslError> &);
    void slotGetReplyError(
        QNetworkReply::NetworkError); // connected by nothing; part of the meta-object

private:
    explicit UpgradeClientProxy(QObject *parent);

    static UpgradeClientProxy *m_pClientProxy;

    int m_port = 8080; // for debuggers: both addresses hold the port literally
    QNetworkAccessManager *m_pUploadManager;
    QNetworkAccessManager *m_pScheduleManager;
    QNetworkReply *m_pUploadReply = nullptr; // of the latest upload
    QString m_deviceIp;
    QTimer *m_pScheduleTimer; // single-shot
    std::shared_ptr<QFile> m_pUploadFile;
};

#endif // VELMARFIRMWARE_UPGRADECLIENTPROXY_H
