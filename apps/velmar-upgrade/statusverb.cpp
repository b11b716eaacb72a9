#include "verbs.h"

#include "console.h"
#include "device/devicefacts.h"
#include "device/modelnames.h"
#include "devicetext.h"
#include "process/logcapture.h"
#include "show/printable.h"
#include "steps.h"

#include <QJsonDocument>
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
    const auto address = options.deviceAddress();
    if (!address)
        return HostExitCode::Usage;
    const LogCapture log(options.isGiven("verbose") ? printLogLine : nullptr);
    const auto catalogue = useCatalogue(options);
    if (!catalogue)
        return HostExitCode::Usage;
    const ModelNames names(*catalogue);
    const auto facts = askForFacts(*address, log);
    if (!facts)
        return HostExitCode::Unreachable;
    QString errorText;
    const auto installation = readInstallation(*address, AnswerLimit, errorText);
    if (!installation)
        return complain(HostExitCode::Failed,
                        QStringLiteral("The device does not tell its progress: %1").arg(errorText));
    const auto state = stateOf(*installation);
    if (options.isGiven("json")) {
        auto object = deviceObject(*facts, names);
        object.insert(QStringLiteral("state"), state.word);
        object.insert(QStringLiteral("percent"), installation->rate);
        print(QString::fromUtf8(printableJson(QJsonDocument(object).toJson())));
    } else {
        print(QStringLiteral("%1\n%2\n").arg(deviceLine(*facts, names), state.text));
    }
    return HostExitCode::Ok;
}
