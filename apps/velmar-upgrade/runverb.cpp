#include "verbs.h"

#include "console.h"
#include "device/devicesession.h"
#include "device/modelnames.h"
#include "package/offer.h"
#include "package/packagelisting.h"
#include "package/packageparse.h"
#include "package/registerchoice.h"
#include "package/selection.h"
#include "process/logcapture.h"
#include "run/httprun.h"
#include "run/imagebuild.h"
#include "run/registerrun.h"
#include "run/upgraderun.h"
#include "show/printable.h"
#include "steps.h"
#include "supervise.h"

#include <velmarbizmodel/device.h>

#include <QElapsedTimer>
#include <QFileInfo>

#include <algorithm>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

const auto Section = QStringLiteral("section");
const auto Card = QStringLiteral("card");
const auto Road = QStringLiteral("road");
const auto NativeRoad = QStringLiteral("native");
const auto RegisterRoad = QStringLiteral("registers");
const auto HttpRoad = QStringLiteral("http");
const auto File = QStringLiteral("file");
const auto Compatibility = QStringLiteral("compatibility");
const auto HttpHost = QStringLiteral("http-host");
const auto StallTimeout = QStringLiteral("stall-timeout");

void describeOptions(CommandLine &options)
{
    options.addArgument(QStringLiteral("PACKAGE"), QStringLiteral("The package folder."));
    options.addDevice();
    options.addOption(Section, QStringLiteral("Upgrade sections of this name alone. Repeatable."),
                      QStringLiteral("NAME"));
    options.addOption(Card,
                      QStringLiteral("Upgrade the card in this slot alone; \"main\" is the main "
                                     "control. Repeatable."),
                      QStringLiteral("SLOT"));
    options.addOption(Road,
                      QStringLiteral("How the device gets its firmware: \"%1\", \"%3\" for the "
                                     "device's HTTP service, or \"%2\" for the main control's MCU "
                                     "register by register; %1 unless set.")
                          .arg(NativeRoad, RegisterRoad, HttpRoad),
                      QStringLiteral("ROAD"), NativeRoad);
    options.addOption(
        File,
        QStringLiteral("With --road http: the image to upload; built of what is chosen unless "
                       "set."),
        QStringLiteral("FILE"));
    options.addOption(Compatibility,
                      QStringLiteral("With --road http: let the device's version decide on the "
                                     "generation of its service; the newer one otherwise."));
    options.addOption(HttpHost,
                      QStringLiteral("With --road http: host of the service, which listens on port "
                                     "8080; the device's unless set."),
                      QStringLiteral("HOST"));
    options.addOption(
        StallTimeout,
        QStringLiteral("With --road http: give up when nothing is heard of the device "
                       "for so long, from 1 to 86400; 60 unless set."),
        QStringLiteral("SECONDS"), QStringLiteral("60"));
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

bool isUsageError(const QString &sentence)
{
    complain(HostExitCode::Usage, sentence);
    return true;
}

/*! Whether --road and what depends on it are in order; tells the error if not. */
bool isRoadInOrder(const CommandLine &options)
{
    const auto road = options.value(Road);
    const bool isHttp = road == HttpRoad;
    if (!isHttp && road != NativeRoad && road != RegisterRoad)
        return !isUsageError(
            QStringLiteral("--road: there is no road \"%1\". There are: %2, %3, %4")
                .arg(printable(road), NativeRoad, HttpRoad, RegisterRoad));
    if (road == RegisterRoad && (options.isSet(Section) || options.isSet(Card)))
        return !isUsageError(
            QStringLiteral("Nothing but the main control's MCU goes register by register. Leave "
                           "--section and --card out"));
    for (const auto &option : { File, Compatibility, HttpHost, StallTimeout }) {
        if (!isHttp && options.isSet(option))
            return !isUsageError(QStringLiteral("--%1 is for --road http alone").arg(option));
    }
    return !isHttp || options.number(StallTimeout, 1, 86400);
}

/*! Chooses for the road of \a options what of \a units fits; tells the error if that is nothing. */
bool choose(const CommandLine &options, const QString &path,
            const QVector<Firmware::UpgradeCfg> &units, BizModel::Device &device,
            Selection &selection)
{
    const auto offered = offeredParts(units, device);
    QString errorText;
    if (options.value(Road) == RegisterRoad) {
        PackageListing listing;
        if (!listing.read(path, errorText))
            errorText = printable(errorText);
        else if (chooseForRegisters(offered, listing, device.modelId(), selection, errorText))
            return true;
    } else if (selection.choose(offered, { options.values(Section), options.values(Card) },
                                errorText)) {
        return true;
    }
    complain(HostExitCode::PackageRefused, errorText);
    return false;
}

/*! Builds the image of what was chosen; tells the error if that fails. */
bool buildImage(ImageBuild &image, std::chrono::milliseconds timeLimit, LogCapture &log)
{
    print(QStringLiteral("Building the image of what was chosen\n"));
    QString errorText;
    if (!image.run(timeLimit, errorText)) {
        complain(HostExitCode::Failed, printable(errorText));
        printCause(log.lastLines());
        return false;
    }
    log.clear(); // that the library was kept from sending is no cause of what follows
    return true;
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
    if (!timeLimit || !isRoadInOrder(options))
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
        return complain(HostExitCode::PackageRefused,
                        QStringLiteral("%1 is a file; only a package folder can be installed")
                            .arg(printable(path)));
    QElapsedTimer elapsed;
    elapsed.start();
    const auto session = openSession(*address, log);
    if (!session)
        return HostExitCode::Unreachable;
    PackageParse parse(path);
    if (!finishParse(parse, std::nullopt, *timeLimit, log))
        return HostExitCode::PackageRefused;

    Selection selection;
    if (!choose(options, path, parse.units(), *session->device(), selection))
        return HostExitCode::PackageRefused;
    print(choiceText(selection, *session, *address, ModelNames(*catalogue)));
    const auto spent = std::chrono::milliseconds(elapsed.elapsed());
    if (!isAgreed && !isConfirmed(QStringLiteral("Upgrade and restart the device?")))
        return complain(HostExitCode::Interrupted, QStringLiteral("The device stays as it was"));

    log.clear(); // what the parse logged is no cause of what the run does
    const auto rest = std::max(*timeLimit - spent, std::chrono::milliseconds(1));
    if (options.value(Road) == RegisterRoad) {
        RegisterRun run(session->device()->link(), registerParts(selection));
        return supervise(
            run, [&] { run.start(rest); }, registerRoadTexts(), isVerbose, log);
    }
    const UpgradeOrder order { session->device(), selection.cardInfoParts(), parse.units(),
                               parse.dataFilePaths(), path };
    if (options.value(Road) == HttpRoad) {
        ImageBuild image(order);
        if (!options.isSet(File) && !buildImage(image, rest, log))
            return HostExitCode::Failed;
        HttpRun run({ options.isSet(Compatibility), session->device()->link(),
                      session->device()->modelId(), selection.cardInfoParts(),
                      options.isSet(File) ? libraryPath(options.value(File)) : image.imagePath(),
                      options.isSet(HttpHost) ? options.value(HttpHost) : address->host });
        const std::chrono::seconds stallLimit(*options.number(StallTimeout, 1, 86400));
        return supervise(
            run, [&] { run.start(rest, stallLimit); }, httpRoadTexts(), isVerbose, log);
    }
    UpgradeRun run(order);
    return supervise(
        run, [&] { run.start(Firmware::Enum::UpgradeProcessType::FullUpgrade, rest); },
        nativeRoadTexts(address->toString()), isVerbose, log);
}
