#ifndef TESTS_SUPPORT_MCUUPGRADE_H
#define TESTS_SUPPORT_MCUUPGRADE_H

#include "run/upgraderun.h"

#include "fakedevice.h"
#include "logrecorder.h"
#include "storefile.h"

#include <QTemporaryDir>

/*! A device, and a package with one file of 8 bytes for its "MCU". */
class McuUpgrade
{
public:
    McuUpgrade()
    {
        m_device.link().answer(QStringLiteral("version.read"), ScriptedLink::accepted());
        m_isReady = storeFile(filePath(), "firmware");
    }

    bool isReady() const { return m_isReady; } //!< the package is there

    std::weak_ptr<Velmar::BizModel::Device> handle() const { return m_device.handle(); }
    ScriptedLink &link() const { return m_device.link(); }
    QString filePath() const { return m_package.filePath(QStringLiteral("mcu.bin")); }

    Velmar::Host::UpgradeOrder order() const
    {
        Velmar::Firmware::UpgradeCfg unit;
        unit.modelId = Model;
        unit.files.append(
            { QStringLiteral("MCU"), filePath(), QStringLiteral("/firmware/mcu.bin"), 0 });
        Velmar::ProtoModel::Auxiliary::s_CardInfoParts part;
        part.type = 1;
        part.modelId = Model;
        part.section = { { 0x101 } };
        return { handle(), { part }, { unit }, {}, m_package.path() };
    }

private:
    static constexpr quint16 Model = 0x7701;

    const LogRecorder m_log; // the library's causes, which other tests check
    const FakeDevice m_device { Model };
    const QTemporaryDir m_package;
    bool m_isReady = false;
};

#endif // TESTS_SUPPORT_MCUUPGRADE_H
