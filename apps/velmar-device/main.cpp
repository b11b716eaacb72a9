#include "devicestate.h"
#include "httpservice.h"
#include "options.h"
#include "terminationwatcher.h"

#include <velmarbizmodel/catalogue.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTextCodec>

#include <cstdio>

using namespace Velmar;
using namespace Velmar::Simulator;

namespace {

constexpr int ExitFailure = 1;
constexpr int ExitUsage = 64; // as in sysexits.h

int failure(const QString &sentence, int status)
{
    std::fprintf(stderr, "velmar-device: %s\n", qUtf8Printable(sentence));
    return status;
}

int show(const QString &text)
{
    std::fputs(qUtf8Printable(text), stdout);
    return 0;
}

void printEvent(const QJsonObject &event)
{
    std::printf("%s\n", QJsonDocument(event).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

QJsonObject readyEvent(const SimulatedDevice &device, const QHostAddress &address)
{
    const DeviceRecord &record = device.state().record();
    const std::optional<quint16> probePort = device.probePort();
    return {
        { "event", "ready" },
        { "address", address.toString() },
        { "port", device.port() },
        { "probePort", probePort ? QJsonValue(*probePort) : QJsonValue() },
        { "httpPort",
          device.generation() == Generation::None ? QJsonValue() : QJsonValue(HttpService::Port) },
        { "model", device.fitting().model().name },
        { "modelId", device.fitting().model().modelId },
        { "serial", record.serial },
        { "restarts", qint64(record.restarts) },
    };
}

std::optional<Fitting> fitDevice(const Options &options, QString &errorText)
{
    std::optional<BizModel::Catalogue> loaded;
    if (!options.catalogue.isEmpty()) {
        loaded = BizModel::Catalogue::load(options.catalogue, errorText);
        if (!loaded)
            return {};
    }
    const BizModel::Catalogue &catalogue = loaded ? *loaded : BizModel::Catalogue::builtin();
    return options.isFullyFitted
        ? Fitting::fullyFitted(catalogue, options.model, errorText)
        : Fitting::fromCards(catalogue, options.model, options.cards, errorText);
}

int runDevice(const Options &options)
{
    QString errorText;
    const std::optional<Fitting> fitting = fitDevice(options, errorText);
    if (!fitting)
        return failure(errorText, ExitUsage);
    QTemporaryDir temporaryState;
    DeviceSettings settings = options.device;
    if (settings.statePath.isEmpty()) {
        if (!temporaryState.isValid())
            return failure(QStringLiteral("There is no room for a temporary state folder."),
                           ExitFailure);
        settings.statePath = temporaryState.path();
    }
    const TerminationWatcher watcher;
    QObject::connect(&watcher, &TerminationWatcher::terminated, QCoreApplication::instance(),
                     &QCoreApplication::quit);
    SimulatedDevice device(*fitting, settings);
    QObject::connect(&device, &SimulatedDevice::ready, QCoreApplication::instance(),
                     [&] { printEvent(readyEvent(device, settings.address)); });
    QObject::connect(&device, &SimulatedDevice::away, QCoreApplication::instance(), [] {
        printEvent({ { "event", "away" } });
    });
    QObject::connect(&device, &SimulatedDevice::bricked, QCoreApplication::instance(), [] {
        printEvent({ { "event", "bricked" } });
    });
    if (!device.start(errorText))
        return failure(errorText, ExitFailure);
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    // Files are named alike whatever the locale: a destination path is UTF-8.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("velmar-device"));
    QString errorText;
    const std::optional<Options> options = Options::parse(QCoreApplication::arguments(), errorText);
    if (!options)
        return failure(errorText, ExitUsage);
    switch (options->action) {
    case Options::Action::ShowHelp:
        return show(Options::helpText());
    case Options::Action::ShowVersion:
        return show(QStringLiteral("velmar-device " VELMAR_VERSION "\n"));
    case Options::Action::Run:
        break;
    }
    return runDevice(*options);
}
