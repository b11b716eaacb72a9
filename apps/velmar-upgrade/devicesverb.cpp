#include "verbs.h"

#include "console.h"
#include "device/deviceaddress.h"
#include "device/modelnames.h"
#include "process/logcapture.h"
#include "show/printable.h"
#include "steps.h"

#include <velmarssproxy/devicemanager.h>
#include <velmarssproxy/framecodec.h>

#include <QEventLoop>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTimer>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

constexpr unsigned short RoundMs = 500; // a datagram may get lost: ask more than once

/*! The devices that answer a probe of \a target in \a waitMs, by address and port. */
QMap<QString, SSProxy::DiscoveredDevice> findDevices(const DeviceAddress &target, int waitMs)
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
    loop.exec();
    manager->stopDeviceUDPProbe();
    return devices;
}

} // namespace

HostExitCode devicesVerb(const QStringList &arguments)
{
    CommandLine options(QStringLiteral("devices [options]"),
                        QStringLiteral("Looks for devices on the network and lists those that "
                                       "answer."));
    options.addOption(QStringLiteral("probe-address"),
                      QStringLiteral("Numeric address to ask: that of one device or a broadcast "
                                     "address, with the UDP port unless that is %1; the whole "
                                     "network unless set.")
                          .arg(SSProxy::DefaultProbePort),
                      QStringLiteral("ADDRESS[:PORT]"), QStringLiteral("255.255.255.255"));
    options.addOption(QStringLiteral("wait"),
                      QStringLiteral("Time for the devices to answer, from 1 to 60000; 2000 unless "
                                     "set."),
                      QStringLiteral("MS"), QStringLiteral("2000"));
    options.addCatalogue();
    options.addOption(QStringLiteral("json"), QStringLiteral("Write one JSON array."));
    options.addVerbose();
    if (const auto code = options.parse(arguments))
        return *code;
    QString errorText;
    const auto option = QStringLiteral("probe-address");
    const auto target =
        DeviceAddress::parse(options.value(option), SSProxy::DefaultProbePort, errorText);
    if (!target)
        return complain(HostExitCode::Usage, QStringLiteral("--probe-address: ") + errorText);
    if (QHostAddress(target->host).isNull())
        return complain(HostExitCode::Usage,
                        QStringLiteral("--probe-address: \"%1\" is no numeric address")
                            .arg(printable(target->host)));
    const auto waitMs = options.number(QStringLiteral("wait"), 1, 60000);
    if (!waitMs)
        return HostExitCode::Usage;
    const LogCapture log(options.isSet(QStringLiteral("verbose")) ? printLogLine : nullptr);
    const auto catalogue = useCatalogue(options);
    if (!catalogue)
        return HostExitCode::Usage;
    const ModelNames names(*catalogue);

    const auto devices = findDevices(*target, *waitMs);
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
    print(options.isSet(QStringLiteral("json"))
              ? QString::fromUtf8(printableJson(QJsonDocument(array).toJson()))
              : text);
    if (devices.isEmpty()) {
        complain(HostExitCode::Unreachable,
                 QStringLiteral("No device has answered at %1. Check the network, or name a "
                                "device's address with --probe-address")
                     .arg(target->toString()));
        printCause(log.lastLines());
        return HostExitCode::Unreachable;
    }
    return HostExitCode::Ok;
}
