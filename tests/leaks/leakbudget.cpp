// Makes and drops one of each object whose private part the library never frees.

#include "upgradefileparsed.h"
#include "upgradeprocess.h"

#include <QCoreApplication>

using namespace Velmar;

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    {
        const Firmware::UpgradeProcess process({}, {}, {}, {}, QString());
    }
    {
        const Firmware::UpgradeFileParsed parser(QString(), false, false, 0, 0);
    }
    return 0;
}
