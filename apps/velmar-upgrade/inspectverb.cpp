#include "verbs.h"

#include "console.h"
#include "device/devicesession.h"
#include "device/modelnames.h"
#include "inquiry.h"
#include "package/offer.h"
#include "package/packagecheck.h"
#include "package/packagecopy.h"
#include "package/packagelisting.h"
#include "package/packageparse.h"
#include "packagereport.h"
#include "show/printable.h"
#include "steps.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/deviceconfigmanager.h>

#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <vector>

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

std::unique_ptr<DeviceSession> openSession(Inquiry &inquiry, const DeviceAddress &address,
                                           QString &errorText)
{
    std::unique_ptr<DeviceSession> session;
    inquiry.await([&](const std::atomic<bool> &) {
        session = DeviceSession::open(inquiry.links().make(address), address.toString(), errorText);
    });
    return session;
}

/*! How reading a package by the upgrade library has ended. */
struct ParseEnd {
    bool isGood = false;
    bool isLeft = false; //!< the library is still at it; the process should end without waiting
    QString errorText;
};

/*! Runs \a parse for the active device, or for \a model if that is given. */
ParseEnd finishParse(Inquiry &inquiry, PackageParse &parse, std::optional<quint16> model)
{
    ParseEnd end;
    QEventLoop loop;
    QObject::connect(&parse, &PackageParse::signalEnded, &loop,
                     [&](bool result, const QString &errorText) {
                         end.isGood = result;
                         end.errorText = errorText;
                         loop.quit();
                     });
    if (model)
        parse.startForModel(*model, ParseLimit);
    else
        parse.start(ParseLimit);
    end.isLeft = !inquiry.await(loop) || parse.isWorkerLeftBehind();
    return end;
}

/*! Copies the package at \a folder: the library opens the index for writing, which the user's own
    folder is spared. */
std::unique_ptr<PackageCopy> copyPackage(Inquiry &inquiry, const QString &folder,
                                         const QString &workFolder, Verdict &refusal)
{
    std::unique_ptr<PackageCopy> copy;
    PackageCopyOptions options;
    options.baseFolder = workFolder;
    inquiry.await([&](const std::atomic<bool> &isCancelled) {
        copy = PackageCopy::make(folder, options, isCancelled, refusal.code, refusal.sentence);
    });
    return copy;
}

QString findingText(const PackageFinding &finding)
{
    return QStringLiteral("%1: %2 (%3)").arg(finding.place, finding.text, finding.code);
}

/*! The rules that \a copy breaks; of what else there is to say about it, users are warned. */
QStringList brokenRules(Inquiry &inquiry, const PackageCopy &copy)
{
    std::vector<PackageFinding> findings;
    inquiry.await([&](const std::atomic<bool> &isCancelled) {
        PackageCheckOptions options;
        options.isCancelled = &isCancelled;
        findings = checkPackage(copy.path(), copy.manifest(), options);
    });
    QStringList rules;
    for (const auto &finding : findings) {
        if (finding.isRefusal)
            rules.append(findingText(finding));
        else
            inquiry.warn(findingText(finding));
    }
    return rules;
}

/*! What an inspection is to match with: a device, a model, or nothing. */
struct Target {
    std::optional<DeviceAddress> device;
    std::optional<quint16> model;
};

HostExitCode inspectImageFile(Inquiry &inquiry, const QString &path, const CommandLine &options,
                              const DeviceAddress &address, const ModelNames &names)
{
    QString errorText;
    const auto session = openSession(inquiry, address, errorText);
    if (!session)
        return inquiry.fail(VerdictCode::Unreachable, errorText, inquiry.logLines());
    PackageParse parse(libraryPath(path));
    const auto end = finishParse(inquiry, parse, std::nullopt);
    if (end.isLeft)
        leaveProcess(inquiry.fail(VerdictCode::OutOfTime, end.errorText, inquiry.logLines()));
    if (!end.isGood)
        return inquiry.fail(VerdictCode::PackageRefused, end.errorText, inquiry.logLines());
    inquiry.tell(RunEvent::Kind::Inspection,
                 QJsonObject {
                     { QStringLiteral("imageConfiguration"), options.argument() },
                     { QStringLiteral("target"), deviceObject(*session, address, names) },
                 },
                 QStringLiteral("%1 is an image configuration file that %2 takes\n")
                     .arg(printable(path), address.toString()));
    return inquiry.answered(QStringLiteral("The device takes the image configuration file"));
}

