#include "verbs.h"

#include "console.h"
#include "device/devicesession.h"
#include "device/modelnames.h"
#include "package/offer.h"
#include "package/packagecheck.h"
#include "package/packagecopy.h"
#include "package/packagelisting.h"
#include "package/packageparse.h"
#include "packagereport.h"
#include "process/logcapture.h"
#include "show/printable.h"
#include "steps.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/deviceconfigmanager.h>

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

constexpr std::chrono::minutes ParseLimit { 1 };

QJsonObject modelObject(quint16 modelId, const ModelNames &names)
{
    return { { QStringLiteral("modelId"), modelId },
             { QStringLiteral("model"), names.describe(modelId) } };
}

QJsonObject deviceObject(const DeviceSession &session, const DeviceAddress &address,
                         const ModelNames &names)
{
    QJsonArray cards;
    for (const auto &card : session.device()->subcards()) {
        auto object = modelObject(static_cast<quint16>(card->modelId()), names);
        object.insert(QStringLiteral("slotId"), card->slotId());
        object.insert(QStringLiteral("boardId"), card->boardId());
        cards.append(object);
    }
    auto object = modelObject(session.device()->modelId(), names);
    object.insert(QStringLiteral("address"), address.toString());
    object.insert(QStringLiteral("serial"), session.serial());
    object.insert(QStringLiteral("name"), session.name());
    object.insert(QStringLiteral("cards"), cards);
    return object;
}

HostExitCode inspectImageFile(const QString &path, const CommandLine &options,
                              const ModelNames &names, const LogCapture &log)
{
    const auto address = options.isSet("device") ? options.deviceAddress() : std::nullopt;
    if (!address)
        return complain(HostExitCode::Usage,
                        QStringLiteral("An image configuration file is read against a device. Add "
                                       "--device HOST[:PORT]"));
    const auto session = openSession(*address, log);
    if (!session)
        return HostExitCode::Unreachable;
    PackageParse parse(libraryPath(path));
    if (!finishParse(parse, std::nullopt, ParseLimit, log))
        return HostExitCode::PackageRefused;
    if (options.isGiven("json")) {
        const QJsonObject object {
            { QStringLiteral("imageConfiguration"), options.argument() },
            { QStringLiteral("target"), deviceObject(*session, *address, names) },
        };
        print(QString::fromUtf8(printableJson(QJsonDocument(object).toJson())));
    } else {
        printLine(QStringLiteral("%1 is an image configuration file that %2 takes")
                      .arg(printable(path), address->toString()));
    }
    return HostExitCode::Ok;
}

} // namespace

HostExitCode inspectVerb(const CommandLine &options)
{
    const bool hasModel = options.isSet("model");
    // A device of the settings gives way to a model of the command line.
    const bool hasDevice = options.isSet("device") && !hasModel;
    if (options.isGiven("device") && hasModel)
        return complain(
            HostExitCode::Usage,
            QStringLiteral("--device and --model exclude each other. Give one of them"));
    const LogCapture log(options.isSet("verbose") ? printLogLine : nullptr);
    const auto catalogue = useCatalogue(options);
    if (!catalogue || !useKeyFile(options))
        return HostExitCode::Usage;
    const ModelNames names(*catalogue);

    const auto modelText = options.value("model");
    const auto model = hasModel ? names.findDeviceModel(modelText) : std::nullopt;
    if (hasModel && !model)
        return complain(HostExitCode::Usage,
                        QStringLiteral("--model: there is no device model \"%1\". There are: %2")
                            .arg(printable(modelText), printable(names.deviceModels())));

    const QString folder = libraryPath(options.argument());
    if (QFileInfo(folder).isFile())
        return inspectImageFile(folder, options, names, log);

    // The library opens the index for writing, which the user's own folder is spared.
    QString errorText;
    auto refusal = VerdictCode::Internal;
    PackageCopyOptions copyOptions;
    copyOptions.baseFolder = options.value("work-folder");
    const std::atomic<bool> isCancelled { false };
    const auto copy = PackageCopy::make(folder, copyOptions, isCancelled, refusal, errorText);
    if (!copy)
        return complain(verdictExitCode(refusal), printable(errorText));
    const auto findings = checkPackage(copy->path(), copy->manifest());
    for (const auto &finding : findings)
        printError(
            printable(QStringLiteral("%1: %2 (%3)").arg(finding.place, finding.text, finding.code))
            + QLatin1Char('\n'));
    if (firstRefusal(findings))
        return complain(HostExitCode::PackageRefused,
                        QStringLiteral("The package breaks the rules named above"));
    const auto path = copy->path();
    PackageListing listing;
    if (!listing.read(path, errorText))
        return complain(HostExitCode::PackageRefused,
                        QStringLiteral("This is no package: %1").arg(printable(errorText)));
    PackageReport report(options.argument(), listing, names);
    auto code = HostExitCode::Ok;
    if (hasDevice) {
        const auto address = options.deviceAddress();
        if (!address)
            return HostExitCode::Usage;
        const auto session = openSession(*address, log);
        if (!session)
            return HostExitCode::Unreachable;
        PackageParse parse(path);
        if (!finishParse(parse, std::nullopt, ParseLimit, log))
            code = HostExitCode::PackageRefused;
        report.setFitting(
            { QStringLiteral("%1 at %2")
                  .arg(names.describe(session->device()->modelId()), address->toString()),
              deviceObject(*session, *address, names), true },
            offeredParts(parse.units(), *session->device()));
    } else if (model) {
        PackageParse parse(path);
        if (!finishParse(parse, model, ParseLimit, log))
            code = HostExitCode::PackageRefused;
        const auto *config =
            BizModel::DeviceConfigManager::instance()->findDeviceConfigByID(*model);
        report.setFitting({ names.describe(*model), modelObject(*model, names), false },
                          offeredParts(parse.units(), *config));
    }
    if (!options.isGiven("json"))
        print(report.text());
    else if (code == HostExitCode::Ok) // the one line of an error is its verdict
        print(QString::fromUtf8(report.json()));
    return code;
}
