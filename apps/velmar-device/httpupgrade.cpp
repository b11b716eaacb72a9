#include "httpupgrade.h"

#include "controltext.h"
#include "faults.h"
#include "filereceiver.h"
#include "fitting.h"
#include "installer.h"
#include "orderedparts.h"
#include "receivedimage.h"

#include <utility>

namespace Velmar::Simulator {

namespace {

constexpr int ToldMs = 300; // for answers that are still on their way
constexpr int UntoldMs = 10000; // for a host to ask once more
constexpr int Done = 2;
constexpr int Failed = 3;

} // namespace

HttpUpgrade::HttpUpgrade(const Device &device, Generation generation, std::function<void()> restart)
    : m_device(device)
    , m_generation(generation)
    , m_told(m_device.installer, m_device.faults)
{
    m_restart.setSingleShot(true);
    connect(&m_restart, &QTimer::timeout, this, std::move(restart));
    connect(&m_device.installer, &Installer::finished, this, [this] {
        if (m_restartsAtEnd)
            m_restart.start(UntoldMs);
    });
}

ProtoModel::Auxiliary::s_UpgradePercent HttpUpgrade::progress()
{
    auto progress = m_told.next();
    if (m_device.faults.isSet(Fault::HttpFailsAfterDone) && m_hasToldDone)
        progress.result = Failed;
    m_hasToldDone = m_hasToldDone || progress.result == Done;
    noteTold(progress.result);
    return progress;
}

void HttpUpgrade::reset()
{
    m_restart.stop();
    m_restartsAtEnd = false;
    m_hasToldDone = false;
}

Outcome HttpUpgrade::install(const ReceivedUpload &upload)
{
    const Outcome ready = m_device.installer.readiness();
    if (!ready.isAccepted())
        return ready;
    QString errorText;
    const auto control =
        ControlText::read(upload.controlText, m_generation, m_device.fitting.model(), errorText);
    if (!control)
        return { LinkAck::WrongArguments, errorText };
    InstallationOrder order;
    order.deletesImage = control->deletesImage;
    for (const ControlledPart &part : control->parts) {
        const Outcome outcome = addToOrder(m_device.fitting, part.order, part.boardId, order);
        if (!outcome.isAccepted())
            return outcome;
    }
    if (const auto fileVersion = m_device.fitting.fileVersionSection())
        order.sections.push_back(*fileVersion);
    Outcome outcome = keepImage(upload.path, upload.sha256, m_device.folder, m_device.state);
    if (!outcome.isAccepted())
        return outcome;
    reset();
    m_restartsAtEnd = control->reboots;
    outcome = m_device.installer.start(order);
    if (outcome.isAccepted())
        m_device.receiver.clear(); // what was still on its way belongs to no installation
    return outcome;
}

void HttpUpgrade::noteTold(int result)
{
    const int last = m_device.faults.isSet(Fault::HttpFailsAfterDone) ? Failed : Done;
    if (m_restart.isActive() && (result == Failed || result == last)
        && m_restart.remainingTime() > ToldMs)
        m_restart.start(ToldMs);
}

} // namespace Velmar::Simulator
