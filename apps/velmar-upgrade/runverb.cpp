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

constexpr const char *Section = "section";
constexpr const char *Card = "card";
constexpr const char *Road = "road";
constexpr const char *File = "file";
constexpr const char *Compatibility = "compatibility";
constexpr const char *HttpHost = "http-host";
constexpr const char *StallTimeout = "stall-timeout";

const auto RegisterRoad = QStringLiteral("registers");
const auto HttpRoad = QStringLiteral("http");

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
    if (road == RegisterRoad && (options.isSet(Section) || options.isSet(Card)))
        return !isUsageError(
            QStringLiteral("Nothing but the main control's MCU goes register by register. Leave "
                           "--section and --card out"));
    for (const char *option : { File, Compatibility, HttpHost, StallTimeout }) {
        if (road != HttpRoad && options.isGiven(option))
            return !isUsageError(
                QStringLiteral("--%1 is for --road http alone").arg(QLatin1String(option)));
    }
    return true;
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

HostExitCode runVerb(const CommandLine &options)
{
    if (options.argument().isEmpty())
        return complain(HostExitCode::Usage,
                        QStringLiteral("PACKAGE is missing. See velmar-upgrade run --help"));
    const auto address = options.deviceAddress();
    if (!address)
        return HostExitCode::Usage;
    const auto timeLimit = options.timeLimit();
    if (!isRoadInOrder(options))
        return HostExitCode::Usage;
    const bool isAgreed = options.isSet("yes");
    if (!isAgreed && !isInteractive())
        return complain(
            HostExitCode::Usage,
            QStringLiteral("Nobody can be asked: the input is no terminal. Add --yes to "
                           "upgrade without a question"));
    const bool isVerbose = options.isSet("verbose");
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
    if (!finishParse(parse, std::nullopt, timeLimit, log))
        return HostExitCode::PackageRefused;

    Selection selection;
    if (!choose(options, path, parse.units(), *session->device(), selection))
        return HostExitCode::PackageRefused;
    print(choiceText(selection, *session, *address, ModelNames(*catalogue)));
    const auto spent = std::chrono::milliseconds(elapsed.elapsed());
    if (!isAgreed && !isConfirmed(QStringLiteral("Upgrade and restart the device?")))
        return complain(HostExitCode::Interrupted, QStringLiteral("The device stays as it was"));

    log.clear(); // what the parse logged is no cause of what the run does
    const auto rest = std::max(timeLimit - spent, std::chrono::milliseconds(1));
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
        const std::chrono::seconds stallLimit(options.number(StallTimeout));
        return supervise(
            run, [&] { run.start(rest, stallLimit); }, httpRoadTexts(), isVerbose, log);
    }
    UpgradeRun run(order);
    return supervise(
        run, [&] { run.start(Firmware::Enum::UpgradeProcessType::FullUpgrade, rest); },
        nativeRoadTexts(address->toString()), isVerbose, log);
}
