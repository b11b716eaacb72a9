#include "simulateddevice.h"

#include "devicestate.h"
#include "httpservice.h"
#include "httpupgrade.h"
#include "linkoperations.h"
#include "registeroperations.h"
#include "statefolder.h"
#include "transferoperations.h"
#include "upgradeoperations.h"
#include "versionquery.h"

#include <utility>

namespace Velmar::Simulator {

namespace {

constexpr int RetryMs = 200; // while somebody else has the port
constexpr int SettleMs = 200; // from the last byte of new firmware to the restart

LinkPolicy linkPolicy(const DeviceSettings &settings)
{
    LinkPolicy policy;
    policy.silenceLimitMs = settings.heartbeatMs;
    policy.bytesPerSecond = settings.faults.value(Fault::SlowLink, 0);
    return policy;
}

/*! What was installed runs from now on. */
void runInstalledVersions(DeviceRecord &record)
{
    for (auto &[key, versions] : record.sections)
        versions.running = versions.installed;
}

} // namespace

SimulatedDevice::SimulatedDevice(const Fitting &fitting, const DeviceSettings &settings)
    : m_fitting(fitting)
    , m_settings(settings)
    , m_name(settings.name.isEmpty() ? fitting.model().name.left(MaxTextLength) : settings.name)
    , m_mishaps(m_settings.faults)
    , m_probe(m_trace)
{
    m_return.setSingleShot(true);
    connect(&m_return, &QTimer::timeout, this, &SimulatedDevice::comeBack);
    // Queued: what is going on, on a connection for example, is brought to its end first.
    connect(&m_mishaps, &Mishaps::fellSilent, &m_probe, &ProbeAnswerer::stop, Qt::QueuedConnection);
    connect(&m_mishaps, &Mishaps::wentAway, this, &SimulatedDevice::goAway, Qt::QueuedConnection);
    connect(&m_mishaps, &Mishaps::restarts, this, &SimulatedDevice::restart, Qt::QueuedConnection);
}

SimulatedDevice::~SimulatedDevice()
{
    if (m_state)
        brickIfCut();
}

bool SimulatedDevice::start(QString &errorText)
{
    if (!m_settings.tracePath.isEmpty() && !m_trace.open(m_settings.tracePath, errorText))
        return false;
    m_folder = StateFolder::open(m_settings.statePath, errorText);
    if (!m_folder)
        return false;
    m_state = DeviceState::load(*m_folder, m_fitting.model().modelId, errorText);
    if (!m_state)
        return false;
    if (brickIfCut()) {
        m_isAway = true;
        Q_EMIT bricked();
        return true;
    }
    if (!Installation::recover(*m_folder, *m_state, errorText))
        qWarning("%s", qUtf8Printable(errorText)); // hosts are told by result 3
    if (!applySettings(errorText))
        return false;

    const Faults &faults = m_settings.faults;
    m_receiver = std::make_unique<FileReceiver>(*m_folder, *m_state);
    m_installer = std::make_unique<Installer>(*m_folder, *m_state, faults, m_settings.installMs);
    m_installer->setPermission([this](int percent) { return m_mishaps.noteInstalling(percent); });
    connect(m_installer.get(), &Installer::finished, this,
            [this](int result, const QString &cause) {
                if (result != 2)
                    qWarning("The installation has failed: %s.", qUtf8Printable(cause));
                m_mishaps.noteInstalled();
            });
    m_operations.setMuteness([this] { return m_mishaps.isMute(); });
    const Identity identity { m_fitting, *m_state, m_name };
    addLinkOperations(m_operations, identity);
    addVersionQuery(m_operations, identity, m_settings.generation, faults);
    addTransferOperations(m_operations, *m_receiver, *m_installer, faults, m_mishaps);
    addUpgradeOperations(m_operations, m_fitting, *m_receiver, *m_installer, faults, m_mishaps,
                         [this] {
                             QMetaObject::invokeMethod(this, &SimulatedDevice::restartAsOrdered,
                                                       Qt::QueuedConnection);
                         });
    m_firmware = std::make_unique<FirmwareStore>(*m_folder, *m_state);
    m_bank = std::make_unique<RegisterBank>(m_fitting, *m_firmware, faults.isSet(Fault::Lie));
    const RegisterDevice registers { *m_bank, *m_installer, *m_state,
                                     faults,  m_mishaps,    m_settings.installMs };
    addRegisterOperations(m_operations, registers, [this] {
        QTimer::singleShot(SettleMs, this, &SimulatedDevice::restartWithNewFirmware);
    });
    if (m_settings.generation != Generation::None) {
        const HttpUpgrade::Device device { m_fitting,   *m_folder,    *m_state,
                                           *m_receiver, *m_installer, faults };
        m_httpUpgrade = std::make_unique<HttpUpgrade>(device, m_settings.generation,
                                                      [this] { restartAsOrdered(); });
    }
    m_server = std::make_unique<DeviceServer>(m_operations, m_trace, linkPolicy(m_settings));
    m_port = m_settings.port;
    m_probePort = m_settings.probePort;
    if (!listen(errorText))
        return false;
    Q_EMIT ready();
    return true;
}

/*! Switching the device on is a restart, too, though not an ordered one. */
bool SimulatedDevice::applySettings(QString &errorText)
{
    const auto change = [this](DeviceRecord &record) {
        runInstalledVersions(record);
        if (!m_settings.serial.isEmpty())
            record.serial = m_settings.serial;
        const std::optional<SectionKey> fileVersion = m_fitting.fileVersionSection();
        if (!fileVersion)
            return;
        if (!m_settings.fileVersion.isEmpty())
            record.sections[*fileVersion] = { m_settings.fileVersion, m_settings.fileVersion };
        else
            record.sections.try_emplace(*fileVersion,
                                        SectionVersions { QString::fromLatin1(FirstFileVersion),
                                                          QString::fromLatin1(FirstFileVersion) });
    };
    return m_state->update(change, errorText);
}

/*! Listens on the ports that were asked for; those that were chosen then stay. */
bool SimulatedDevice::listen(QString &errorText)
{
    if (!m_server->listen(m_settings.address, m_port, errorText))
        return false;
    m_port = m_server->port();
    if (m_probePort && !m_probe.start(m_settings.address, *m_probePort, probeAnswer(), errorText)) {
        m_server->close();
        return false;
    }
    if (!listenForHttp(errorText)) {
        stopListening();
        return false;
    }
    if (m_probePort)
        m_probePort = m_probe.port();
    return true;
}

bool SimulatedDevice::listenForHttp(QString &errorText)
{
    if (!m_httpUpgrade)
        return true;
    const HttpService::Settings settings { m_settings.generation, m_settings.faults, m_mishaps,
                                           m_fitting.model(), m_folder->incoming() };
    m_http = std::make_unique<HttpService>(settings, *m_httpUpgrade, m_trace);
    return m_http->start(m_settings.address, errorText);
}

void SimulatedDevice::stopListening()
{
    m_server->close();
    m_probe.stop();
    m_http.reset();
}

/*! Unless the device has restarted for another reason meanwhile. */
void SimulatedDevice::restartWithNewFirmware()
{
    if (m_bank->isComplete())
        restartAsOrdered();
}

void SimulatedDevice::restartAsOrdered()
{
    m_mishaps.noteRestartOrdered();
    if (!m_mishaps.isMute())
        restart();
}

void SimulatedDevice::restart()
{
    if (m_isAway)
        return; // two hosts may order it at the same time
    m_isAway = true;
    m_mishaps.endMuteness();
    // First of all: with its connection an answer is over that waits for firmware to be stored.
    const bool isBricked = brickIfCut();
    stopListening();
    if (m_httpUpgrade)
        m_httpUpgrade->reset();
    m_installer->breakOff();
    m_receiver->clear();
    m_bank->reset();
    if (isBricked) {
        Q_EMIT away();
        Q_EMIT bricked();
        return;
    }
    QString errorText;
    if (!Installation::recover(*m_folder, *m_state, errorText))
        qWarning("%s", qUtf8Printable(errorText));
    const bool isRecorded = m_state->update(
        [](DeviceRecord &record) {
            ++record.restarts;
            runInstalledVersions(record);
            // An installation that is to be completed by the next start is not forgotten.
            if (record.installation
                && record.installation->phase == InstallationRecord::Phase::Over)
                record.installation.reset();
        },
        errorText);
    if (!isRecorded)
        qWarning("%s", qUtf8Printable(errorText));
    Q_EMIT away();
    if (!m_settings.faults.isSet(Fault::NoReturn))
        m_return.start(m_settings.restartMs);
}

/*! Nothing is tidied up: the next start finds the folder as a cut of the power leaves it. */
void SimulatedDevice::goAway()
{
    const bool wasAway = std::exchange(m_isAway, true);
    m_return.stop();
    stopListening();
    if (m_httpUpgrade)
        m_httpUpgrade->reset();
    m_installer->breakOff();
    if (!wasAway)
        Q_EMIT away();
}

/*! Notes that the device is bricked, if a stop now is the end of it; true if it is bricked. */
bool SimulatedDevice::brickIfCut()
{
    if (m_state->record().isBricked || !m_state->record().isCutFatal())
        return m_state->record().isBricked;
    QString errorText;
    if (!m_state->update([](DeviceRecord &record) { record.isBricked = true; }, errorText))
        qWarning("%s", qUtf8Printable(errorText));
    return true;
}

void SimulatedDevice::comeBack()
{
    QString errorText;
    if (listen(errorText)) {
        m_isAway = false;
        Q_EMIT ready();
        m_mishaps.noteReturned();
        return;
    }
    qWarning("%s", qUtf8Printable(errorText));
    m_return.start(RetryMs);
}

QCborMap SimulatedDevice::probeAnswer() const
{
    return { { QLatin1String("op"), QLatin1String("device") },
             { QLatin1String("protocol"), 1 },
             { QLatin1String("modelId"), m_fitting.model().modelId },
             { QLatin1String("serial"), m_state->record().serial },
             { QLatin1String("name"), m_name },
             { QLatin1String("port"), m_port } };
}

} // namespace Velmar::Simulator
