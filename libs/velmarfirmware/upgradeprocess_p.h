#ifndef VELMARFIRMWARE_UPGRADEPROCESS_P_H
#define VELMARFIRMWARE_UPGRADEPROCESS_P_H

#include "upgradeprocess.h"

#include <QPair>
#include <QReadWriteLock>
#include <QThread>
#include <QVector>

namespace Velmar::Firmware::Internal {

/*!
    One upgrade of a device, step by step, on this thread.

    The steps are public for the tests alone. Each of them locks the device anew, logs its own cause
    and answers false or an empty text to end the run; run() words the outcome for the user.
*/
class UpgradeProcessPrivate : public QThread
{
    Q_OBJECT

public:
    explicit UpgradeProcessPrivate(UpgradeProcess *owner);

    static UpgradeProcessPrivate *get(UpgradeProcess *process) { return process->d; }

    void run() override;

    // Planning: what goes into the image, in image order.
    QString recombineFile();
    bool isAllowedRecombineFile(QVector<QPair<QString, QString>> &filePaths);
    void datDataFilePath(QVector<QPair<QString, QString>> &filePaths);
    bool containsSection(unsigned short modelId, const QString &sectionName);
    void appendMcuDataFiles(QVector<QPair<QString, QString>> &filePaths);
    bool readDeviceVersion(ProtoModel::Auxiliary::s_DeviceVersion &deviceVersion);
    void findVersionBySectionName(const ProtoModel::Auxiliary::s_DeviceVersion &deviceVersion,
                                  const QString &sectionName, QString &version);
    void findVersionByCode(const ProtoModel::Auxiliary::s_DeviceVersion &deviceVersion, int type,
                           int code, QString &version);

    // Sending, installing, restarting.
    bool importUpgradeFile(QString path);
    static void showTransferProgress(bool isSending, int percentage, const QString &text);
    bool setUpgradeConfigData();
    bool readUpgradeProgress();
    bool restartDevice();

    // Set between runs, only read during one.
    UpgradeProcess *const q;
    std::weak_ptr<BizModel::Device> activedDevice;
    QVector<UpgradeCfg> upgradeCfgs;
    std::vector<ProtoModel::Auxiliary::s_CardInfoParts> upgradeParts;
    QVector<DataFilePath> dataFilePaths;
    QString packagePath;
    bool keepReading = true; // stop condition of the polling loop; nothing clears it so far

    // Written by the worker after each poll, copied out by any thread.
    ProtoModel::Auxiliary::s_UpgradePercent upgradePercent;
    QReadWriteLock percentLock; // guards upgradePercent

    // Set between runs, only read during one.
    Enum::UpgradeProcessType processType = Enum::UpgradeProcessType::FullUpgrade;
    unsigned long pollIntervalMs = 2000; // shortened by tests
    int probeRestartMs = 10000; // shortened by tests

private:
    QString restartedSuffix();
};

} // namespace Velmar::Firmware::Internal

#endif // VELMARFIRMWARE_UPGRADEPROCESS_P_H
