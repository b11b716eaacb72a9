#ifndef VELMARBIZMODEL_DEVICELIST_H
#define VELMARBIZMODEL_DEVICELIST_H

#include "velmarbizmodel_export.h"
#include <velmarbizmodel/enums.h>

#include <QMutex>
#include <QObject>

#include <memory>

namespace Velmar::BizModel {

class Device;

/*!
    The device in use, and the way to the host's screen.

    One object for the process; it may be used and its signals may be emitted from any thread.
*/
class VELMARBIZMODEL_EXPORT DeviceList : public QObject
{
    Q_OBJECT

public:
    static DeviceList *instance();

    /*! The device in use; empty if there is none. */
    std::weak_ptr<Device> activedDevice();

    /*! Makes \a device the one in use. The caller keeps the ownership. */
    void setActivedDevice(std::weak_ptr<Device> device);

Q_SIGNALS:
    /*! Shows \a text in the host's status bar for \a milliseconds. An empty text for 1 ms clears
        the bar. */
    void signalShowStatusBarMsg(Velmar::BizModel::Enum::StatusBarMsgType type, QString text,
                                int milliseconds);

    /*! Shows a message box with \a text. The result is of no meaning. */
    int signalShowFramelessMessageBoxMsg(Velmar::BizModel::Enum::FramelessMessageBoxMsgType type,
                                         QString text);

private:
    DeviceList();

    QMutex m_mutex; // guards m_activedDevice
    std::weak_ptr<Device> m_activedDevice;
};

} // namespace Velmar::BizModel

#endif // VELMARBIZMODEL_DEVICELIST_H
