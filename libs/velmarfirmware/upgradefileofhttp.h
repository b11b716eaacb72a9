#ifndef VELMARFIRMWARE_UPGRADEFILEOFHTTP_H
#define VELMARFIRMWARE_UPGRADEFILEOFHTTP_H

#include "records/devicerecords.h"
#include "velmarfirmware_export.h"

#include <QObject>

#include <functional>
#include <memory>
#include <vector>

namespace Velmar::SSProxy {
class DeviceChannel;
}

namespace Velmar::Firmware {

namespace Internal {
class UpgradeFileOfHTTPPrivate;
}

/*!
    Upgrades one device over the HTTP service that runs on it.

    Everything runs on the thread that made the object, which runs an event loop. Call init(), both
    register functions and then doDeviceUpgradeOfHTTP(); what follows is told by the callbacks, the
    status bar and message boxes.

    Keep one object for the life of the process: the destructor leaves the connections to the HTTP
    client and the callbacks in place, so that an upgrade of a later object reaches the callbacks of
    an earlier one, too. Never end the client, by UpgradeClientProxy::destoryInstance(), from a
    callback: those run inside its signals.
*/
class VELMARFIRMWARE_EXPORT UpgradeFileOfHTTP : public QObject
{
    Q_OBJECT

public:
    explicit UpgradeFileOfHTTP(QObject *parent = nullptr);

    /*!
        Stores what to upgrade; nothing is checked.

        With \a compatibility the device is asked for its version over \a channel, and the answer
        decides which generation of the service it has; without, it has the newer one and \a channel
        is not looked at. \a modelId is the device's model, \a parts the user's choice (newer
        generation only), \a filePath the file to upload and \a deviceIP the host of the service.
    */
    void init(bool compatibility, std::shared_ptr<SSProxy::DeviceChannel> channel,
              unsigned short modelId,
              const std::vector<ProtoModel::Auxiliary::s_CardInfoParts> &parts,
              const QString &filePath, const QString &deviceIP);

    /*! Replaces the address given to init(). */
    void setDeviceIP(const QString &ip);

    /*! \a callback is given each progress record, and may change it: what it leaves is judged. */
    void registerRefreshUpgradeProcessCallBack(
        std::function<void(ProtoModel::Auxiliary::s_UpgradePercent &)> callback);

    /*! \a callback is called at each end of an upgrade. One upgrade can end more than once: a
        network fault of the upload is told twice, and so are faults behind the end. Begin the next
        upgrade from the event loop and not from inside: the end of this one is noted only behind
        the call, and would hide a failure of the next. */
    void registerUpgradeFinishedCallBack(std::function<void()> callback);

    /*!
        Begins an upgrade and returns once the upload is under way.

        With the compatibility flag of init() set, blocks first until the device has told its
        version, or for the time-out of that request. False if there is nothing to send or the
        device refuses this road; the user has been told then, but for a missing channel. True says
        only that a request was composed.

        The callbacks have to be registered: an empty one throws std::bad_function_call out of the
        slot that calls it.
    */
    bool doDeviceUpgradeOfHTTP();

private:
    friend class Internal::UpgradeFileOfHTTPPrivate;

    // Outlives this object: it stays connected to the HTTP client for the life of the process.
    Internal::UpgradeFileOfHTTPPrivate *const d;
};

} // namespace Velmar::Firmware

#endif // VELMARFIRMWARE_UPGRADEFILEOFHTTP_H
