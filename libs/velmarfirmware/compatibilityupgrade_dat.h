#ifndef VELMARFIRMWARE_COMPATIBILITYUPGRADE_DAT_H
#define VELMARFIRMWARE_COMPATIBILITYUPGRADE_DAT_H

#include "records/devicerecords.h"
#include "velmarfirmware_export.h"

#include <QObject>

#include <memory>
#include <vector>

namespace Velmar::SSProxy {
class DeviceChannel;
}

namespace Velmar::Firmware {

namespace Internal {
class CompatibilityUpgradeDatPrivate;
}

/*!
    Writes the MCU files of a package to a device register by register, on a thread of its own.

    The package is the one that was parsed last in this process; parsing another one must not
    overlap a run. The object can be used again once signalUpdateFinished() has come. It must not be
    destroyed during a run.
*/
class VELMARFIRMWARE_EXPORT CompatibilityUpgradeDat : public QObject
{
    Q_OBJECT

public:
    CompatibilityUpgradeDat();
    ~CompatibilityUpgradeDat() override;

    /*!
        Begins to write the files for \a parts over \a channel, which is open already.

        Of \a parts, those of type 1 are upgraded, one after the other, each with the unit of the
        package for its model. The channel's keep-alive is paused for the run, for 3 min at most.

        True if a run has begun: signalUpdateFinished() tells its outcome. False if \a channel has
        gone or \a parts is empty; no signal follows then. Not to be called during a run.
    */
    bool update(const std::vector<ProtoModel::Auxiliary::s_CardInfoParts> &parts,
                std::weak_ptr<SSProxy::DeviceChannel> channel);

Q_SIGNALS:
    /*! A part of a file has been written. \a type is 17; \a process is the fraction of this file,
        over 0 and up to 1. Not emitted for files of up to 4096 bytes. Comes from the worker. */
    void signalUpdateProcessChanged(int type, double process);

    /*!
        A run has ended; emitted once for each, on the thread of this object.

        \a errMsg is for the user, translated. It is the last one that any run of this object has
        worded: faults of the device or a file are in the log only, and a good run clears nothing.
    */
    void signalUpdateFinished(bool bResult, QString errMsg);

private:
    friend class Internal::CompatibilityUpgradeDatPrivate;

    Internal::CompatibilityUpgradeDatPrivate *const d;
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_COMPATIBILITYUPGRADE_DAT_H
