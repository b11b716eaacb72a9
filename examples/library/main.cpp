// Upgrades a device with all that fits it of a package: library-example PACKAGE HOST[:PORT]

#include "device/deviceaddress.h"
#include "device/devicesession.h"
#include "package/offer.h"
#include "package/selection.h"
#include "upgradefileparsed.h"
#include "upgradeprocess.h"

#include <QCoreApplication>
#include <QDebug>

using namespace Velmar;

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QString package = application.arguments().value(1);
    QString error;
    const auto address = Host::DeviceAddress::parse(application.arguments().value(2), 9720, error);
    const auto session = address ? Host::DeviceSession::open(*address, error) : nullptr;
    if (!session)
        qFatal("%s", qPrintable(error));

    const auto end = [](bool result, const QString &text) {
        qInfo().noquote() << text;
        QCoreApplication::exit(result ? 0 : 1);
    };
    std::unique_ptr<Firmware::UpgradeProcess> process;
    const auto upgrade = [&](Firmware::UpgradeFileParsed &parser) {
        QVector<Firmware::UpgradeCfg> units;
        QVector<Firmware::DataFilePath> dataFiles;
        QVector<QPair<int, QString>> sections; // what a host offers to its user
        parser.upgradeFileParam(units, dataFiles, sections);
        Host::Selection all;
        if (!all.choose(Host::offeredParts(units, *session->device()), {}, error))
            return end(false, error);
        process = std::make_unique<Firmware::UpgradeProcess>(session->device(), all.cardInfoParts(),
                                                             units, dataFiles, package);
        // With a receiver, so that the slot runs here and not in the worker.
        QObject::connect(process.get(), &Firmware::UpgradeProcess::signalUpgradeFinished,
                         &application, end);
        process->start(Firmware::Enum::UpgradeProcessType::FullUpgrade);
    };
    Firmware::UpgradeFileParsed parser(package, false, false, 0, 0);
    QObject::connect(
        &parser, &Firmware::UpgradeFileParsed::signalParsedUpgradeFileFinished, &application,
        [&](bool result, const QString &text) { result ? upgrade(parser) : end(false, text); });
    parser.startParseFile();
    return application.exec();
}
