#ifndef VELMARHOST_UPGRADERUN_H
#define VELMARHOST_UPGRADERUN_H

#include "records/devicerecords.h"
#include "records/upgraderecords.h"

#include <QObject>
#include <QTimer>
#include <QVector>

#include <chrono>
#include <memory>
#include <vector>

namespace Velmar::BizModel {
class Device;
}

namespace Velmar::Firmware {
class UpgradeProcess;
}

namespace Velmar::Host {

class WorkerWatch;

/*! All that one upgrade is given. To watch an installation, the device is enough. */
struct UpgradeOrder {
    std::weak_ptr<BizModel::Device> device;
    std::vector<ProtoModel::Auxiliary::s_CardInfoParts> parts;
    QVector<Firmware::UpgradeCfg> units;
    QVector<Firmware::DataFilePath> dataFilePaths;
    QString packagePath;
};

/*!
    One upgrade over the native protocol, with an overall time limit, which the library lacks.

    An object runs once. All functions and signals are for one thread, which runs an event loop.
*/
class UpgradeRun : public QObject {
    Q_OBJECT

public:
    enum class Stage {
        Idle,
        Preparing, //!< planning and image building; the device may be asked, it is told nothing
        Sending,
        Installing,
        Ended,
    };
    Q_ENUM(Stage)

    enum class Outcome {
        Succeeded,
        Failed,
        TimedOut, //!< the device and the worker may still be at work
    };
    Q_ENUM(Outcome)

    explicit UpgradeRun(UpgradeOrder order);

    /*! Of a run whose worker did not end, everything that the worker uses stays allocated. */
    ~UpgradeRun() override;

    /*! Time between two looks at the progress that the library has read; 200 ms unless set. */
    void setProgressInterval(std::chrono::milliseconds interval);

    /*! Begins. Any \a type but FullUpgrade only watches; it, too, restarts the device at its end.
     */
    void start(Firmware::Enum::UpgradeProcessType type, std::chrono::milliseconds timeLimit);

    Stage stage() const;

    /*! True if the run was given up; the process should end without waiting for its threads. */
    bool isWorkerLeftBehind() const;

Q_SIGNALS:
    void signalStageChanged(Velmar::Host::UpgradeRun::Stage stage);

    /*! A text of the library for the status bar, but for those of signalSending(); never empty. */
    void signalStatusText(const QString &text);

    /*! \a percent of the image has been sent. \a text is the library's own. */
    void signalSending(int percent, const QString &text);

    /*! The device's report on the installation has changed. */
    void signalInstalling(const Velmar::ProtoModel::Auxiliary::s_UpgradePercent &progress);

    /*! The run has ended and its worker too, or the time limit has passed; emitted once. \a text
        is the library's last word; for TimedOut it is empty. */
    void signalEnded(Velmar::Host::UpgradeRun::Outcome outcome, const QString &text);

private:
    Q_DISABLE_COPY_MOVE(UpgradeRun)

    void enter(Stage stage);
    void slotStatusBar(const QString &text);
    void slotInstallingStarted();
    void slotFinished(bool result, const QString &text);
    void slotTimeLimit();
    void reportProgress();

    std::unique_ptr<Firmware::UpgradeProcess> m_process;
    std::shared_ptr<WorkerWatch> m_worker;
    QTimer m_timeLimit;
    QTimer m_progressTimer;
    Stage m_stage = Stage::Idle;
    bool m_isWorkerLeftBehind = false;
    ProtoModel::Auxiliary::s_UpgradePercent m_reported; // as signalInstalling() told it last
};

} // namespace Velmar::Host

#endif // VELMARHOST_UPGRADERUN_H
