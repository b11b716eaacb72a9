// Makes and drops one of each object whose private part the library never frees.

#include "upgradefileparsed.h"
#include "upgradeprocess.h"

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
    overwriteStack();
    return 0;
}
