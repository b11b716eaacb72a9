#ifndef BENCH_PUGIXMLPACKAGES_H
#define BENCH_PUGIXMLPACKAGES_H

#include "records/upgraderecords.h"

#include <QString>
#include <QVector>

/*!
    The library's own reader of package folders, built once more with pugixml in place of the object
    serialiser: the same listing, files, records, lists and copies.

    It lives in a library of its own that shares no symbol with the other one.
*/
class __attribute__((visibility("default"))) PugixmlPackages
{
public:
    static bool read(const QString &path, QString &errorText);
    static QVector<Velmar::Firmware::UpgradeCfg> upgradeCfgs();
};

#endif // BENCH_PUGIXMLPACKAGES_H