HostExitCode inspectPackage(Inquiry &inquiry, const QString &folder, const CommandLine &options,
                            const Target &target, const ModelNames &names)
{
    Verdict refusal;
    auto copy = copyPackage(inquiry, folder, options.value("work-folder"), refusal);
    if (!copy)
        return inquiry.fail(refusal.code, refusal.sentence);
    const auto rules = brokenRules(inquiry, *copy);
    if (!rules.isEmpty())
        return inquiry.fail(VerdictCode::PackageRefused,
                            rules.size() == 1
                                ? QStringLiteral("The package breaks a rule")
                                : QStringLiteral("The package breaks %1 rules").arg(rules.size()),
                            rules);
    QString errorText;
    PackageListing listing;
    if (!listing.read(copy->path(), errorText))
        return inquiry.fail(VerdictCode::PackageRefused,
                            QStringLiteral("This is no package: %1").arg(errorText));
    PackageReport report(options.argument(), listing, names);
    std::unique_ptr<DeviceSession> session;
    if (target.device) {
        session = openSession(inquiry, *target.device, errorText);
        if (!session)
            return inquiry.fail(VerdictCode::Unreachable, errorText, inquiry.logLines());
    }
    PackageParse parse(copy->path());
    ParseEnd end { true, false, QString() };
    if (target.device || target.model)
        end = finishParse(inquiry, parse, target.device ? std::nullopt : target.model);
    if (end.isLeft) {
        const auto code = inquiry.fail(VerdictCode::OutOfTime, end.errorText, inquiry.logLines());
        copy.reset();
        leaveProcess(code);
    }
    if (target.device)
        report.setFitting(
            { QStringLiteral("%1 at %2")
                  .arg(names.describe(session->device()->modelId()), target.device->toString()),
              deviceObject(*session, *target.device, names), true },
            offeredParts(parse.units(), *session->device()));
    else if (target.model)
        report.setFitting(
            { names.describe(*target.model), modelObject(*target.model, names), false },
            offeredParts(
                parse.units(),
                *BizModel::DeviceConfigManager::instance()->findDeviceConfigByID(*target.model)));
    inquiry.tell(RunEvent::Kind::Inspection, report.json(), report.text());
    // The package has been checked: what the library then does not take is for another device.
    if (!end.isGood)
        return inquiry.fail(VerdictCode::NothingFits, end.errorText, inquiry.logLines());
    return inquiry.answered(QStringLiteral("The package can be used"));
}

} // namespace

HostExitCode inspectVerb(const CommandLine &options)
{
    if (options.isGiven("device") && options.isSet("model"))
        return complain(
            VerdictCode::Usage,
            QStringLiteral("--device and --model exclude each other. Give one of them"));
    const auto catalogue = useCatalogue(options);
    if (!catalogue || !useKeyFile(options))
        return HostExitCode::Usage;
    const ModelNames names(*catalogue);

    Target target;
    if (options.isSet("model")) {
        const auto text = options.value("model");
        target.model = names.findDeviceModel(text);
        if (!target.model)
            return complain(
                VerdictCode::Usage,
                QStringLiteral("--model: there is no device model \"%1\". There are: %2")
                    .arg(printable(text), names.deviceModels()));
    } else if (options.isSet("device")) { // of the settings, too, which a model goes before
        target.device = options.deviceAddress();
        if (!target.device)
            return HostExitCode::Usage;
    }
    const QString path = libraryPath(options.argument());
    const bool isImageFile = QFileInfo(path).isFile();
    if (isImageFile && !target.device)
        return complain(VerdictCode::Usage,
                        QStringLiteral("An image configuration file is read against a device. Add "
                                       "--device HOST[:PORT]"));
    Inquiry inquiry(options, options.isGiven("quiet"));
    if (!inquiry.begin())
        return HostExitCode::Usage;
    return isImageFile ? inspectImageFile(inquiry, path, options, *target.device, names)
                       : inspectPackage(inquiry, path, options, target, names);
}
