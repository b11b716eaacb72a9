#ifndef VELMARDEVICE_DEVICESTATE_H
#define VELMARDEVICE_DEVICESTATE_H

#include "devicerecord.h"

#include <functional>
#include <memory>

namespace Velmar::Simulator {

class StateFolder;

/*!
    The record of a device, as it stands on disk.

    The file is replaced at once, so a stop at any moment leaves the old record or the new one.
*/
class DeviceState
{
public:
    /*! Version of every section that nothing was ever installed in. */
    static constexpr char FactoryVersion[] = "1.0.0.0";

    /*!
        The record in \a folder, or a new one for a device of \a modelId.

        Null, with \a errorText set, if the record cannot be read or belongs to a device of another
        model; it stays as it is then.
    */
    static std::unique_ptr<DeviceState> load(const StateFolder &folder, quint16 modelId,
                                             QString &errorText);

    const DeviceRecord &record() const { return m_record; }

    /*! Lets \a change work on the record, and writes it. False, with \a errorText set and the
        record as it was, if the disk does not take it. */
    bool update(const std::function<void(DeviceRecord &)> &change, QString &errorText);

    /*! Version that the section \a key reports. */
    QString runningVersion(const SectionKey &key) const;

private:
    DeviceState(QString path, QString folder, DeviceRecord record);

    const QString m_path;
    const QString m_folder;
    DeviceRecord m_record;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_DEVICESTATE_H
