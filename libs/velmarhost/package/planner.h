#ifndef VELMARHOST_PLANNER_H
#define VELMARHOST_PLANNER_H

#include "package/plan.h"
#include "records/devicerecords.h"
#include "records/upgraderecords.h"
#include "run/verdict.h"

#include <QVector>

namespace Velmar::BizModel {
class Device;
}

namespace Velmar::Host {

class ModelNames;
class PackageListing;

/*! What a plan is made of. References have to last for the call. */
struct PlanOrder {
    Road road = Road::Native;
    const Wish &wish; //!< what the user named
    const Selection &selection; //!< what was chosen for it, by registers as chooseForRegisters()
    const QVector<Firmware::UpgradeCfg> &units; //!< of the library's parse for the device
    const QVector<Firmware::DataFilePath> &dataFilePaths; //!< of the same parse
    const PackageListing &listing; //!< of the same folder
    QString packagePath; //!< the folder, as parse and listing had it
    BizModel::Device &device;
    const ProtoModel::Auxiliary::s_DeviceVersion &versions; //!< as the device tells them now
    DeviceAddress address; //!< of the device; an empty host in a plan for a model alone
    QString serial; //!< as the device tells it
    QString name; //!< as the device tells it
    PlannedUpload upload; //!< for the HTTP road
    bool isOlderService = false; //!< over HTTP: chosen by chooseForOlderService()
    const ModelNames *modelNames = nullptr; //!< for the sentences; null: models by number alone
};

/*!
    Foretells what the upgrade library will send for \a order, file by file in its order, and tells
    why everything else that the package lists stays behind.

    Reads sizes from the disk and, if a file is given for an upload, that file; hashes are left to
    Plan::addHashes(). \a plan is filled as far as possible in either case.

    False if the library would not do what was picked, or would send what no device takes; \a code
    and \a errorText say so: NothingFits if nothing would be sent, NotPlanned if a section or card
    that the wish names would not be, PackageRefused if a file has no place on the device or is
    empty or missing.
*/
bool makePlan(const PlanOrder &order, Plan &plan, VerdictCode &code, QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_PLANNER_H
