#include "verbs.h"

#include "device/devicefacts.h"
#include "device/modelnames.h"
#include "devicetext.h"

#include <QJsonObject>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

/*! What the result of a device's last installation says, as a word and for people. */
struct State {
    QString word;
    QString text;
};

State stateOf(const ProtoModel::Auxiliary::s_UpgradePercent &installation)
{
    switch (installation.result) {
    case 0:
        return { QStringLiteral("idle"), QStringLiteral("It installs nothing") };
    case 2:
        return { QStringLiteral("installed"),
                 QStringLiteral("It has installed everything and waits for its restart, which "
                                "\"velmar-upgrade watch --restart\" brings") };
    case 3:
        return { QStringLiteral("failed"),
                 QStringLiteral("Its last installation failed; it was not restarted since") };
    default:
        return { QStringLiteral("installing"),
                 QStringLiteral("It is installing, %1%").arg(installation.rate) };
    }
}

} // namespace

HostExitCode statusVerb(const CommandLine &options)
{
    return askDevice(
        options, [](Inquiry &inquiry, const DeviceFacts &facts, const ModelNames &names) {
            QString errorText;
            std::optional<ProtoModel::Auxiliary::s_UpgradePercent> installation;
            inquiry.await([&](const std::atomic<bool> &) {
                installation = readInstallation(facts.address, AnswerLimit, errorText,
                                                [&inquiry](const DeviceAddress &device) {
                                                    return inquiry.links().make(device);
                                                });
            });
            if (!installation)
                return inquiry.fail(VerdictCode::Unreachable, errorText, inquiry.logLines());
            const auto state = stateOf(*installation);
            auto object = deviceObject(facts, names);
            object.insert(QStringLiteral("state"), state.word);
            object.insert(QStringLiteral("percent"), installation->rate);
            inquiry.tell(RunEvent::Kind::Status, object,
                         QStringLiteral("%1\n%2\n").arg(deviceLine(facts, names), state.text));
            return inquiry.answered(state.text);
        });
}
