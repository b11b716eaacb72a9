#ifndef VELMARHOST_HTTPGUARD_H
#define VELMARHOST_HTTPGUARD_H

#include "run/httpprogress.h"
#include "run/verdict.h"

#include <QFile>
#include <QObject>
#include <QPointer>

#include <chrono>
#include <vector>

class QNetworkAccessManager;
class QNetworkReply;
class UpgradeClientProxy;

namespace Velmar::Host {

/*! How long and how much a device may answer over HTTP. */
struct HttpLimits {
    std::chrono::milliseconds poll { 30000 }; //!< from the request to the end of its answer
    std::chrono::milliseconds uploadAtLeast { 120000 }; //!< the same, for the smallest file
    qint64 uploadBytesPerSecond = 131072; //!< the slowest line that uploads have time for
    qint64 bodySize = 65536; //!< bytes of an answer, inflated

    /*! Time for a file of \a size bytes and its answer. */
    std::chrono::milliseconds upload(qint64 size) const;
};

/*!
    Stands between the library's HTTP client and the device, for one upgrade.

    The library has no time-outs on this road, reads whatever a device sends, and takes any status
    below 400 for success. This object takes the answers in its place: they have to be in time, short
    and of status 200. Of a good upload the library hears that it is; of a good poll it gets the
    progress as judgedProgress() writes it. The first answer that is not good ends all: it is told by
    signalFault(), nothing more is asked, and the library hears nothing of it.

    An upload is an order to install as soon as the device has all of it. signalOrdering() comes before
    the end of one is given to Qt, and so before it can have left.

    Polls follow each other here: the next one goes out a second behind the answer to the last.

    For the thread of the client, which runs an event loop. One object at a time. From the first one on
    the client uses no proxy and follows no redirections. When an object goes, what is under way is
    ended and the library has its answers to itself again.
*/
class HttpGuard : public QObject
{
    Q_OBJECT

public:
    /*! \a uploadSize is that of the file in bytes. */
    HttpGuard(ProgressForm form, qint64 uploadSize, const HttpLimits &limits = {});
    ~HttpGuard() override;

    /*! Ends what is under way, and hears nothing more. */
    void stop();

    /*! Told by whoever hears from the library that it has read a progress. Where the form is not
        known, one that is not read is a fault. */
    void noteProgressRead();

    /*! Whether the device may have all of the upload. Up to the first byte it has nothing, also where
        signalOrdering() was emitted. */
    bool isOrdered() const;

    bool eventFilter(QObject *watched, QEvent *event) override;

protected:
    void customEvent(QEvent *event) override;

Q_SIGNALS:
    /*! Emitted once, and never behind stop(). \a text is a sentence, made printable. */
    void signalFault(Velmar::Host::VerdictCode code, const QString &text);

    /*! The device may have all of the upload once the receivers have returned. Emitted once. */
    void signalOrdering();

private:
    Q_DISABLE_COPY_MOVE(HttpGuard)

    enum class Request { Upload, Poll };

    void adopt(QNetworkReply *reply);
    void noteReading();
    void drop(QNetworkReply *reply);
    // False, with the fault told, if what has arrived so far is not good.
    bool checkStatus(const QNetworkReply &reply, Request request);
    bool checkSize(const QNetworkReply &reply);
    void judge(QNetworkReply *reply, Request request);
    void judgeUpload(const QByteArray &body);
    void judgePoll(const QByteArray &body);
    void tellNetworkError(Request request, const QString &cause);
    void tellOverdue(Request request);
    void tellFault(VerdictCode code, const QString &text);

    const ProgressForm m_form;
    const qint64 m_uploadSize;
    const HttpLimits m_limits;
    const QPointer<UpgradeClientProxy> m_client;
    std::vector<QPointer<QNetworkAccessManager>> m_managers;
    QPointer<QFile> m_file; // of the upload
    bool m_isEndNear = false; // of the file, for whoever reads it next
    bool m_hasSentSome = false; // of the upload
    bool m_hasSentAll = false;
    bool m_isSentAgain = false; // behind a connection that took all of it
    bool m_isProgressRead = false;
    bool m_isOver = false;
    bool m_wasOrdered = false; // when it was over
};

} // namespace Velmar::Host

#endif // VELMARHOST_HTTPGUARD_H
