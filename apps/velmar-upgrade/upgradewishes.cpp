#include "upgradewishes.h"

#include "console.h"
#include "show/printable.h"
#include "steps.h"

using namespace Velmar;
using namespace Velmar::Host;

namespace {

bool isUsageError(const QString &sentence)
{
    complain(VerdictCode::Usage, sentence);
    return true;
}

/*! Whether the options that depend on the road are in order; tells the error if not. */
bool isRoadInOrder(const CommandLine &options, Road road)
{
    if (road == Road::Registers && (options.isGiven("section") || options.isGiven("card")))
        return !isUsageError(
            QStringLiteral("Nothing but the main control's MCU goes register by register. Leave "
                           "--section and --card out"));
    if (road == Road::Http)
        return true;
    for (const char *option : { "file", "compatibility", "http-host" }) {
        if (options.isGiven(option))
            return !isUsageError(
                QStringLiteral("--%1 is for --road http alone").arg(QLatin1String(option)));
    }
    return true;
}

/*! The plan of --plan, of which nothing may be said otherwise; tells the error if there is none. */
std::optional<Plan> givenPlan(const CommandLine &options)
{
    for (const char *option : { "section", "card", "road", "file", "compatibility", "http-host" }) {
        if (options.isGiven(option)) {
            complain(VerdictCode::Usage,
                     QStringLiteral("--%1 is settled by the plan. Leave it out")
                         .arg(QLatin1String(option)));
            return std::nullopt;
        }
    }
    QString errorText;
    auto plan = Plan::load(options.value("plan"), errorText);
    if (!plan)
        complain(VerdictCode::Usage, QStringLiteral("--plan: ") + errorText);
    return plan;
}

bool takePlan(const CommandLine &options, UpgradeWish &wish)
{
    wish.plan = givenPlan(options);
    if (!wish.plan)
        return false;
    wish.road = wish.plan->road;
    wish.wish = wish.plan->wish;
    wish.upload = wish.plan->upload;
    wish.packagePath =
        options.argument().isEmpty() ? wish.plan->packagePath : libraryPath(options.argument());
    wish.device = wish.plan->device.address;
    if (!options.isSet("device"))
        return true;
    const auto address = options.deviceAddress();
    if (address)
        wish.device = *address;
    return address.has_value();
}

bool takeOptions(const CommandLine &options, UpgradeWish &wish)
{
    if (options.argument().isEmpty())
        return !isUsageError(
            QStringLiteral("No package is named: give PACKAGE, or --plan FILE. See "
                           "velmar-upgrade run --help"));
    wish.road = *roadOf(options.value("road"));
    if (!isRoadInOrder(options, wish.road))
        return false;
    wish.wish = { options.values("section"), options.values("card") };
    wish.packagePath = libraryPath(options.argument());
    wish.upload.isCompatible = options.isGiven("compatibility");
    if (options.isGiven("file"))
        wish.upload.filePath = libraryPath(options.value("file"));
    if (options.isGiven("http-host")) {
        QString errorText;
        const auto host = DeviceAddress::parse(options.value("http-host"), 0, errorText);
        if (!host || host->port != 0)
            return !isUsageError(QStringLiteral("--http-host: \"%1\" is no host name or address "
                                                "without a port: the service's is 8080")
                                     .arg(printable(options.value("http-host"))));
        wish.upload.host = host->host;
    }
    const auto address = options.deviceAddress();
    if (address)
        wish.device = *address;
    return address.has_value();
}

} // namespace

std::optional<UpgradeWish> upgradeWish(const CommandLine &options, Goal goal)
{
    UpgradeWish wish;
    wish.goal = goal;
    const bool hasPlan = goal == Goal::Upgrade && options.isGiven("plan");
    if (!(hasPlan ? takePlan(options, wish) : takeOptions(options, wish)))
        return std::nullopt;
    if (!useCatalogue(options) || !useKeyFile(options))
        return std::nullopt;
    if (options.isSet("catalogue"))
        wish.cataloguePath = libraryPath(options.value("catalogue"));
    if (options.isSet("key-file"))
        wish.keyFilePath = libraryPath(options.value("key-file"));
    return wish;
}
