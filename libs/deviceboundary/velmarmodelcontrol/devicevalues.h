#ifndef VELMARMODELCONTROL_DEVICEVALUES_H
#define VELMARMODELCONTROL_DEVICEVALUES_H

#include "records/devicerecords.h"
#include <velmarmodelcontrol/file.h>

#include <QCborMap>
#include <QString>

#include <optional>
#include <vector>

/*!
    The records of the control layer as arguments and values on the device link.

    A key that the device leaves out leaves its member as it is; a value of the wrong type or out of
    the member's range is an error, and then nothing is read at all.
*/
namespace Velmar::ModelControl::Internal {

bool readVersion(const QCborMap &values, ProtoModel::Auxiliary::s_DeviceVersion &version,
                 QString &errorText);

/*! The key "result" may not be left out. */
bool readProgress(const QCborMap &values, ProtoModel::Auxiliary::s_UpgradePercent &percent,
                  QString &errorText);

/*! Number of an installation; none if the device tells none. */
bool readRun(const QCborMap &values, std::optional<quint32> &run, QString &errorText);

QCborMap upgradeArguments(const ProtoModel::Auxiliary::s_UpgradeDetail &detail);
QCborMap announceArguments(const std::vector<ProtoModel::File::s_FileInfo> &files);

} // namespace Velmar::ModelControl::Internal

#endif // VELMARMODELCONTROL_DEVICEVALUES_H
