#include "verbs.h"

#include "console.h"
#include "devicesession.h"
#include "logcapture.h"
#include "modelnames.h"
#include "offer.h"
#include "packageparse.h"
#include "printable.h"
#include "selection.h"
#include "steps.h"
#include "supervise.h"
#include "upgraderun.h"

#include <velmarbizmodel/device.h>

#include <QElapsedTimer>
#include <QFileInfo>

#include <algorithm>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

void describeOptions(CommandLine &options)
{
    options.addArgument(QStringLiteral("PACKAGE"), QStringLiteral("The package folder."));
    options.addDevice();
    options.addOption(QStringLiteral("section"),
                      QStringLiteral("Upgrade sections of this name alone. Repeatable."),
                      QStringLiteral("NAME"));
    options.addOption(QStringLiteral("card"),
                      QStringLiteral("Upgrade the card in this slot alone; \"main\" is the main "
                                     "control. Repeatable."),
                      QStringLiteral("SLOT"));
    options.addOption(QStringLiteral("yes"), QStringLiteral("Do not ask before the upgrade."));
    options.addTimeout();
    options.addOption(QStringLiteral("key-file"),
                      QStringLiteral("Key of the enciphered files, in place of the demonstration "
                                     "key."),
                      QStringLiteral("FILE"));
    options.addCatalogue();
    options.addVerbose();
}

QString choiceText(const Selection &selection, const DeviceSession &session,
                   const DeviceAddress &address, const ModelNames &names)
{
    QString text =
        QStringLiteral("%1 \"%2\", serial %3, at %4 gets:\n")
            .arg(printable(names.describe(session.device()->modelId())), printable(session.name()),
                 printable(session.serial()), address.toString());
    for (const auto &part : selection.parts())
        text += QStringLiteral("  %1\n").arg(summary({ part }));
    return text;
}

} // namespace

HostExitCode runVerb(const QStringList &arguments)
{
    CommandLine options(
        QStringLiteral("run PACKAGE --device HOST[:PORT] [options]"),
        QStringLiteral(
            "Upgrades a device with all that fits it of a package, or with the sections\n"
            "and cards that are named, and restarts it."));
    describeOptions(options);
    if (const auto code = options.parse(arguments))
        return *code;
    const auto address = options.deviceAddress();
    if (!address)
        return HostExitCode::Usage;
    const auto timeLimit = options.timeLimit();
    if (!timeLimit)
        return HostExitCode::Usage;
    const bool isAgreed = options.isSet(QStringLiteral("yes"));
    if (!isAgreed && !isInteractive())
        return complain(
            HostExitCode::Usage,
            QStringLiteral("Nobody can be asked: the input is no terminal. Add --yes to "
                           "upgrade without a question"));
    const bool isVerbose = options.isSet(QStringLiteral("verbose"));
    LogCapture log(isVerbose ? printLogLine : nullptr);
    const auto catalogue = useCatalogue(options);
    if (!catalogue || !useKeyFile(options))
        return HostExitCode::Usage;

    const QString path = libraryPath(options.argument());
    if (QFileInfo(path).isFile())
        return complain(HostExitCode::NothingFits,
                        QStringLiteral("%1 is a file; only a package folder can be installed")
                            .arg(printable(path)));
    QElapsedTimer elapsed;
    elapsed.start();
    const auto session = openSession(*address, log);
    if (!session)
        return HostExitCode::Unreachable;
    PackageParse parse(path);
    if (!finishParse(parse, std::nullopt, *timeLimit, log))
        return HostExitCode::NothingFits;

    Selection selection;
    QString errorText;
    const Wish wish { options.values(QStringLiteral("section")),
                      options.values(QStringLiteral("card")) };
    if (!selection.choose(offeredParts(parse.units(), *session->device()), wish, errorText))
        return complain(HostExitCode::NothingFits, errorText);
    print(choiceText(selection, *session, *address, ModelNames(*catalogue)));
    const auto spent = std::chrono::milliseconds(elapsed.elapsed());
    if (!isAgreed && !isConfirmed(QStringLiteral("Upgrade and restart the device?")))
        return complain(HostExitCode::Interrupted, QStringLiteral("The device stays as it was"));

    log.clear(); // what the parse logged is no cause of what the run does
    UpgradeRun run({ session->device(), selection.cardInfoParts(), parse.units(),
                     parse.dataFilePaths(), path });
    const auto rest = std::max(*timeLimit - spent, std::chrono::milliseconds(1));
    return supervise(run, Firmware::Enum::UpgradeProcessType::FullUpgrade, rest,
                     address->toString(), isVerbose, log);
}
