#include <tinyboundary/calls.h>
#include <velmarbizmodel/device.h>
#include <velmarbizmodel/deviceconfigmanager.h>
#include <velmarbizmodel/devicelist.h>
#include <velmarbizmodel/interfaceconfig.h>

namespace Velmar::BizModel {

namespace {

constexpr unsigned short ControllerModelId = 0x4242;
constexpr unsigned short CardModelId = 0x5151;
constexpr int CardBoardId = 3;

s_DeviceConfig controllerConfig()
{
    s_DeviceConfig config;
    config.modelId = ControllerModelId;
    config.upgradeCfgs = { { QStringLiteral("Loader"), 1, 0x0042, 0, 0 },
                           { QStringLiteral("fileVersion"), 1, 0x0043, 0, 0 } };
    return config;
}

QList<s_UpgradeCfg> cardSections()
{
    return { { QStringLiteral("Scaler"), 3, 0x0051, 0, 0 } };
}

} // namespace

struct InterfaceConfig::s_SubCard {
};

s_SubCardConfig::s_SubCardConfig() = default;
s_SubCardConfig::s_SubCardConfig(const s_SubCardConfig &other) = default;
s_SubCardConfig::~s_SubCardConfig() = default;

unsigned int Subcard::modelId() const
{
    return CardModelId;
}

Device::Device()
    : m_config(controllerConfig())
    , m_subcards { std::make_shared<Subcard>() }
{
}

unsigned short Device::modelId() const
{
    return m_config.modelId;
}

s_DeviceConfig &Device::deviceConfig()
{
    return m_config;
}

QList<int> Device::findSubcardBoardIdByModelId(int modelId)
{
    TinyBoundary::note(QStringLiteral("findSubcardBoardIdByModelId"));
    return modelId == CardModelId ? QList<int> { CardBoardId } : QList<int>();
}

const std::vector<std::shared_ptr<Subcard>> &Device::subcards() const
{
    return m_subcards;
}

DeviceList::DeviceList()
    : m_device(std::make_shared<Device>())
{
    qRegisterMetaType<Velmar::BizModel::Enum::StatusBarMsgType>();
    qRegisterMetaType<Velmar::BizModel::Enum::FramelessMessageBoxMsgType>();
}

DeviceList *DeviceList::instance()
{
    static DeviceList *const list = new DeviceList;
    return list;
}

std::weak_ptr<Device> DeviceList::activedDevice()
{
    return m_device;
}

DeviceConfigManager *DeviceConfigManager::instance()
{
    static DeviceConfigManager manager;
    return &manager;
}

s_DeviceConfig *DeviceConfigManager::findDeviceConfigByID(const unsigned short &modelId)
{
    static s_DeviceConfig config = controllerConfig();
    return modelId == config.modelId ? &config : nullptr;
}

InterfaceConfig *InterfaceConfig::instance()
{
    static InterfaceConfig config;
    return &config;
}

int InterfaceConfig::findCodeBySectionName(int modelId, const QString &sectionName, int)
{
    TinyBoundary::note(QStringLiteral("findCodeBySectionName"));
    return modelId == CardModelId && sectionName == cardSections().first().name
        ? cardSections().first().upgradeCode
        : -1;
}

QString InterfaceConfig::findSectionNameByCode(int modelId, int code, int)
{
    return modelId == CardModelId && code == cardSections().first().upgradeCode
        ? cardSections().first().name
        : QString();
}

QList<s_UpgradeCfg> InterfaceConfig::findUpgradeCfgByBoardId(int modelId, int boardId)
{
    TinyBoundary::note(QStringLiteral("findUpgradeCfgByBoardId"));
    return modelId == CardModelId && boardId == CardBoardId ? cardSections()
                                                            : QList<s_UpgradeCfg>();
}

InterfaceConfig::s_SubCard *InterfaceConfig::findSubCardByModelId(const unsigned short &modelId)
{
    static s_SubCard card;
    return modelId == CardModelId ? &card : nullptr;
}

} // namespace Velmar::BizModel
