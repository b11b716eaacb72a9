#include "worker/workerrun.h"

#include "device/devicesession.h"
#include "device/modelnames.h"
#include "device/servicegeneration.h"
#include "package/imagecheck.h"
#include "package/offer.h"
#include "package/olderservicechoice.h"
#include "package/packageparse.h"
#include "package/planner.h"
#include "package/registerchoice.h"
#include "run/httprun.h"
#include "run/imagebuild.h"
#include "run/registerrun.h"
#include "run/upgraderun.h"
#include "run/workroom.h"
#include "worker/workervoice.h"

#include "upgradeclientproxy.h"

#include <tzcryptrc2/cryptkey.h>
#include <velmarbizmodel/device.h>
#include <velmarbizmodel/deviceconfigmanager.h>
#include <velmarmodelcontrol/auxiliary.h>
#include <velmarssproxy/socketlink.h>

#include <QEventLoop>
#include <QThread>

#include <functional>
#include <utility>

#include <unistd.h>

namespace Velmar::Host {

namespace {

using ProtoModel::Auxiliary::s_UpgradePercent;

// What a device reports of its installation.
constexpr int Running = 1;
constexpr int Installed = 2;
constexpr int InstallationFailed = 3;

constexpr std::chrono::milliseconds TrafficInterval { 200 };
constexpr std::chrono::seconds IdleLimit { 10 }; // several looks at the progress

// A host that does not read, as it was stopped, does not keep the device waiting for longer.
constexpr std::chrono::seconds TellLimit { 2 };

/*! Runs \a work on a thread of its own, and goes on with events until that is done. */
void awaitOnThread(const std::function<void()> &work)
{
    const std::unique_ptr<QThread> thread(QThread::create(work));
    QEventLoop loop;
    QObject::connect(thread.get(), &QThread::finished, &loop, &QEventLoop::quit);
    thread->start();
    loop.exec();
    thread->wait();
}

} // namespace

WorkerRun::WorkerRun(WorkerOrder order, WorkerVoice &voice)
    : m_order(std::move(order))
    , m_voice(voice)
{
    m_trafficTimer.setInterval(TrafficInterval);
    connect(&m_trafficTimer, &QTimer::timeout, this, &WorkerRun::tellTraffic);
}

WorkerRun::~WorkerRun() = default;

void WorkerRun::begin()
{
    useSettings();
    if (m_order.mode == WorkerMode::Watch)
        watch();
    else
        plan();
}

void WorkerRun::take(WorkerCommand command)
{
    switch (command) {
    case WorkerCommand::Go:
        if (m_step == Step::Waiting)
            go();
        break;
    case WorkerCommand::Stop:
        stop();
        break;
    }
}

void WorkerRun::loseHost()
{
    if (m_order.mode == WorkerMode::Watch) {
        // A device that is installing is restarted at the end, whoever ordered it.
        if (!m_run)
            leave(EndTell { false, QString() });
        return;
    }
    if (stopInTime())
        leave(EndTell { false, QString() });
}

void WorkerRun::useSettings()
{
    QString errorText;
    if (!m_order.cataloguePath.isEmpty()) {
        const auto catalogue = BizModel::Catalogue::load(m_order.cataloguePath, errorText);
        if (!catalogue)
            refuse(VerdictCode::Internal, errorText);
        catalogue->install();
        m_catalogue = *catalogue;
    }
    if (!m_order.keyFilePath.isEmpty()) {
        TZ::CryptKey key;
        if (!TZ::readCryptKeyFile(m_order.keyFilePath, key, errorText) || !TZ::setCryptKey(key))
            refuse(VerdictCode::Internal, errorText);
    }
}

void WorkerRun::plan()
{
    tellPhase(Phase::Planning);
    if (m_order.modelId) {
        planForModel();
        return;
    }
    openSession();
    parse(std::nullopt);
    makePlanFor(*m_session->device());
    tellPlan();
}

void WorkerRun::planForModel()
{
    const auto *config =
        BizModel::DeviceConfigManager::instance()->findDeviceConfigByID(*m_order.modelId);
    if (config == nullptr)
        refuse(VerdictCode::NothingFits,
               QStringLiteral("The catalogue does not know the model %1")
                   .arg(modelNumber(*m_order.modelId)));
    parse(m_order.modelId);
    // Never asked anything: without cards and versions there is nothing to ask.
    BizModel::Device device(*config, {}, std::make_shared<SSProxy::SocketLink>(QString()));
    makePlanFor(device);
    tellPlan();
}

void WorkerRun::openSession()
{
    m_link = std::make_shared<GuardedLink>(
        std::make_shared<SSProxy::SocketLink>(m_order.device.host, m_order.device.port),
        GuardedLink::Hooks {
            [this] {
                auto fault = imageFault();
                if (fault.isEmpty()) // a refusal from here on is no matter of the image
                    tellPhase(Phase::Sending);
                return fault;
            },
            [this](const LinkTraffic &told) { announceOrder(told.isRestartOrdered); },
        });
    QString errorText;
    m_session = DeviceSession::open(m_link, m_order.device.toString(), errorText);
    if (!m_session)
        refuse(VerdictCode::Unreachable, errorText);
    m_trafficTimer.start();
}

void WorkerRun::parse(std::optional<quint16> modelId)
{
    m_parse = std::make_unique<PackageParse>(m_order.packagePath);
    QEventLoop loop;
    bool isGood = false;
    QString errorText;
    connect(m_parse.get(), &PackageParse::signalEnded, &loop,
            [&](bool result, const QString &text) {
                isGood = result;
                errorText = text;
                loop.quit();
            });
    if (modelId)
        m_parse->startForModel(*modelId, m_order.timeLimit);
    else
        m_parse->start(m_order.timeLimit);
    loop.exec();
    // A host has checked the package: what the library then does not take is for another device.
    if (!isGood)
        refuse(VerdictCode::NothingFits, errorText);
    if (!m_listing.read(m_order.packagePath, errorText))
        refuse(VerdictCode::PackageRefused, errorText);
}

void WorkerRun::makePlanFor(BizModel::Device &device)
{
    choose(device);
    ProtoModel::Auxiliary::s_DeviceVersion versions;
    QString errorText;
    if (m_session) {
        bool isRead = false;
        awaitOnThread([&] {
            isRead =
                ModelControl::Auxiliary(m_session->device()).readDeviceVersion(versions, errorText);
        });
        if (!isRead)
            refuse(VerdictCode::Unreachable,
                   QStringLiteral("The device does not tell its versions: %1").arg(errorText));
    }
    const ModelNames names(m_catalogue);
    const QString serial = m_session ? m_session->serial() : QString();
    const QString name = m_session ? m_session->name() : QString();
    const PlanOrder order { m_order.road,
                            m_order.wish,
                            m_selection,
                            m_parse->units(),
                            m_parse->dataFilePaths(),
                            m_listing,
                            m_order.packagePath,
                            device,
                            versions,
                            m_order.device,
                            serial,
                            name,
                            m_order.upload,
                            m_isOlderService,
                            &names };
    VerdictCode code = VerdictCode::Internal;
    if (!makePlan(order, m_plan, code, errorText))
        refuse(code, errorText);
}

void WorkerRun::choose(BizModel::Device &device)
{
    if (m_order.road == Road::Http && m_order.upload.isCompatible && m_session)
        askForService(device);
    const auto offered = offeredParts(m_parse->units(), device);
    QString errorText;
    bool isChosen = false;
    if (m_order.road == Road::Registers)
        isChosen = chooseForRegisters(offered, m_listing, device.modelId(), m_selection, errorText);
    else if (m_isOlderService)
        isChosen = chooseForOlderService(offered, m_order.wish, m_selection, errorText);
    else
        isChosen = m_selection.choose(offered, m_order.wish, errorText);
    if (isChosen)
        return;
    const bool hasWish = !m_order.wish.sections.isEmpty() || !m_order.wish.cards.isEmpty();
    refuse(hasWish && !offered.empty() ? VerdictCode::NotPlanned : VerdictCode::NothingFits,
           errorText);
}

void WorkerRun::askForService(BizModel::Device &device)
{
    auto service = ServiceGeneration::Newer;
    awaitOnThread([&] { service = askServiceGeneration(m_link, device.deviceConfig()); });
    if (service == ServiceGeneration::None)
        refuse(VerdictCode::NothingFits,
               QStringLiteral("By its version, the device takes no upgrades over HTTP"));
    m_isOlderService = service == ServiceGeneration::Older;
}

void WorkerRun::tellPlan()
{
    if (toLine(PlanTell { m_plan }).size() > WorkerLineLimit)
        refuse(VerdictCode::PackageRefused,
               QStringLiteral("The package lists so many files that a plan of it has more than %1 "
                              "bytes")
                   .arg(WorkerLineLimit));
    m_voice.tell(PlanTell { m_plan });
    if (m_order.mode == WorkerMode::Plan)
        end(true, QString());
    m_step = Step::Waiting;
}

void WorkerRun::go()
{
    tellPhase(Phase::Preparing);
    // By registers, the library begins to write before it finds that it has no room.
    checkRoom();
    switch (m_order.road) {
    case Road::Native: {
        auto run = std::make_unique<UpgradeRun>(
            UpgradeOrder { m_session->device(), m_selection.cardInfoParts(), m_parse->units(),
                           m_parse->dataFilePaths(), m_order.packagePath });
        follow(*run);
        auto &started = *run;
        m_run = std::move(run);
        started.start(Firmware::Enum::UpgradeProcessType::FullUpgrade, m_order.timeLimit);
        break;
    }
    case Road::Http:
        goByHttp();
        break;
    case Road::Registers: {
        auto run = std::make_unique<RegisterRun>(m_link, registerParts(m_selection));
        follow(*run);
        auto &started = *run;
        m_run = std::move(run);
        started.start(m_order.timeLimit);
        break;
    }
    }
}

void WorkerRun::goByHttp()
{
    auto filePath = m_order.upload.filePath;
    if (filePath.isEmpty()) {
        m_step = Step::Preparing;
        m_image = std::make_unique<ImageBuild>(
            UpgradeOrder { m_session->device(), m_selection.cardInfoParts(), m_parse->units(),
                           m_parse->dataFilePaths(), m_order.packagePath });
        QString errorText;
        if (!m_image->run(m_order.timeLimit, errorText)) {
            checkRoom();
            refuse(VerdictCode::PrepareFailed, errorText);
        }
        filePath = m_image->imagePath();
        if (!checkImage(filePath, m_plan, errorText)) {
            checkRoom();
            refuse(VerdictCode::PlanMismatch, errorText);
        }
    }
    HttpOrder order;
    order.isCompatible = m_order.upload.isCompatible;
    order.link = m_link;
    order.modelId = m_session->device()->modelId();
    order.parts = m_selection.cardInfoParts();
    order.filePath = filePath;
    order.host = m_order.upload.host.isEmpty() ? m_order.device.host : m_order.upload.host;
    auto run = std::make_unique<HttpRun>(std::move(order));
    follow(*run);
    connect(UpgradeClientProxy::getInstance(), &UpgradeClientProxy::signalOnUploadProgress, this,
            &WorkerRun::slotUploaded);
    // Before the device can have everything, and begin: as for the other roads' orders.
    connect(run.get(), &HttpRun::signalOrdering, this, [this] {
        m_upload.isOrdered = true;
        tellNewTraffic();
        m_voice.flush(TellLimit);
    });
    connect(run.get(), &DeviceRun::signalInstalling, this, [this](const s_UpgradePercent &told) {
        m_upload.result = told.result;
        m_upload.isEndTold = told.result == Installed || told.result == InstallationFailed;
        ++m_upload.answers;
    });
    auto &started = *run;
    m_run = std::move(run);
    started.start(m_order.timeLimit, m_order.silenceLimit);
}

void WorkerRun::watch()
{
    openSession();
    tellPhase(Phase::Installing);
    bool isRead = false;
    s_UpgradePercent progress;
    QString errorText;
    awaitOnThread([&] {
        isRead =
            ModelControl::Auxiliary(m_session->device()).readUpgradeProgress(progress, errorText);
    });
    if (!isRead)
        refuse(VerdictCode::DeviceLost,
               QStringLiteral("The device does not tell its progress: %1").arg(errorText));
    m_voice.tell(InstallingTell { progress });
    const bool hasEnded = progress.result == Installed || progress.result == InstallationFailed;
    const auto hint = QStringLiteral(". It is not restarted; add --restart for that");
    if (progress.result == Installed && !m_order.mayRestart)
        refuse(VerdictCode::NothingToDo,
               QStringLiteral("The device has installed everything") + hint);
    if (progress.result == InstallationFailed && !m_order.mayRestart)
        refuse(VerdictCode::InstallFailed, QStringLiteral("The installation has failed") + hint);
    if (!hasEnded && progress.result != Running)
        refuse(VerdictCode::NothingToDo, QStringLiteral("The device is installing nothing"));
    auto run = std::make_unique<UpgradeRun>(UpgradeOrder { m_session->device(), {}, {}, {}, {} });
    follow(*run);
    auto &started = *run;
    m_run = std::move(run);
    started.start(Firmware::Enum::UpgradeProcessType::ReadProgressOnly, m_order.timeLimit);
}

void WorkerRun::follow(DeviceRun &run)
{
    m_step = Step::Running;
    m_runTime.start();
    connect(&run, &DeviceRun::signalStageChanged, this, &WorkerRun::slotStage);
    connect(&run, &DeviceRun::signalStatusText, this,
            [this](const QString &text) { m_voice.tell(StatusTell { text }); });
    if (m_order.road != Road::Http) // which has bytes to tell, and tells them itself
        connect(&run, &DeviceRun::signalSending, this, &WorkerRun::tellSending);
    connect(&run, &DeviceRun::signalInstalling, this, [this](const s_UpgradePercent &progress) {
        m_voice.tell(InstallingTell { progress });
    });
    connect(&run, &DeviceRun::signalEnded, this, &WorkerRun::slotEnded);
}

void WorkerRun::slotUploaded(qint64 sentBytes, qint64 totalBytes)
{
    m_upload.sentBytes = sentBytes;
    m_upload.totalBytes = totalBytes;
    const int percent = static_cast<int>(sentBytes * 100 / qMax(totalBytes, qint64(1)));
    if (percent != std::exchange(m_uploadPercent, percent))
        tellSending(percent);
}

void WorkerRun::tellSending(int percent)
{
    tellPhase(Phase::Sending);
    const auto now = traffic();
    m_voice.tell(SendingTell { qBound(0, percent, 100), now.sentBytes, now.totalBytes });
}

void WorkerRun::stop()
{
    if (m_order.mode == WorkerMode::Watch) {
        if (m_link)
            m_link->stop(); // the device is not restarted at the end, either
        m_voice.tell(StopTell { true });
        end(false, QStringLiteral("The device is no longer watched"));
    }
    // Between two register writes the device would be left with half a firmware.
    const bool isStopped = stopInTime();
    m_voice.tell(StopTell { isStopped });
    if (isStopped)
        end(false,
            QStringLiteral("The upgrade was stopped before the device had begun to install"));
}

/*! Keeps the device from being changed, unless it may have begun. */
bool WorkerRun::stopInTime()
{
    noteUploadOrder();
    return !m_upload.isOrdered && (!m_link || m_link->stopBeforeOrder());
}

// The order of an upload is told early, and has not been given where nothing of it has gone out.
void WorkerRun::noteUploadOrder()
{
    if (const auto *run = qobject_cast<HttpRun *>(m_run.get()))
        m_upload.isOrdered = run->isOrdered();
}

LinkTraffic WorkerRun::traffic() const
{
    auto traffic = m_link->traffic();
    if (m_order.road == Road::Http && m_order.mode == WorkerMode::Upgrade) {
        traffic.answers += m_upload.answers;
        traffic.requests += m_upload.answers;
        traffic.sentBytes = m_upload.sentBytes;
        traffic.totalBytes = m_upload.totalBytes;
        traffic.result = m_upload.result;
        traffic.isOrdered = m_upload.isOrdered;
        traffic.isEndTold = m_upload.isEndTold;
    }
    return traffic;
}

void WorkerRun::tellTraffic()
{
    const auto now = tellNewTraffic();
    if (!now.isIdle || m_step != Step::Running) {
        m_idle.invalidate();
    } else if (!m_idle.isValid()) {
        m_idle.start();
    } else if (m_idle.hasExpired(std::chrono::milliseconds(IdleLimit).count())) {
        // The library would go on asking for ever.
        m_link->stop();
        end(false,
            QStringLiteral("The device has stopped installing without telling an end; it may have "
                           "restarted"));
    }
}

// Any thread. What is told last is what is true: an order is never unsaid by what was looked up
// before it.
LinkTraffic WorkerRun::tellNewTraffic()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto now = traffic();
    if (now != m_toldTraffic)
        m_voice.tell(TrafficTell { now });
    m_toldTraffic = now;
    return now;
}

