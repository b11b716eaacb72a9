#ifndef TESTS_SUPPORT_FAKEDEVICE_H
#define TESTS_SUPPORT_FAKEDEVICE_H

#include "scriptedlink.h"

#include <velmarbizmodel/device.h>

#include <memory>
#include <vector>

/*!
    A device over a ScriptedLink, the active one of DeviceList as long as this object is there.

    Everything that the link says is up to the test.
*/
class FakeDevice
{
public:
    explicit FakeDevice(const Velmar::BizModel::s_DeviceConfig &config,
                        const std::vector<Velmar::BizModel::Subcard> &subcards = {});

    /*! A device of the catalogue in use; \a modelId has to be in it. */
    explicit FakeDevice(unsigned short modelId,
                        const std::vector<Velmar::BizModel::Subcard> &subcards = {});
    ~FakeDevice();

    std::weak_ptr<Velmar::BizModel::Device> handle() const;
    Velmar::BizModel::Device &device() const; //!< only before expire()
    ScriptedLink &link() const;

    /*! Lets go of the device, so that handle() can no longer be locked; the link stays. */
    void expire();

private:
    Q_DISABLE_COPY_MOVE(FakeDevice)

    const std::shared_ptr<ScriptedLink> m_link;
    std::shared_ptr<Velmar::BizModel::Device> m_device;
};

#endif // TESTS_SUPPORT_FAKEDEVICE_H
