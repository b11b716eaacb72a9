#ifndef VELMARHOST_WORKERRUN_H
#define VELMARHOST_WORKERRUN_H

#include "device/guardedlink.h"
#include "package/packagelisting.h"
#include "package/plan.h"
#include "package/selection.h"
#include "run/devicerun.h"
#include "worker/workermain.h"
#include "worker/workermessage.h"
#include "worker/workerorder.h"

#include <velmarbizmodel/catalogue.h>

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>
#include <mutex>
#include <optional>

namespace Velmar::Host {

class DeviceSession;
class ImageBuild;
class PackageParse;
class WorkerVoice;

/*!
    Carries out one order in a worker process, and ends the process with it.

    Everything is called in the main thread. Threads of the upgrade library that are still at
    something are left to the end of the process, and nothing that they use is destroyed before.
*/
class WorkerRun : public QObject
{
    Q_OBJECT

public:
    /*! \a voice has to outlive this object. */
    WorkerRun(WorkerOrder order, WorkerVoice &voice);
    ~WorkerRun() override;

    void begin();

    /*! What the host says behind its order. */
    void take(WorkerCommand command);

    /*! The host is gone: ends if the device has not been changed, and goes on otherwise. */
    void loseHost();

private:
    Q_DISABLE_COPY_MOVE(WorkerRun)

    /*! How far the run is. */
    enum class Step {
        Planning,
        Waiting, //!< for the word to go on
        Preparing, //!< an image for the HTTP road
        Running,
    };

    // Each step tells its fault itself, and the process ends with it.
    void useSettings();
    void plan();
    void planForModel();
    void openSession();
    void parse(std::optional<quint16> modelId);
    void choose(BizModel::Device &device);
    void askForService(BizModel::Device &device);
    void makePlanFor(BizModel::Device &device);
    void tellPlan();
    void go();
    void goByHttp();
    void watch();
    void follow(DeviceRun &run);

    void stop();
    bool stopInTime();
    void noteUploadOrder();
    LinkTraffic traffic() const;
    LinkTraffic tellNewTraffic();
    void tellTraffic();
    bool isPreparing();
    void checkRoom();
    void tellPhase(Phase phase);
    void announceOrder(bool isRestart);
    QString imageFault() const;
    void slotUploaded(qint64 sentBytes, qint64 totalBytes);
    void tellSending(int percent);
    void slotStage(DeviceRun::Stage stage);
    void slotEnded(DeviceRun::Outcome outcome, const QString &text);
    [[noreturn]] void refuseForTime();
    [[noreturn]] void refuse(VerdictCode code, const QString &text);
    [[noreturn]] void end(bool result, const QString &text);
    [[noreturn]] void leave(const WorkerMessage &last);

    const WorkerOrder m_order;
    WorkerVoice &m_voice;
    Step m_step = Step::Planning;

    BizModel::Catalogue m_catalogue = BizModel::Catalogue::builtin(); // the one in use
    std::shared_ptr<GuardedLink> m_link; // from openSession() on
    std::unique_ptr<DeviceSession> m_session;
    std::unique_ptr<PackageParse> m_parse;
    PackageListing m_listing;
    Selection m_selection;
    bool m_isOlderService = false; // of the HTTP road
    Plan m_plan; // not changed from go() on, as the library's thread reads it then
    std::unique_ptr<ImageBuild> m_image;
    std::unique_ptr<DeviceRun> m_run;
    QElapsedTimer m_runTime;

    LinkTraffic m_upload; // what the HTTP road adds to the traffic of the link
    int m_uploadPercent = -1; // as told last
    QTimer m_trafficTimer;
    QElapsedTimer m_idle; // since the device installs nothing, though it should
    std::mutex m_mutex; // guards what follows
    LinkTraffic m_toldTraffic;
    std::optional<Phase> m_phase; // as told last
};

} // namespace Velmar::Host

#endif // VELMARHOST_WORKERRUN_H
