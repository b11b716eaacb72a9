#include "roadtexts.h"

using namespace Velmar::Host;

namespace {

QString nativeLeaving(DeviceRun::Stage stage, const QString &address)
{
    const auto watch = QStringLiteral("velmar-upgrade watch --device ") + address;
    switch (stage) {
    case DeviceRun::Stage::Idle:
    case DeviceRun::Stage::Preparing:
        return QStringLiteral("Nothing had been sent: the device stays as it was");
    case DeviceRun::Stage::Sending:
        return QStringLiteral(
                   "The image was being sent: a device does not install an image that is "
                   "not complete. If it was, see the installation with: %1")
            .arg(watch);
    case DeviceRun::Stage::Installing:
    case DeviceRun::Stage::Ended:
        break;
    }
    return QStringLiteral("The device goes on by itself. See it with: %1").arg(watch);
}

QString nativeAdvice(DeviceRun::Stage stage)
{
    return stage <= DeviceRun::Stage::Preparing
        ? QStringLiteral(
            "the device has installed nothing; upgrade again once the cause is removed")
        : QStringLiteral("upgrade again when the device is back");
}

} // namespace

RoadTexts nativeRoadTexts(const QString &address)
{
    return { [address](DeviceRun::Stage stage) { return nativeLeaving(stage, address); },
             nativeAdvice };
}

RoadTexts httpRoadTexts()
{
    return { [](DeviceRun::Stage stage) {
                return stage <= DeviceRun::Stage::Preparing
                    ? QStringLiteral("Nothing had been sent: the device stays as it was")
                    : QStringLiteral("A device that has the whole image installs it by itself, and "
                                     "restarts");
            },
             [](DeviceRun::Stage stage) {
                 return stage <= DeviceRun::Stage::Preparing
                     ? QStringLiteral("the device has installed nothing; upgrade again once the "
                                      "cause is removed")
                     : QStringLiteral("see with --verbose what the device answered, and upgrade "
                                      "again when it is back");
             } };
}

RoadTexts registerRoadTexts()
{
    return { [](DeviceRun::Stage) {
                return QStringLiteral("A device keeps its former firmware until the new one is "
                                      "complete. An upgrade begins from the start");
            },
             [](DeviceRun::Stage) {
                 return QStringLiteral("a device keeps its former firmware until the new one is "
                                       "complete; upgrade again once the cause is removed");
             } };
}
