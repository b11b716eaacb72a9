#ifndef VELMARHOST_HTTPRUN_H
#define VELMARHOST_HTTPRUN_H

#include "run/devicerun.h"
#include "run/httpguard.h"

#include <optional>
#include <vector>

namespace Velmar::BizModel {
class DeviceLink;
}

namespace Velmar::Firmware {
class UpgradeFileOfHTTP;
}

namespace Velmar::Host {

/*! All that one upgrade over HTTP is given. */
struct HttpOrder {
    bool isCompatible = false; //!< let the device's version decide on the generation of its service
    std::shared_ptr<BizModel::DeviceLink> link; //!< for the question for the version
    quint16 modelId = 0;
    std::vector<ProtoModel::Auxiliary::s_CardInfoParts> parts;
    QString filePath; //!< what is uploaded
    QString host; //!< name or address of the service, an IPv6 one without brackets
    HttpLimits limits {};
};

/*!
    One upgrade over the device's HTTP service.

    The library has no time-outs on this road and can tell an end more than once; this run ends
    once, and also if the device is silent for too long or HttpGuard finds fault with an answer. One
    run at a time: the library's HTTP client is there once in a process. Texts of its message boxes
    come as signalStatusText(), too.
*/
class HttpRun : public DeviceRun
{
    Q_OBJECT

public:
    explicit HttpRun(HttpOrder order);
    ~HttpRun() override;

    /*! Begins; blocks for the question for the version, if that is asked. A device from which
        nothing is heard for \a stallLimit ends the run as the time limit does. */
    void start(std::chrono::milliseconds timeLimit, std::chrono::milliseconds stallLimit);

    /*! Why the run has failed, if it is not the library that said so. */
    std::optional<VerdictCode> fault() const { return m_fault; }

    /*! Bytes of the upload that have been sent so far, control text and all. */
    qint64 sentBytes() const { return m_sentBytes; }

    /*! Whether the device may have all of the upload, and install. */
    bool isOrdered() const;

Q_SIGNALS:
    /*! As HttpGuard::signalOrdering(). */
    void signalOrdering();

private:
    Q_DISABLE_COPY_MOVE(HttpRun)

    void listen();
    void slotStatusBar(int type, const QString &text);
    void slotMessageBox(const QString &text);
    void slotProgress(const ProtoModel::Auxiliary::s_UpgradePercent &progress);
    void slotFinished();
    void noteSignOfLife();
    void failLater(const QString &text);

    const HttpOrder m_order;
    std::unique_ptr<Firmware::UpgradeFileOfHTTP> m_upgrade;
    std::unique_ptr<HttpGuard> m_guard;
    QTimer m_silence;
    std::optional<VerdictCode> m_fault;
    qint64 m_sentBytes = 0;
    QString m_status; // as the library showed it last
    bool m_isStatusGood = false;
    QString m_box; // as the library showed it last
    bool m_hasFinished = false;
};

} // namespace Velmar::Host

#endif // VELMARHOST_HTTPRUN_H
