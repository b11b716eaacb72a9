#ifndef VELMARDEVICE_LINKOPERATIONS_H
#define VELMARDEVICE_LINKOPERATIONS_H

#include <QCborMap>
#include <QString>

namespace Velmar::Simulator {

class DeviceState;
class Fitting;
class OperationTable;

/*! Who the device is: what it tells of itself in hello, in version.read and to the probe. */
struct Identity {
    const Fitting &fitting;
    const DeviceState &state;
    QString name;
};

/*! The versions of the device and of all its parts, as version.read tells them. */
QCborMap readVersions(const Identity &identity);

/*! Adds hello, ping, heartbeat.pause, heartbeat.resume and version.read. What \a identity refers to
    has to outlive \a table. */
void addLinkOperations(OperationTable &table, const Identity &identity);

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_LINKOPERATIONS_H
