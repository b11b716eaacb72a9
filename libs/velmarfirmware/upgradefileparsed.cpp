#include "upgradefileparsed.h"
#include "upgradefileparsed_p.h"

#include "datafilepathconfig.h"
#include "imageconfig.h"
#include "packageconfig.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/deviceconfigmanager.h>
#include <velmarbizmodel/devicelist.h>
#include <velmarbizmodel/interfaceconfig.h>

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QSet>

#include <algorithm>

namespace Velmar::Firmware {

namespace {

enum StepType {
    MainDevice = 0,
    SubCard = 1,
};

void appendNames(const QList<BizModel::s_UpgradeCfg> &sections, QStringList &names)
{
    for (const BizModel::s_UpgradeCfg &section : sections)
        names.append(section.name);
}

template<typename Predicate> void removeIf(QVector<UpgradeFileItem> &items, Predicate isUnwanted)
{
    items.erase(std::remove_if(items.begin(), items.end(), isUnwanted), items.end());
}

// What operator== of two items looks at: everything but the board.
using ItemKey = QPair<QString, QPair<QString, QString>>;

ItemKey keyOf(const UpgradeFileItem &item)
{
    return { item.sectionName, { item.filePath, item.targetPath } };
}

} // namespace

UpgradeFileParsed::UpgradeFileParsed(const QString &path, bool isImageFile, bool isGivenModel,
                                     unsigned short modelId, unsigned char dataPathMode)
    : QObject(nullptr)
    , d(new Internal::UpgradeFileParsedPrivate(this))
{
    initParam(path, isImageFile, isGivenModel, modelId, dataPathMode);
}

void UpgradeFileParsed::initParam(const QString &path, bool isImageFile, bool isGivenModel,
                                  unsigned short modelId, unsigned char dataPathMode)
{
    d->path = path;
    d->isImageFile = isImageFile;
    d->isGivenModel = isGivenModel;
    d->modelId = modelId;
    d->dataPathMode = dataPathMode;
}

void UpgradeFileParsed::startParseFile()
{
    d->upgradeCfgs.clear();
    d->dataFilePaths.clear();
    d->sectionList.clear();
    d->start(QThread::InheritPriority);
}

void UpgradeFileParsed::upgradeFileParam(QVector<UpgradeCfg> &upgradeCfgs,
                                         QVector<DataFilePath> &dataFilePaths,
                                         QVector<QPair<int, QString>> &sections)
{
    upgradeCfgs = d->upgradeCfgs;
    dataFilePaths = d->dataFilePaths;
    sections = d->sectionList;
}

namespace Internal {

UpgradeFileParsedPrivate::UpgradeFileParsedPrivate(UpgradeFileParsed *owner)
    : QThread(nullptr)
    , q(owner)
{
}

void UpgradeFileParsedPrivate::run()
{
    UpgradeConfig *reader = upgradeConfig();
    if (!reader) {
        qWarning().noquote() << QStringLiteral("upgrade config ptr is nullptr");
        Q_EMIT q->signalParsedUpgradeFileFinished(false,
                                                  tr("Failed to parse upgrade config file."));
        return;
    }
    QString errorText;
    if (!reader->readConfig(path, errorText)) {
        qWarning().noquote() << QStringLiteral("Failed to parse upgrade config file:") + errorText;
        Q_EMIT q->signalParsedUpgradeFileFinished(
            false,
            tr("Failed to parse upgrade config file,Please check the validity of the upgrade "
               "file."));
        return;
    }
    QVector<UpgradeCfg> cfgs = reader->upgradeCfgs();
    if (cfgs.isEmpty()) {
        qWarning().noquote() << QStringLiteral("There are no upgrade items available in the "
                                               "upgrade package,file path:")
                + path;
        Q_EMIT q->signalParsedUpgradeFileFinished(
            false, tr("There are no upgrade items available in the upgrade package."));
        return;
    }
    // An image is read for its validity only: it has no files that could be matched.
    if (!isImageFile) {
        matchUpgradeCfgs(cfgs);
        if (upgradeCfgs.isEmpty()) {
            qWarning().noquote() << QStringLiteral("The upgrade package configuration does not "
                                                   "match the device configuration.");
            Q_EMIT q->signalParsedUpgradeFileFinished(
                false,
                tr("The upgrade package configuration does not match the device configuration."));
            return;
        }
        if (!isGivenModel || dataPathMode == 1) {
            // A package may do without the file, and of a broken one the entries before the fault
            // count.
            DataFilePathConfig::instance()->readConfig(path + QDir::separator()
                                                           + QLatin1String("DataFilPathCfg.xml"),
                                                       dataFilePaths, errorText);
            fillTargetPaths();
        }
    }
    Q_EMIT q->signalParsedUpgradeFileFinished(true, QString());
}

UpgradeConfig *UpgradeFileParsedPrivate::upgradeConfig()
{
    if (isImageFile)
        return ImageConfig::instance();
    return PackageConfig::instance();
}

void UpgradeFileParsedPrivate::matchUpgradeCfgs(QVector<UpgradeCfg> &cfgs)
{
    for (UpgradeCfg &cfg : cfgs) {
        if (!isMatchedCfg(cfg))
            continue;
        QStringList labels;
        sectionsFileLabel(cfg.modelId, labels);
        if (labels.isEmpty())
            continue;
        const QSet<QString> known(labels.cbegin(), labels.cend());
        removeIf(cfg.files, [&known](const UpgradeFileItem &item) {
            return !known.contains(item.sectionName) || !QFile::exists(item.filePath);
        });
        for (const UpgradeFileItem &item : qAsConst(cfg.files))
            sectionList.append(qMakePair(cfg.modelId, item.sectionName));
        if (!cfg.files.isEmpty())
            upgradeCfgs.append(cfg);
    }
}

bool UpgradeFileParsedPrivate::isMatchedCfg(UpgradeCfg &cfg)
{
    switch (cfg.stepType) {
    case MainDevice:
        return isMatchedMainCfg(cfg);
    case SubCard:
        return isMatchedSubCardCfg(cfg);
    default:
        return false;
    }
}

// The device's model is not compared here: a unit for another model finds no labels.
bool UpgradeFileParsedPrivate::isMatchedMainCfg(UpgradeCfg &cfg)
{
    QSet<QString> names;
    for (const UpgradeFileItem &item : qAsConst(cfg.files)) {
        if (names.contains(item.sectionName))
            return false;
        names.insert(item.sectionName);
    }
    return true;
}

bool UpgradeFileParsedPrivate::isMatchedSubCardCfg(UpgradeCfg &cfg)
{
    // Which cards are fitted is known of a connected device only.
    if (isGivenModel)
        return false;
    const auto device = BizModel::DeviceList::instance()->activedDevice().lock();
    if (!device)
        return false;
    if (cfg.modelId == device->modelId())
        return false;
    const QList<int> boards = device->findSubcardBoardIdByModelId(cfg.modelId);

    // An item for a board that is not fitted takes the first of its equals out of the list, and
    // equal items may differ in their board: so many as there are such items, so many go from the
    // front.
    QHash<ItemKey, int> surplus;
    for (const UpgradeFileItem &item : qAsConst(cfg.files)) {
        if (item.extendNum != 0 && !boards.contains(item.extendNum))
            ++surplus[keyOf(item)];
    }
    if (surplus.isEmpty())
        return true;
    QVector<UpgradeFileItem> fitting;
    for (const UpgradeFileItem &item : qAsConst(cfg.files)) {
        const auto unfitted = surplus.find(keyOf(item));
        if (unfitted != surplus.end() && *unfitted > 0)
            --*unfitted;
        else
            fitting.append(item);
    }
    cfg.files = fitting;
    return true;
}

void UpgradeFileParsedPrivate::sectionsFileLabel(int cfgModelId, QStringList &labels)
{
    if (isGivenModel) {
        const auto *config =
            BizModel::DeviceConfigManager::instance()->findDeviceConfigByID(modelId);
        if (config && cfgModelId == modelId)
            appendNames(config->upgradeCfgs, labels);
        return;
    }
    const auto device = BizModel::DeviceList::instance()->activedDevice().lock();
    if (!device) {
        qWarning().noquote() << QStringLiteral("activedDevice is nullptr");
        return;
    }
    if (cfgModelId == device->modelId()) {
        appendNames(device->deviceConfig().upgradeCfgs, labels);
        return;
    }
    const QList<int> boards = device->findSubcardBoardIdByModelId(cfgModelId);
    const auto &subcards = device->subcards();
    const bool isFitted = std::any_of(subcards.begin(), subcards.end(),
                                      [cfgModelId](const std::shared_ptr<BizModel::Subcard> &card) {
                                          return qint64(card->modelId()) == cfgModelId;
                                      });
    if (!isFitted)
        return;
    auto *interfaces = BizModel::InterfaceConfig::instance();
    const bool isKnown =
        interfaces->findSubCardByModelId(static_cast<unsigned short>(cfgModelId)) != nullptr;
    QList<BizModel::s_UpgradeCfg> sections;
    for (const int board : boards)
        sections.append(interfaces->findUpgradeCfgByBoardId(cfgModelId, board));
    if (isKnown)
        appendNames(sections, labels);
}

void UpgradeFileParsedPrivate::fillTargetPaths()
{
    QHash<QString, QStringList> targets; // by source path, in the order of the entries
    for (const DataFilePath &entry : qAsConst(dataFilePaths))
        targets[entry.sourcePath].append(entry.targetPath);

    const QString folder = path + QLatin1Char('/');
    for (UpgradeCfg &cfg : upgradeCfgs) {
        QVector<UpgradeFileItem> extras;
        for (UpgradeFileItem &item : cfg.files) {
            // Wherever it stands in the path, not only in front.
            const QString relative = QString(item.filePath).remove(folder);
            const auto places = targets.constFind(relative);
            if (places == targets.constEnd())
                continue;
            item.targetPath = places->first();
            // A file for one board goes to one place.
            if (item.extendNum != 0)
                continue;
            for (auto place = places->begin() + 1; place != places->end(); ++place) {
                extras.append(item);
                extras.last().targetPath = *place;
            }
        }
        cfg.files.append(extras);
    }
}

} // namespace Internal

} // namespace Velmar::Firmware
