#include "verbs.h"

#include "console.h"
#include "device/deviceaddress.h"
#include "device/modelnames.h"
#include "inquiry.h"
#include "show/printable.h"
#include "steps.h"

#include <velmarssproxy/devicemanager.h>
#include <velmarssproxy/framecodec.h>

#include <QEventLoop>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QTimer>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

constexpr unsigned short RoundMs = 500; // a datagram may get lost: ask more than once

/*! The devices that answer a probe of \a target in \a waitMs, by address and port. */
QMap<QString, SSProxy::DiscoveredDevice> findDevices(Inquiry &inquiry, const DeviceAddress &target,
                                                     int waitMs)
{
    QMap<QString, SSProxy::DiscoveredDevice> devices;
    auto *manager = SSProxy::DeviceManager::instance();
    QEventLoop loop;
    QObject::connect(
        manager, &SSProxy::DeviceManager::signalDeviceFound, &loop,
        [&devices](const SSProxy::DiscoveredDevice &device) {
            devices.insert(DeviceAddress { device.address, device.port }.toString(), device);
        });
    QTimer::singleShot(waitMs, &loop, &QEventLoop::quit);
    manager->startDeviceProbe(target.host, target.port, 0, RoundMs);
    inquiry.await(loop);
    manager->stopDeviceUDPProbe();
    return devices;
}

} // namespace

HostExitCode devicesVerb(const CommandLine &options)
{
    QString errorText;
    const auto target =
        DeviceAddress::parse(options.value("probe-address"), SSProxy::DefaultProbePort, errorText);
    if (!target)
        return complain(VerdictCode::Usage, QStringLiteral("--probe-address: ") + errorText);
    if (QHostAddress(target->host).isNull())
        return complain(VerdictCode::Usage,
                        QStringLiteral("--probe-address: \"%1\" is no numeric address")
                            .arg(printable(target->host)));
    const auto catalogue = useCatalogue(options);
    if (!catalogue)
        return HostExitCode::Usage;
    const ModelNames names(*catalogue);
    Inquiry inquiry(options);
    if (!inquiry.begin())
        return HostExitCode::Usage;

    const auto devices = findDevices(inquiry, *target, static_cast<int>(options.number("wait")));
    QJsonArray array;
    QString text;
    for (auto device = devices.cbegin(); device != devices.cend(); ++device) {
        array.append(QJsonObject { { QStringLiteral("address"), device.key() },
                                   { QStringLiteral("modelId"), device->modelId },
                                   { QStringLiteral("model"), names.describe(device->modelId) },
                                   { QStringLiteral("serial"), device->serial },
                                   { QStringLiteral("name"), device->name } });
        text += QStringLiteral("%1  %2  %3  %4\n")
                    .arg(device.key().leftJustified(21),
                         printable(names.describe(device->modelId)).leftJustified(20),
                         printable(device->serial).leftJustified(16), printable(device->name));
    }
    if (devices.isEmpty())
        return inquiry.fail(
            VerdictCode::Unreachable,
            QStringLiteral("No device has answered at %1. Check the network, or name a device's "
                           "address with --probe-address")
                .arg(target->toString()),
            inquiry.logLines());
    inquiry.tell(RunEvent::Kind::Devices, array, text);
    return inquiry.answered(devices.size() == 1
                                ? QStringLiteral("1 device has answered")
                                : QStringLiteral("%1 devices have answered").arg(devices.size()));
}
