#ifndef VELMARHOST_UPGRADERUN_H
#define VELMARHOST_UPGRADERUN_H

#include "records/upgraderecords.h"
#include "run/devicerun.h"

#include <QTimer>
#include <QVector>

#include <chrono>
#include <memory>
#include <vector>

namespace Velmar::BizModel {
class Device;
}

namespace Velmar::Firmware {
class UpgradeProcess;
}

namespace Velmar::Host {

/*! All that one upgrade is given. To watch an installation, the device is enough. */
struct UpgradeOrder {
    std::weak_ptr<BizModel::Device> device;
    std::vector<ProtoModel::Auxiliary::s_CardInfoParts> parts;
    QVector<Firmware::UpgradeCfg> units;
    QVector<Firmware::DataFilePath> dataFilePaths;
    QString packagePath;
};

/*! One upgrade over the native protocol. */
class UpgradeRun : public DeviceRun
{
    Q_OBJECT

public:
    explicit UpgradeRun(UpgradeOrder order);

    /*! Of a run whose worker did not end, everything that the worker uses stays allocated. */
    ~UpgradeRun() override;

    /*! Time between two looks at the progress that the library has read; 200 ms unless set. */
    void setProgressInterval(std::chrono::milliseconds interval);

    /*! The device's report that the library has read last; empty before the first. Any thread. */
    ProtoModel::Auxiliary::s_UpgradePercent progress() const;

    /*! Begins. Any \a type but FullUpgrade only watches; it, too, restarts the device at its end.
     */
    void start(Firmware::Enum::UpgradeProcessType type, std::chrono::milliseconds timeLimit);

private:
    Q_DISABLE_COPY_MOVE(UpgradeRun)

    void slotStatusBar(const QString &text);
    void slotInstallingStarted();
    void slotFinished(bool result, const QString &text);
    void reportProgress();

    std::unique_ptr<Firmware::UpgradeProcess> m_process;
    QTimer m_progressTimer;
    ProtoModel::Auxiliary::s_UpgradePercent m_reported; // as signalInstalling() told it last
};

} // namespace Velmar::Host

#endif // VELMARHOST_UPGRADERUN_H
