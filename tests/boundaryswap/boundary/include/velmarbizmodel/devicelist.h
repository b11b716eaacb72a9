#ifndef TINY_VELMARBIZMODEL_DEVICELIST_H
#define TINY_VELMARBIZMODEL_DEVICELIST_H

#include <velmarbizmodel/enums.h>

#include <QObject>

#include <memory>

namespace Velmar::BizModel {

class Device;

class DeviceList : public QObject
{
    Q_OBJECT

public:
    static DeviceList *instance();

    std::weak_ptr<Device> activedDevice();

Q_SIGNALS:
    void signalShowStatusBarMsg(Velmar::BizModel::Enum::StatusBarMsgType type, QString text,
                                int milliseconds);
    int signalShowFramelessMessageBoxMsg(Velmar::BizModel::Enum::FramelessMessageBoxMsgType type,
                                         QString text);

private:
    DeviceList();

    const std::shared_ptr<Device> m_device;
};

} // namespace Velmar::BizModel

#endif // TINY_VELMARBIZMODEL_DEVICELIST_H
