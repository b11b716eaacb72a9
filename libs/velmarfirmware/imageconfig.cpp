#include "imageconfig.h"

#include "singletonslot.h"

#include <velmarbizmodel/device.h>
#include <velmarbizmodel/devicelist.h>
#include <velmarbizmodel/interfaceconfig.h>

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace Velmar::Firmware {

namespace {

Internal::SingletonSlot<ImageConfig> s_slot;

constexpr int HeaderSize = 4; // bytes

// Bytes that a short file lacks read as 0. The bytes are unsigned, the number they make is not.
qint64 textLength(const QByteArray &header)
{
    quint32 length = 0;
    for (int i = 0; i < header.size(); ++i)
        length |= quint32(uchar(header.at(i))) << (8 * i);
    return qint32(length);
}

// The names of the sections by code; the first of several with one code counts.
QHash<int, QString> sectionNames(const BizModel::s_DeviceConfig &config)
{
    QHash<int, QString> names;
    for (const BizModel::s_UpgradeCfg &section : config.upgradeCfgs) {
        if (!names.contains(section.upgradeCode))
            names.insert(section.upgradeCode, section.name);
    }
    return names;
}

} // namespace

ImageConfig::ImageConfig(QObject *parent)
    : UpgradeConfig(parent)
{
}

ImageConfig *ImageConfig::instance()
{
    return s_slot.instance();
}

void ImageConfig::destroyInstance()
{
    s_slot.destroyInstance();
}

bool ImageConfig::readConfig(const QString &path, QString &)
{
    QFile file(path);
    // In text mode every carriage return drops out, in the header as well. A pipe would keep the
    // reader waiting.
    if (!QFileInfo(file).isFile() || !file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qWarning().noquote() << QStringLiteral("Fail to open file: ") + path;
        return false;
    }
    const qint64 length = textLength(file.read(HeaderSize));
    // The header is not allowed for: a length up to 4 bytes too large passes here and delivers what
    // is there.
    if (length > file.size()) {
        qWarning().noquote() << QStringLiteral("read file: ") + path
                + QStringLiteral(" json data header error!");
        return false;
    }
    const QByteArray text = file.read(qMax<qint64>(length, 0));
    const QJsonArray entries = QJsonDocument::fromJson(QByteArray::fromBase64(text)).array();
    if (entries.isEmpty()) {
        qWarning().noquote() << QStringLiteral("json data  error!");
        return false;
    }

    m_upgradeCfgs.clear();
    const QJsonObject root = entries.at(0).toObject();
    if (!parseMaincontrol(path, root))
        return false;
    parseInputCard(path, root);
    parseOutputCard(path, root);
    return true;
}

QVector<UpgradeCfg> ImageConfig::upgradeCfgs()
{
    return m_upgradeCfgs;
}

bool ImageConfig::parseMaincontrol(const QString &path, const QJsonObject &root)
{
    const auto device = BizModel::DeviceList::instance()->activedDevice().lock();
    if (!device) {
        qWarning().noquote() << QStringLiteral("actived device is nullptr");
        return false;
    }
    const BizModel::s_DeviceConfig config = device->deviceConfig();
    const QHash<int, QString> names = sectionNames(config);
    UpgradeCfg cfg;
    cfg.path = path;
    const QJsonArray entries = root.value(QLatin1String("mainControl")).toArray();
    for (const QJsonValue &entry : entries) {
        cfg.modelId = entry[QLatin1String("modelId")].toInt();
        if (cfg.modelId != config.modelId)
            return false;
        const QJsonArray sections = entry[QLatin1String("sections")].toArray();
        for (const QJsonValue &section : sections) {
            UpgradeFileItem item;
            // An unknown code gives an item without a name: it is listed all the same.
            item.sectionName = names.value(section[QLatin1String("code")].toInt());
            cfg.files.append(item);
        }
    }
    m_upgradeCfgs.append(cfg);
    return true;
}

bool ImageConfig::parseInputCard(const QString &path, const QJsonObject &root)
{
    return parseCardArray(path, root.value(QLatin1String("inputCard")).toArray());
}

bool ImageConfig::parseOutputCard(const QString &path, const QJsonObject &root)
{
    return parseCardArray(path, root.value(QLatin1String("outputCard")).toArray());
}

bool ImageConfig::parseCardArray(const QString &path, const QJsonArray &cards)
{
    UpgradeCfg cfg;
    cfg.path = path;
    for (const QJsonValue &card : cards) {
        cfg.modelId = card[QLatin1String("modelId")].toInt();
        const QJsonArray sections = card[QLatin1String("sections")].toArray();
        for (const QJsonValue &section : sections) {
            UpgradeFileItem item;
            item.sectionName = BizModel::InterfaceConfig::instance()->findSectionNameByCode(
                cfg.modelId, section[QLatin1String("code")].toInt(), 0);
            cfg.files.append(item);
        }
    }
    m_upgradeCfgs.append(cfg);
    return true;
}

} // namespace Velmar::Firmware
