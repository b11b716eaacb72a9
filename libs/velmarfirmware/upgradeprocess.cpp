#include "upgradeprocess.h"
#include "upgradeprocess_p.h"

#include "upgradefile.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/devicelist.h>
#include <velmarbizmodel/interfaceconfig.h>
#include <velmarmodelcontrol/auxiliary.h>
#include <velmarmodelcontrol/device.h>
#include <velmarmodelcontrol/file.h>
#include <velmarssproxy/devicemanager.h>

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QReadLocker>
#include <QSet>
#include <QTimer>
#include <QWriteLocker>

namespace Velmar::Firmware {

namespace {

using ProtoModel::Auxiliary::s_CardInfoParts;
using ProtoModel::Auxiliary::s_DeviceVersion;
using ProtoModel::Auxiliary::s_DeviceVersionPart;
using ProtoModel::Auxiliary::s_DeviceVersionSection;
using ProtoModel::Auxiliary::s_SectionCode;
using ProtoModel::Auxiliary::s_UpgradeDetail;
using ProtoModel::Auxiliary::s_UpgradePercent;

// Of the device libraries' enumerations only the numbers are fixed.
constexpr auto StatusBarProgress = static_cast<BizModel::Enum::StatusBarMsgType>(0);
constexpr auto UpgradeFileType = static_cast<BizModel::Enum::File::FileType>(13);

// 32 bits wide, so that no code of a device or a card equals it: 65535 is a code like any other.
constexpr quint32 NoSuchSection = static_cast<quint32>(-1);

using SectionCodes = QHash<QString, quint32>;

// The sections of the device's own model. Of two with one name the first counts.
SectionCodes ownSectionCodes(BizModel::Device &device)
{
    SectionCodes codes;
    for (const BizModel::s_UpgradeCfg &section : qAsConst(device.deviceConfig().upgradeCfgs)) {
        if (!codes.contains(section.name))
            codes.insert(section.name, section.upgradeCode);
    }
    return codes;
}

// The board counts for a sub-card only: the device's own sections are on no board.
quint32 sectionCode(const BizModel::Device &device, const SectionCodes &ownCodes, int modelId,
                    const QString &sectionName, int extendNum)
{
    if (device.modelId() == modelId)
        return ownCodes.value(sectionName, NoSuchSection);
    return static_cast<quint32>(BizModel::InterfaceConfig::instance()->findCodeBySectionName(
        modelId, sectionName, extendNum));
}

// A chosen card with its sections in a form that is quick to ask.
struct ChosenCard {
    int boardId;
    QSet<quint32> codes;
};

// The chosen cards of each model, in the order chosen.
QHash<int, QVector<ChosenCard>> cardsByModel(const std::vector<s_CardInfoParts> &upgradeParts)
{
    QHash<int, QVector<ChosenCard>> cards;
    for (const s_CardInfoParts &part : upgradeParts) {
        ChosenCard card { part.boardId, {} };
        for (const s_SectionCode &section : part.section)
            card.codes.insert(section.code);
        cards[part.modelId].append(card);
    }
    return cards;
}

void showStatus(const QString &text, int milliseconds)
{
    Q_EMIT BizModel::DeviceList::instance()->signalShowStatusBarMsg(StatusBarProgress, text,
                                                                    milliseconds);
}

} // namespace

namespace Internal {

UpgradeProcessPrivate::UpgradeProcessPrivate(UpgradeProcess *owner)
    : q(owner)
{
}

void UpgradeProcessPrivate::run()
{
    if (processType == Enum::UpgradeProcessType::FullUpgrade) {
        const QString path = recombineFile();
        if (path.isEmpty()) {
            // The device has not been sent anything yet, so it is not restarted either.
            Q_EMIT q->signalUpgradeFinished(false, tr("Failed to recombine upgrade file"));
            return;
        }
        if (!importUpgradeFile(path)) {
            const QString suffix = restartedSuffix();
            Q_EMIT q->signalUpgradeFinished(false, tr("Failed to import upgrade file,") + suffix);
            return;
        }
        QFile image(path);
        if (image.exists())
            image.remove();
        if (!setUpgradeConfigData()) {
            const QString suffix = restartedSuffix();
            Q_EMIT q->signalUpgradeFinished(false, tr("Failed to set upgrade config,") + suffix);
            return;
        }
    }

    Q_EMIT q->signalStartReadUpgradeProgress();
    if (!readUpgradeProgress()) {
        const QString suffix = restartedSuffix();
        Q_EMIT q->signalUpgradeFinished(false, tr("Failed to get upgrade progress,") + suffix);
        return;
    }
    const QString suffix = restartedSuffix();
    Q_EMIT q->signalUpgradeFinished(true, tr("Upgrade successful,") + suffix);
}

// Restarts the device first: the words depend on whether it took the order.
QString UpgradeProcessPrivate::restartedSuffix()
{
    return restartDevice() ? tr("device is restarting.")
                           : tr("please restart the device manually.");
}

QString UpgradeProcessPrivate::recombineFile()
{
    const auto device = activedDevice.lock();
    if (!device) {
        qWarning() << "Device is nullptr";
        return QString();
    }
    QVector<QPair<QString, QString>> filePaths;
    if (!isAllowedRecombineFile(filePaths))
        return QString();
    s_DeviceVersion deviceVersion;
    if (!readDeviceVersion(deviceVersion))
        return QString();
    // A device that does not report the version of its images gets 0 in the header.
    QString version;
    findVersionBySectionName(deviceVersion, QStringLiteral("fileVersion"), version);

    showStatus(tr("Upgrading file processing"), 30000);
    UpgradeFile upgradeFile(nullptr);
    const QString path =
        upgradeFile.makeUpgradeFile(filePaths, packagePath, device->modelId(), version);
    showStatus(QString(), 1);
    return path;
}

bool UpgradeProcessPrivate::isAllowedRecombineFile(QVector<QPair<QString, QString>> &filePaths)
{
    const auto device = activedDevice.lock();
    if (!device) {
        // In lower case, unlike in the other steps: whoever searches logs for it knows it so.
        qWarning() << "device is nullptr";
        return false;
    }
    datDataFilePath(filePaths);
    if (containsSection(device->modelId(), QStringLiteral("MCU")))
        appendMcuDataFiles(filePaths);
    if (filePaths.isEmpty()) {
        qWarning() << "filePath info is empty";
        return false;
    }
    return true;
}

void UpgradeProcessPrivate::datDataFilePath(QVector<QPair<QString, QString>> &filePaths)
{
    const auto device = activedDevice.lock();
    if (!device) {
        qWarning() << "activedDevice is nullptr";
        return;
    }
    const SectionCodes ownCodes = ownSectionCodes(*device);
    const QHash<int, QVector<ChosenCard>> cards = cardsByModel(upgradeParts);
    QSet<QPair<QString, QString>> planned;
    for (const QPair<QString, QString> &filePath : qAsConst(filePaths))
        planned.insert(filePath);

    for (const UpgradeCfg &cfg : qAsConst(upgradeCfgs)) {
        // Looked up as an int: a model id of a package that is over 65535 is no card's.
        const auto cardsOfModel = cards.constFind(cfg.modelId);
        if (cardsOfModel == cards.constEnd())
            continue;
        for (const ChosenCard &card : *cardsOfModel) {
            for (const UpgradeFileItem &item : cfg.files) {
                if (item.extendNum != 0 && item.extendNum != card.boardId)
                    continue;
                const quint32 code =
                    sectionCode(*device, ownCodes, cfg.modelId, item.sectionName, item.extendNum);
                if (!card.codes.contains(code))
                    continue;
                const auto filePath = qMakePair(item.filePath, item.targetPath);
                const int plannedBefore = planned.size();
                planned.insert(filePath);
                if (planned.size() != plannedBefore)
                    filePaths.append(filePath);
            }
        }
    }
}

bool UpgradeProcessPrivate::containsSection(unsigned short modelId, const QString &sectionName)
{
    const auto device = activedDevice.lock();
    if (!device) {
        qWarning() << "activedDevice is nullptr";
        return false;
    }
    const quint32 code = sectionCode(*device, ownSectionCodes(*device), modelId, sectionName, 0);
    for (const s_CardInfoParts &card : upgradeParts) {
        if (card.modelId != modelId)
            continue;
        for (const s_SectionCode &section : card.section) {
            if (section.code == code)
                return true;
        }
    }
    return false;
}

void UpgradeProcessPrivate::appendMcuDataFiles(QVector<QPair<QString, QString>> &filePaths)
{
    // Not compared with what is planned already: the data files follow as the package lists them.
    for (const DataFilePath &dataFile : qAsConst(dataFilePaths)) {
        if (dataFile.sourcePath.endsWith(QLatin1String(".json"))
            || dataFile.sourcePath.endsWith(QLatin1String("font12.dat"))) {
            filePaths.append(qMakePair(packagePath + QDir::separator() + dataFile.sourcePath,
                                       dataFile.targetPath));
        }
    }
}

bool UpgradeProcessPrivate::readDeviceVersion(s_DeviceVersion &deviceVersion)
{
    const auto device = activedDevice.lock();
    if (!device) {
        qWarning() << "Device is nullptr";
        return false;
    }
    ModelControl::Auxiliary auxiliary(activedDevice);
    QString errorText;
    if (!auxiliary.readDeviceVersion(deviceVersion, errorText)) {
        qWarning().noquote().nospace() << "Fail to read version:" << errorText;
        return false;
    }
    return true;
}

void UpgradeProcessPrivate::findVersionBySectionName(const s_DeviceVersion &deviceVersion,
                                                     const QString &sectionName, QString &version)
{
    const auto device = activedDevice.lock();
    if (!device) {
        qWarning() << "activedDevice is nullptr";
        return;
    }
    for (const BizModel::s_UpgradeCfg &section : qAsConst(device->deviceConfig().upgradeCfgs)) {
        if (section.name != sectionName)
            continue;
        findVersionByCode(deviceVersion, section.type & 0xFF, section.upgradeCode, version);
        return;
    }
}

void UpgradeProcessPrivate::findVersionByCode(const s_DeviceVersion &deviceVersion, int type,
                                              int code, QString &version)
{
    // Only the first part of the type counts, even if its sections lack the code.
    for (const s_DeviceVersionPart &part : deviceVersion.parts) {
        if (part.type != type)
            continue;
        for (const s_DeviceVersionSection &section : part.section) {
            if (section.code != code)
                continue;
            version = QString::fromStdString(section.version);
            return;
        }
        return;
    }
}

bool UpgradeProcessPrivate::importUpgradeFile(QString path)
{
    const auto device = activedDevice.lock();
    if (!device) {
        qWarning() << "Device is nullptr";
        return false;
    }
    ModelControl::File file(activedDevice);
    QString errorText;
    const QFileInfo image(path);

    ProtoModel::File::s_FileInfo announced {};
    announced.fileId = 0;
    announced.fileType = static_cast<int>(UpgradeFileType);
    announced.fileName.clear();
    announced.fileSize = static_cast<int>(image.size());
    if (!file.importFile({ announced }, errorText)) {
        qWarning().noquote().nospace() << "Fail to send upgrade file:" << errorText;
        return false;
    }

    if (!file.writeFileBinary(path, UpgradeFileType, announced.fileId, &showTransferProgress,
                              true)) {
        // The transfer tells no cause: what is logged is what the announcement left.
        qWarning().noquote().nospace() << "Fail to send upgrade file binary data:" << errorText;
        return false;
    }
    return true;
}

void UpgradeProcessPrivate::showTransferProgress(bool isSending, int percentage,
                                                 const QString &text)
{
    Q_UNUSED(text)
    if (isSending)
        showStatus(tr("Sending upgrade files,current progress is %1%").arg(percentage), 5000);
}

bool UpgradeProcessPrivate::setUpgradeConfigData()
{
    const auto device = activedDevice.lock();
    if (!device) {
        qWarning() << "activedDevice is nullptr";
        return false;
    }
    if (upgradeParts.empty()) {
        qWarning() << "upgradeDetails parts is empty ";
        return false;
    }
    s_UpgradeDetail detail;
    detail.upgradeType = 1;
    detail.filePath = "N/A"; // the device knows the image by its announcement
    detail.reboot = 1;
    detail.deleteUpgradeFile = 1;
    detail.parts = upgradeParts;
    ModelControl::Auxiliary auxiliary(activedDevice);
    const bool isTaken = auxiliary.setUgradeConfig(detail);
    if (!isTaken)
        qWarning() << "set upgrade config failed";
    return isTaken;
}

bool UpgradeProcessPrivate::readUpgradeProgress()
{
    while (keepReading) {
        // Device and control object live through the sleep, and are taken anew for the next pass.
        const auto device = activedDevice.lock();
        if (!device) {
            qWarning() << "Device is nullptr";
            return false;
        }
        ModelControl::Auxiliary auxiliary(activedDevice);
        QString errorText;
        s_UpgradePercent record;
        const bool isRead = auxiliary.readUpgradeProgress(record, errorText);
        {
            // Published before it is judged: a host sees the record of a failed look, too.
            QWriteLocker locker(&percentLock);
            upgradePercent = record;
        }
        if (!isRead) {
            qDebug().noquote().nospace() << " read upgrade progress failed:" << errorText;
            return false;
        }
        if (record.result == 3) {
            qDebug().nospace() << "upgrade progress status:" << record.result;
            return false;
        }
        if (record.result == 2) {
            qDebug().nospace() << "upgrade progress status:" << record.result;
            return true;
        }
        msleep(pollIntervalMs);
    }
    return false;
}

bool UpgradeProcessPrivate::restartDevice()
{
    const auto device = activedDevice.lock();
    if (!device) {
        qWarning() << "activedDevice is nullptr";
        return false;
    }
    SSProxy::DeviceManager::instance()->stopDeviceUDPProbe();
    // Armed before the device is asked: the probe comes back even if the restart is refused. This
    // object is the context, so that the timer fires on its thread, when the worker is long gone.
    QTimer::singleShot(probeRestartMs, this, [] {
        SSProxy::DeviceManager::instance()->startDeviceProbe(QString(), 0, 0, 0);
    });
    ModelControl::Auxiliary auxiliary(activedDevice);
    if (!auxiliary.setDeviceShutDownMode(0)) {
        qWarning() << "Failed to restart!";
        return false;
    }
    ModelControl::Device(activedDevice).disconnectCommunication();
    return true;
}

} // namespace Internal

UpgradeProcess::UpgradeProcess(std::weak_ptr<BizModel::Device> device,
                               std::vector<s_CardInfoParts> upgradeParts,
                               QVector<UpgradeCfg> upgradeCfgs, QVector<DataFilePath> dataFilePaths,
                               const QString &packagePath)
    : QObject(nullptr)
    , d(new Internal::UpgradeProcessPrivate(this))
{
    initUpgradeParam(std::move(device), std::move(upgradeParts), std::move(upgradeCfgs),
                     std::move(dataFilePaths), packagePath);
}

void UpgradeProcess::initUpgradeParam(std::weak_ptr<BizModel::Device> device,
                                      std::vector<s_CardInfoParts> upgradeParts,
                                      QVector<UpgradeCfg> upgradeCfgs,
                                      QVector<DataFilePath> dataFilePaths,
                                      const QString &packagePath)
{
    d->activedDevice = std::move(device);
    d->upgradeCfgs = std::move(upgradeCfgs);
    d->upgradeParts = std::move(upgradeParts);
    d->dataFilePaths = std::move(dataFilePaths);
    d->packagePath = packagePath;
}

void UpgradeProcess::start(Enum::UpgradeProcessType type)
{
    d->processType = type;
    d->start(QThread::InheritPriority);
}

void UpgradeProcess::upgradeProgressDetails(s_UpgradePercent &percent)
{
    QReadLocker locker(&d->percentLock);
    percent = d->upgradePercent;
}

} // namespace Velmar::Firmware