bool WorkerRun::isPreparing()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_phase == Phase::Preparing;
}

/*! Before anything is sent: the library says of a disk that is full only that it could not write. */
void WorkerRun::checkRoom()
{
    const auto shortage = roomShortage(m_plan, m_order.packagePath);
    if (!shortage.isEmpty())
        refuse(VerdictCode::DiskFull, shortage);
}

// Any thread. There is no way back to an earlier phase.
void WorkerRun::tellPhase(Phase phase)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_phase && *m_phase >= phase)
        return;
    m_phase = phase;
    m_voice.tell(PhaseTell { phase });
}

// On the library's thread, before the device gets the order: whatever happens to this process then,
// the host knows that the device may be at work.
void WorkerRun::announceOrder(bool isRestart)
{
    if (m_order.road == Road::Registers)
        tellPhase(Phase::Sending);
    else
        tellPhase(Phase::Installing);
    if (isRestart) {
        // The last report comes to the event loop behind the order that it leads to.
        if (const auto *run = qobject_cast<UpgradeRun *>(m_run.get()))
            m_voice.tell(InstallingTell { run->progress() });
        tellPhase(Phase::Restarting);
    }
    tellNewTraffic();
    m_voice.flush(TellLimit);
}

// On the library's thread.
QString WorkerRun::imageFault() const
{
    QString errorText;
    checkImage(m_order.packagePath + QLatin1String("/upgrade"), m_plan, errorText,
               ImageSum::LeftToSender);
    return errorText;
}

