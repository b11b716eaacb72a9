#include "packageconfig.h"

#include "componentconfig.h"
#include "descriptionname.h"
#include "singletonslot.h"
#include "xmldocument.h"

#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

using TZ::ZLoad::DataPackage;
using TZ::ZLoad::FileInfo;

namespace Velmar::Firmware {

namespace {

Internal::SingletonSlot<PackageConfig> s_slot;

// The node's name as a whole: a prefix is part of it, and any kind of node may bear it.
bool namesUnit(const QDomNode &node)
{
    return node.nodeName() == QLatin1String("string");
}

int unitCount(const QDomElement &root)
{
    int count = 0;
    for (QDomNode node = root.firstChild(); !node.isNull(); node = node.nextSibling()) {
        if (namesUnit(node))
            ++count;
    }
    return count;
}

int modelIdOf(const DataPackage &package)
{
    return package.ModuleID.toInt(nullptr, 16);
}

} // namespace

PackageConfig::PackageConfig(QObject *parent)
    : UpgradeConfig(parent)
{
}

PackageConfig *PackageConfig::instance()
{
    return s_slot.instance();
}

void PackageConfig::destroyInstance()
{
    s_slot.destroyInstance();
}

bool PackageConfig::readConfig(const QString &path, QString &errorText)
{
    m_packages.clear();

    // A plain file exists as well, but holds no index. QDir would log an empty path.
    if (path.isEmpty() || !QDir().exists(path)) {
        errorText = QStringLiteral("File is not exist");
        return false;
    }
    QFile file(path + QDir::separator() + QLatin1String("PackageCfg.xml"));
    // Looked for first: opening for writing would make an empty one.
    if (!file.exists()) {
        errorText = QStringLiteral("PackageCfg file is not exist");
        return false;
    }
    // A package that its owner may not change is refused, although it is only read. A pipe would
    // keep the reader waiting.
    if (!QFileInfo(file).isFile() || !file.open(QIODevice::ReadWrite | QIODevice::Text)) {
        errorText = QStringLiteral("Failed to open PackageCfg file");
        return false;
    }
    QDomDocument document;
    QString parserText; // of no use to whoever reads errorText
    if (!Internal::parseXml(file, false, document, parserText)) {
        errorText = QStringLiteral("Failed to parse PackageCfg file");
        return false;
    }
    file.close();
    const QDomElement root = document.documentElement();
    // The parser takes no text without a root, so this never fires; hosts know the text all the
    // same.
    if (root.isNull()) {
        errorText = QStringLiteral("PackageCfg file is empty");
        return false;
    }

    // A vector that grows would copy every package in it, deeply.
    m_packages.reserve(unitCount(root));
    for (QDomNode node = root.firstChild(); !node.isNull(); node = node.nextSibling()) {
        if (!namesUnit(node))
            continue;
        const QString unitPath = path + QLatin1Char('/') + node.toElement().text();
        const QString description = Internal::descriptionName(unitPath);
        if (description.isNull())
            continue;
        DataPackage package;
        if (!ComponentConfig::instance()->loadDataPackage(unitPath + QLatin1Char('/') + description,
                                                          &package))
            continue;
        package.FilePath = unitPath;
        m_packages.append(package);
    }
    return true;
}

QVector<UpgradeCfg> PackageConfig::upgradeCfgs()
{
    QVector<UpgradeCfg> cfgs;
    cfgs.reserve(m_packages.size());
    for (const DataPackage &package : qAsConst(m_packages)) {
        UpgradeCfg cfg;
        cfg.path = package.FilePath;
        cfg.modelId = modelIdOf(package);
        cfg.stepType = package.StepType;
        cfg.files.reserve(package.fileInfos.size());
        for (const FileInfo *file : package.fileInfos) {
            UpgradeFileItem item;
            item.sectionName = file->FileLabel;
            item.filePath = package.FilePath + QLatin1Char('/') + file->FileName;
            item.extendNum = file->ExtendNum;
            cfg.files.append(item);
        }
        cfgs.append(cfg);
    }
    return cfgs;
}

bool PackageConfig::findDataPackage(int modelId, DataPackage &out)
{
    const auto package = std::find_if(
        m_packages.cbegin(), m_packages.cend(),
        [modelId](const DataPackage &candidate) { return modelIdOf(candidate) == modelId; });
    if (package == m_packages.cend())
        return false;
    out = *package;
    return true;
}

} // namespace Velmar::Firmware
