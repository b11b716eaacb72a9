#ifndef VELMARFIRMWARE_UPGRADEPROCESS_H
#define VELMARFIRMWARE_UPGRADEPROCESS_H

#include "records/devicerecords.h"
#include "records/upgraderecords.h"
#include "velmarfirmware_export.h"

#include <QObject>

#include <memory>
#include <vector>

namespace Velmar::BizModel {
class Device;
}

namespace Velmar::Firmware {

namespace Internal {
class UpgradeProcessPrivate;
}

/*!
    Upgrades one device over its native protocol, on a thread of its own.

    A run packs the chosen files into one image, sends it, has the device install it, watches the
    installation to its end, restarts the device and tells the outcome by signalUpgradeFinished().

    Keep the object until that signal has arrived and the worker has ended (start() tells how to
    wait for it): the destructor neither stops a run nor waits for it, and it leaves what a run
    needs behind it allocated. Both signals are emitted from the worker thread. The thread that
    makes the object has to run an event loop: the search for devices, which a run stops, is started
    again there 10 s after the order to restart.
*/
class VELMARFIRMWARE_EXPORT UpgradeProcess : public QObject
{
    Q_OBJECT

public:
    /*! Makes an idle object with the parameters of initUpgradeParam(). */
    UpgradeProcess(std::weak_ptr<BizModel::Device> device,
                   std::vector<ProtoModel::Auxiliary::s_CardInfoParts> upgradeParts,
                   QVector<UpgradeCfg> upgradeCfgs, QVector<DataFilePath> dataFilePaths,
                   const QString &packagePath);

    /*!
        Replaces all parameters. Nothing is checked here, and no run may be going on.

        \a device is the device to upgrade; it is not kept alive between the steps of a run.
        \a upgradeParts has one element for each card to upgrade, with the codes of its chosen
        sections; it decides which of \a upgradeCfgs and \a dataFilePaths, as
        UpgradeFileParsed::upgradeFileParam() gave them, go to the device. \a packagePath is the
        folder of the unpacked package; the image is written into it, as the file "upgrade".
    */
    void initUpgradeParam(std::weak_ptr<BizModel::Device> device,
                          std::vector<ProtoModel::Auxiliary::s_CardInfoParts> upgradeParts,
                          QVector<UpgradeCfg> upgradeCfgs, QVector<DataFilePath> dataFilePaths,
                          const QString &packagePath);

    /*!
        Begins a run on the worker thread and returns at once.

        Any \a type but FullUpgrade only watches an installation that is already going on and
        restarts the device behind it.

        The worker is still ending when signalUpgradeFinished() arrives, and starting a thread that
        has not ended does nothing: a run begun then would be lost without a signal. Make a new
        object for each upgrade; or, to use this one again, take QThread::currentThread() in a slot
        connected to signalUpgradeFinished() by Qt::DirectConnection, and call QThread::wait() on it
        from another thread before the next initUpgradeParam() or start().
    */
    void start(Enum::UpgradeProcessType type);

    /*!
        Copies the record of the last look at the device's progress to \a percent. Any thread, at
        any time.

        Everything is zero before the first look, and after one that failed unless the device layer
        left something in it. Behind the end of a run the last record stays. The percentage is the
        device's own, for the installation; that of the transfer is shown in the status bar only.
    */
    void upgradeProgressDetails(ProtoModel::Auxiliary::s_UpgradePercent &percent);

Q_SIGNALS:
    /*! The worker begins to look at the device's progress, every 2 s. */
    void signalStartReadUpgradeProgress();

    /*!
        A run has ended; emitted exactly once for each.

        \a resultInfo is for the user, translated. It tells of the restart too: a true \a result
        with a restart that failed is a legal outcome.
    */
    void signalUpgradeFinished(bool result, QString resultInfo);

private:
    friend class Internal::UpgradeProcessPrivate;

    // Outlives this object: the delayed start of the probe has it as its context.
    Internal::UpgradeProcessPrivate *const d;
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_UPGRADEPROCESS_H
