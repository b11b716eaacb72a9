// Makes and drops one of each object whose private part the library never frees, and makes the runs
// that leave something behind.

#include "compatibilityupgrade_dat.h"
#include "packageconfig.h"
#include "upgradeclientproxy.h"
#include "upgradefileofhttp.h"
#include "upgradefileparsed.h"
#include "upgradeprocess.h"

#include "support/encipheredfile.h"
#include "support/packagebuilder.h"
#include "support/registerlink.h"
#include "support/waituntil.h"

#include <velmarssproxy/devicechannel.h>

#include <QCoreApplication>

using namespace Velmar;

namespace {

// In functions of their own, so that no stale pointer on the stack keeps the objects reachable.

[[gnu::noinline]] void dropUpgradeProcess()
{
    const Firmware::UpgradeProcess process({}, {}, {}, {}, QString());
}

[[gnu::noinline]] void dropUpgradeFileParsed()
{
    const Firmware::UpgradeFileParsed parser(QString(), false, false, 0, 0);
}

// The HTTP client knows the private object by its connections: nothing is leaked before it has
// gone.
[[gnu::noinline]] void dropUpgradeFileOfHttp()
{
    const Firmware::UpgradeFileOfHTTP upgrade;
    UpgradeClientProxy::destoryInstance();
}

// A file with its six commands, as the MCU of a controller has them.
bool makePackage(const PackageBuilder &package)
{
    return package.index({ QStringLiteral("controller") })
        && package.unit(QStringLiteral("controller"), "ModuleID='7701' Version='3.2.1.0'",
                        "<FileInfo FileName='MCU.dat' FileLabel='MCU'>"
                        "<CommandConfig CmdName='SendCardIndex' Data='0'/>"
                        "<CommandConfig CmdName='SendDeviceID'/>"
                        "<CommandConfig CmdName='SendSenderFileType' Data='1-0'/>"
                        "<CommandConfig CmdName='SendFileLength'/>"
                        "<CommandConfig CmdName='SendFileCount'/>"
                        "<CommandConfig CmdName='SendFileData'/></FileInfo>")
        && storeEnciphered(package.path(QStringLiteral("controller/MCU.dat")), "firmware");
}

// The second run takes its package into the place of the first one's, which is dropped: what is
// counted here is what each run but the first costs.
[[gnu::noinline]] bool runRegisterRoadTwice()
{
    const PackageBuilder package;
    QString errorText;
    if (!makePackage(package)
        || !Firmware::PackageConfig::instance()->readConfig(package.path(), errorText))
        return false;
    ProtoModel::Auxiliary::s_CardInfoParts part;
    part.type = 1;
    part.modelId = 0x7701;
    const auto channel = std::make_shared<SSProxy::DeviceChannel>(std::make_shared<RegisterLink>());
    Firmware::CompatibilityUpgradeDat upgrade;
    int goodRuns = 0;
    QObject::connect(&upgrade, &Firmware::CompatibilityUpgradeDat::signalUpdateFinished, &upgrade,
                     [&goodRuns](bool isGood) { goodRuns += isGood ? 1 : 0; });
    const bool isDone = upgrade.update({ part }, channel)
        && waitUntil([&] { return goodRuns == 1; }) && upgrade.update({ part }, channel)
        && waitUntil([&] { return goodRuns == 2; });
    Firmware::PackageConfig::destroyInstance();
    return isDone;
}

[[gnu::noinline]] void overwriteStack()
{
    volatile char stack[16384];
    for (volatile char &byte : stack)
        byte = 0;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    dropUpgradeProcess();
    dropUpgradeFileParsed();
    dropUpgradeFileOfHttp();
    const bool isDone = runRegisterRoadTwice();
    overwriteStack();
    return isDone ? 0 : 1;
}