void WorkerRun::slotStage(DeviceRun::Stage stage)
{
    if (stage == DeviceRun::Stage::Sending)
        tellPhase(Phase::Sending);
    else if (stage == DeviceRun::Stage::Installing)
        tellPhase(Phase::Installing);
}

void WorkerRun::slotEnded(DeviceRun::Outcome outcome, const QString &text)
{
    noteUploadOrder();
    if (outcome == DeviceRun::Outcome::TimedOut)
        refuseForTime();
    const auto fault = m_link->announcementFault();
    // Over HTTP the image is whole by now, and what failed was something else.
    if (outcome == DeviceRun::Outcome::Failed && m_order.road != Road::Http && isPreparing())
        checkRoom();
    if (!fault.isEmpty())
        refuse(VerdictCode::PlanMismatch, fault);
    const auto *httpRun = qobject_cast<HttpRun *>(m_run.get());
    if (httpRun != nullptr && httpRun->fault())
        refuse(*httpRun->fault(), text);
    end(outcome == DeviceRun::Outcome::Succeeded, text);
}

void WorkerRun::refuseForTime()
{
    // The HTTP road has a limit for silence, too. A timer may be early by a twentieth.
    const bool isSilence = m_order.road == Road::Http && m_order.mode == WorkerMode::Upgrade
        && !m_runTime.hasExpired(m_order.timeLimit.count() * 9 / 10);
    if (!isSilence) {
        const bool isAtWork = m_order.mode == WorkerMode::Watch || traffic().isOrdered;
        refuse(isAtWork ? VerdictCode::TimeLimit : VerdictCode::OutOfTime,
               QStringLiteral("The upgrade took longer than it may take"));
    }
    refuse(
        m_upload.isOrdered ? VerdictCode::DeviceLost : VerdictCode::SilentDevice,
        QStringLiteral("Nothing was heard of the device's HTTP service for %1 s")
            .arg(std::chrono::duration_cast<std::chrono::seconds>(m_order.silenceLimit).count()));
}

void WorkerRun::refuse(VerdictCode code, const QString &text)
{
    leave(RefusedTell { code, text });
}

void WorkerRun::end(bool result, const QString &text)
{
    leave(EndTell { result, text });
}

void WorkerRun::leave(const WorkerMessage &last)
{
    if (m_link)
        tellNewTraffic();
    leaveWorker(m_voice, WorkerExit::Told, last);
}

} // namespace Velmar::Host
