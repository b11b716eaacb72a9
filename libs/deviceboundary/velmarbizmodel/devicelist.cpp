#include <velmarbizmodel/devicelist.h>

#include <QMutexLocker>

#include <utility>

namespace Velmar::BizModel {

DeviceList::DeviceList()
{
    // A connection that crosses threads carries its arguments by their registered types.
    qRegisterMetaType<Velmar::BizModel::Enum::StatusBarMsgType>();
    qRegisterMetaType<Velmar::BizModel::Enum::FramelessMessageBoxMsgType>();
}

DeviceList *DeviceList::instance()
{
    // Never destroyed: a worker thread may still emit while the process ends.
    static DeviceList *const list = new DeviceList;
    return list;
}

std::weak_ptr<Device> DeviceList::activedDevice()
{
    const QMutexLocker locker(&m_mutex);
    return m_activedDevice;
}

void DeviceList::setActivedDevice(std::weak_ptr<Device> device)
{
    const QMutexLocker locker(&m_mutex);
    m_activedDevice = std::move(device);
}

} // namespace Velmar::BizModel
