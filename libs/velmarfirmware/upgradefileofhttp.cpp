#include "upgradefileofhttp.h"
#include "upgradefileofhttp_p.h"

#include "deviceprotocol.h"
#include "upgradeclientproxy.h"
#include "json/json.h"

#include <velmarbizmodel/deviceconfig.h>
#include <velmarbizmodel/deviceconfigmanager.h>
#include <velmarbizmodel/devicelist.h>
#include <velmarssproxy/devicechannel.h>
#include <velmarssproxy/devicecommand.h>

#include <QDebug>

#include <algorithm>
#include <limits>

namespace Velmar::Firmware {

namespace {

using BizModel::s_DeviceConfig;
using ProtoModel::Auxiliary::s_CardInfoParts;
using ProtoModel::Auxiliary::s_CompatibilitySubCardDetail;
using ProtoModel::Auxiliary::s_CompatibilitySubCardPercentSection;
using ProtoModel::Auxiliary::s_CompatibilityUpgradeDetail;
using ProtoModel::Auxiliary::s_CompatibilityUpgradePercent;
using ProtoModel::Auxiliary::s_DeviceVersion;
using ProtoModel::Auxiliary::s_SectionPercent;
using ProtoModel::Auxiliary::s_UpgradeCardParts;
using ProtoModel::Auxiliary::s_UpgradeDetail;
using ProtoModel::Auxiliary::s_UpgradePercent;

// Of the device libraries' enumerations only the numbers are fixed.
constexpr auto StatusBarProgress = static_cast<BizModel::Enum::StatusBarMsgType>(0);
constexpr auto StatusBarFailure = static_cast<BizModel::Enum::StatusBarMsgType>(2);
constexpr auto BoxFailure = static_cast<BizModel::Enum::FramelessMessageBoxMsgType>(1);
constexpr auto BoxEnd = static_cast<BizModel::Enum::FramelessMessageBoxMsgType>(2);

// The version query.
constexpr unsigned char VersionCommandKind = 1;
constexpr unsigned char VersionCommandId = 0x0A;
constexpr unsigned char VersionCommandGroup = 0xFC;

// The two sections that the older request names.
constexpr unsigned short McuUpgradeCode = 0x101;
constexpr unsigned short McuBackUpgradeCode = 0x105;
constexpr int OlderSectionTimeout = 60; // as devices of that generation expect it

constexpr int CardPartType = 1; // the one part that the older progress is merged into
constexpr int StatusBarMs = 6000;
constexpr int VersionFailureMs = 5000;

// What a progress record says by its result.
constexpr int ResultRunning = 1;
constexpr int ResultInstalled = 2;
constexpr int ResultFailed = 3;

QDebug warning()
{
    return qWarning().noquote();
}

QDebug debug()
{
    return qDebug().noquote();
}

void showStatus(BizModel::Enum::StatusBarMsgType type, const QString &text, int milliseconds)
{
    Q_EMIT BizModel::DeviceList::instance()->signalShowStatusBarMsg(type, text, milliseconds);
}

void showMessageBox(BizModel::Enum::FramelessMessageBoxMsgType type, const QString &text)
{
    Q_EMIT BizModel::DeviceList::instance()->signalShowFramelessMessageBoxMsg(type, text);
}

const s_DeviceConfig *findDeviceConfig(unsigned short modelId)
{
    return BizModel::DeviceConfigManager::instance()->findDeviceConfigByID(modelId);
}

void warnOfMissingConfig(const char *what, unsigned short number)
{
    warning().nospace() << "Can not find " << what
                        << " config for this device, modelId : " << number;
}

int versionQueryTimeout(const s_DeviceConfig &config)
{
    for (const BizModel::s_CommandTimeout &entry : config.commandTimeouts) {
        if (entry.commandGroup == VersionCommandGroup && entry.commandId == VersionCommandId)
            return entry.timeout;
    }
    return config.defaultTimeout;
}

std::vector<s_CompatibilitySubCardDetail> oneSection(unsigned short modelId,
                                                     unsigned short compatibilityCode)
{
    s_CompatibilitySubCardDetail card;
    card.slotId = 0;
    card.modelId = modelId;
    card.sections.push_back({ compatibilityCode, OlderSectionTimeout });
    return { card };
}

} // namespace

namespace Internal {

UpgradeFileOfHTTPPrivate::UpgradeFileOfHTTPPrivate(UpgradeFileOfHTTP *owner)
    : QObject(nullptr)
    , q(owner)
{
    const UpgradeClientProxy *proxy = UpgradeClientProxy::getInstance();
    connect(proxy, &UpgradeClientProxy::signalOnUploadProgress, this,
            &UpgradeFileOfHTTPPrivate::slotOnUploadProgress);
    connect(proxy, &UpgradeClientProxy::signalReplyUploadFinished, this,
            &UpgradeFileOfHTTPPrivate::slotReplyUploadFinished);
    connect(proxy, &UpgradeClientProxy::signalReplyUpdataFinished, this,
            &UpgradeFileOfHTTPPrivate::slotReplyUpdataFinished);
    connect(proxy, &UpgradeClientProxy::signalReplyUpdataSchedule, this,
            &UpgradeFileOfHTTPPrivate::slotReplyUpdataSchedule);
}

bool UpgradeFileOfHTTPPrivate::doDeviceUpgradeOfHTTP()
{
    if (m_bCompatibility) {
        if (!m_pDeviceChannel)
            return false;
        if (checkDeviceVersion() == Enum::UpgradeProtoType::ProtoRefused)
            return false;
    }
    const std::string body = serializeUpgradeConfigForHttp();
    if (body.empty()) {
        // Worded by the public class, as translators know the two texts.
        showMessageBox(BoxFailure,
                       m_bCompatibility ? UpgradeFileOfHTTP::tr("Please check upgrade config.")
                                        : UpgradeFileOfHTTP::tr("Please select upgrade config."));
        return false;
    }
    debug().nospace() << "Update user config json: " << QString::fromStdString(body);
    sendUpgradeRequest(body);
    return true;
}

Enum::UpgradeProtoType UpgradeFileOfHTTPPrivate::checkDeviceVersion()
{
    s_DeviceVersion version;
    if (!getDeviceVersion(version))
        return Enum::UpgradeProtoType::ProtoUnknown; // taken for the older generation
    if (version.version != DeviceProtocolVersion) {
        m_bCompatibility = false;
        return Enum::UpgradeProtoType::ProtoSupported;
    }
    const QStringList unsupported =
        QString::fromLatin1(UnsupportedHardware).split(QLatin1Char(';'));
    // A split gives at least one piece, so this holds for a list that is no constant.
    if (unsupported.isEmpty()) {
        m_bCompatibility = false;
        return Enum::UpgradeProtoType::ProtoSupported;
    }
    for (const QString &hardware : unsupported) {
        if (hardware.isEmpty() || hardware.toStdString() != version.brief)
            continue;
        const QString text = tr("Failed to upgrade:Please use device OLED program to upgrade!");
        showMessageBox(BoxFailure, text);
        warning() << text;
        return Enum::UpgradeProtoType::ProtoRefused;
    }
    m_bCompatibility = false;
    return Enum::UpgradeProtoType::ProtoSupported;
}

bool UpgradeFileOfHTTPPrivate::getDeviceVersion(s_DeviceVersion &version)
{
    const auto request = std::make_shared<SSProxy::DeviceRequestCommand>();
    request->commandKind = VersionCommandKind;
    request->commandId = VersionCommandId;
    request->commandGroup = VersionCommandGroup;
    const s_DeviceConfig *config = findDeviceConfig(m_modelId);
    if (!config) {
        warnOfMissingConfig("device", m_modelId);
        return false;
    }
    request->setTimeout(versionQueryTimeout(*config));
    const auto response = m_pDeviceChannel->sendSyncRequest(request);
    if (!response) {
        const QString text =
            tr("Get %1 failed: %2 .")
                .arg(tr("device version"), tr("invalid response command model data"));
        const QString labelText = QStringLiteral(" lables: %1").arg(int(request->label));
        warning() << "VelmarCmd" << m_deviceIP << text << labelText;
        showStatus(StatusBarFailure, text, VersionFailureMs);
        return false;
    }
    std::string error;
    if (!ajson::decodeJson(response->body(), version, error)) {
        warning().nospace() << "Decode json failed: " << QString::fromStdString(error);
        return false;
    }
    return true;
}

std::string UpgradeFileOfHTTPPrivate::serializeUpgradeConfigForHttp()
{
    return m_bCompatibility ? serializeOlderRequest() : serializeNewerRequest();
}

std::string UpgradeFileOfHTTPPrivate::serializeOlderRequest()
{
    s_CompatibilityUpgradeDetail detail;
    detail.deviceId = m_modelId;
    detail.upgradeType = 1;
    detail.filePath = m_filePath.toStdString();
    detail.reboot = 1;
    detail.deleteUpgradeFile = 1;
    const s_DeviceConfig *config = findDeviceConfig(m_modelId);
    if (!config) {
        warnOfMissingConfig("device", m_modelId);
        return {};
    }
    unsigned short mcuCode = 0;
    if (!findCompatibilityCodeByUpgradeCode(config, McuUpgradeCode, mcuCode)) {
        warnOfMissingConfig("MCU", m_modelId);
        return {};
    }
    unsigned short mcuBackCode = 0;
    if (!findCompatibilityCodeByUpgradeCode(config, McuBackUpgradeCode, mcuBackCode)) {
        warnOfMissingConfig("MCU_Back", m_modelId);
        return {};
    }
    detail.mainControl = oneSection(m_modelId, mcuCode);
    detail.backPlane = oneSection(config->backPlaneModelId, mcuBackCode);
    std::string text;
    ajson::encodeJson(text, std::vector<s_CompatibilityUpgradeDetail> { detail });
    return text;
}

std::string UpgradeFileOfHTTPPrivate::serializeNewerRequest()
{
    if (m_cardInfoParts.empty()) {
        qWarning() << "The user did not select an upgrade item";
        return {};
    }
    s_UpgradeDetail detail;
    detail.upgradeType = 1;
    detail.filePath = "N/A"; // the device names the uploaded file itself
    detail.reboot = 1;
    detail.deleteUpgradeFile = 1;
    detail.parts = m_cardInfoParts;
    std::string text;
    ajson::encodeJson(text, detail);
    return text;
}

bool UpgradeFileOfHTTPPrivate::findCompatibilityCodeByUpgradeCode(const s_DeviceConfig *config,
                                                                  unsigned short upgradeCode,
                                                                  unsigned short &compatibilityCode)
{
    if (!config)
        return false;
    for (const BizModel::s_UpgradeCfg &section : config->upgradeCfgs) {
        if (section.upgradeCode == upgradeCode) {
            compatibilityCode = section.compatibilityCode;
            return true;
        }
    }
    return false;
}

bool UpgradeFileOfHTTPPrivate::findUpgradeCodeByCompatilityCode(unsigned short compatibilityCode,
                                                                unsigned short &upgradeCode)
{
    const s_DeviceConfig *config = findDeviceConfig(m_modelId);
    if (!config) {
        // The number is the code's, although the text says model: logs are searched by it.
        warnOfMissingConfig("device", compatibilityCode);
        return false;
    }
    for (const BizModel::s_UpgradeCfg &section : config->upgradeCfgs) {
        if (section.compatibilityCode == compatibilityCode) {
            upgradeCode = section.upgradeCode;
            return true;
        }
    }
    return false;
}

void UpgradeFileOfHTTPPrivate::sendUpgradeRequest(const std::string &body)
{
    m_bFinished = false;
    UpgradeClientProxy *const proxy = UpgradeClientProxy::getInstance();
    proxy->setDeviceIp(m_deviceIP);
    const QByteArray text(body.c_str()); // ends at the first NUL
    if (proxy->uploadFiletoDevice(m_filePath, text) != 0)
        showMessageBox(BoxFailure, tr("Failed to upgrade!"));
}

void UpgradeFileOfHTTPPrivate::finishUpgrade(BizModel::Enum::StatusBarMsgType statusType,
                                             const QString &statusText,
                                             BizModel::Enum::FramelessMessageBoxMsgType boxType,
                                             QString boxText)
{
    showStatus(statusType, statusText, StatusBarMs);
    const auto callback = m_upgradeFinishedCallBack; // a host may replace it from inside
    callback();
    showMessageBox(boxType, boxText);
}

// The restart is announced after a failure, too: the text is the same for every failure on purpose.
void UpgradeFileOfHTTPPrivate::finishFailedTransfer()
{
    finishUpgrade(StatusBarFailure, tr("Upload file failed!"), BoxEnd,
                  tr("The device will restart, please wait!"));
}

void UpgradeFileOfHTTPPrivate::slotOnUploadProgress(qint64 bytesSent, qint64 bytesTotal)
{
    if (bytesTotal == 0)
        return;
    // In this order and truncated: 29 of 100 shows 28.
    const double percent = static_cast<double>(bytesSent) / static_cast<double>(bytesTotal) * 100.0;
    // An unknown total is -1, and from 20 MiB sent on the result leaves the range of int.
    const double shown =
        qBound<double>(std::numeric_limits<int>::min(), percent, std::numeric_limits<int>::max());
    showStatus(StatusBarProgress, tr("Upload file progress: %1%").arg(static_cast<int>(shown)),
               StatusBarMs);
}

void UpgradeFileOfHTTPPrivate::slotReplyUploadFinished(int nCode)
{
    debug().nospace() << "Upload file code " << nCode;
    if (nCode == 0)
        UpgradeClientProxy::getInstance()->startPostReply();
    else
        finishFailedTransfer();
}

void UpgradeFileOfHTTPPrivate::slotReplyUpdataFinished(int nCode)
{
    debug().nospace() << m_deviceIP << " Updata finished  " << nCode;
    UpgradeClientProxy::getInstance()->stopPostReply();
    if (nCode != 0)
        finishFailedTransfer();
}

void UpgradeFileOfHTTPPrivate::slotReplyUpdataSchedule(QByteArray buffer)
{
    if (buffer.isNull()) {
        warning() << "VelmarCmd Updata Shedule json is null" << m_deviceIP;
        return;
    }
    debug() << "VelmarCmd Updata Schedule json: " << m_deviceIP << buffer.constData();
    s_UpgradePercent percent;
    if (!decodeProgress(buffer, percent))
        return;
    const auto callback = m_refreshUpgradeProcessCallBack; // a host may replace it from inside
    callback(percent);

    switch (percent.result) {
    case ResultInstalled:
        UpgradeClientProxy::getInstance()->stopPostReply();
        finishUpgrade(StatusBarProgress, tr("Upgrade successed!"), BoxEnd,
                      tr("The device will restart, please wait!"));
        m_bFinished = true;
        break;
    case ResultRunning: {
        const QString text = tr("Upgrade has been completed: %1%").arg(int(percent.rate));
        debug() << "VelmarCmd" << m_deviceIP << text;
        showStatus(StatusBarProgress, text, StatusBarMs);
        break;
    }
    case ResultFailed:
        UpgradeClientProxy::getInstance()->stopPostReply();
        // Only this end is guarded: a late answer with success ends the upgrade once more.
        if (m_bFinished)
            break;
        finishUpgrade(StatusBarFailure, tr("Upgrade failed!"), BoxEnd,
                      tr("The device will restart, please wait!"));
        m_bFinished = true;
        break;
    default:
        break;
    }
}

bool UpgradeFileOfHTTPPrivate::decodeProgress(const QByteArray &buffer, s_UpgradePercent &percent)
{
    const std::string text = buffer.toStdString();
    std::string error;
    if (!m_bCompatibility) {
        if (ajson::decodeJson(text, percent, error))
            return true;
        warning() << "VelmarCmd Decode upgradePercent data failed. ErrMsg :"
                  << QString::fromStdString(error) << m_deviceIP;
        return false;
    }
    std::vector<s_CompatibilityUpgradePercent> records;
    if (!ajson::decodeJson(text, records, error)) {
        warning() << "VelmarCmd Decode compatibilityUpgradePercent data failed. ErrMsg :"
                  << QString::fromStdString(error) << m_deviceIP;
        return false;
    }
    convertCompatibilityPercent(records, percent);
    return true;
}

void UpgradeFileOfHTTPPrivate::convertCompatibilityPercent(
    const std::vector<s_CompatibilityUpgradePercent> &records, s_UpgradePercent &percent)
{
    if (records.empty())
        return;
    const s_CompatibilityUpgradePercent &record = records.front();
    percent.result = record.result != 0 ? ResultRunning : ResultInstalled;
    percent.parts.clear();
    quint64 sum = 0;
    if (!record.mainControl.empty())
        mergeUpgradeParts(record.mainControl, CardPartType, sum, percent);
    if (!record.backPlane.empty())
        mergeUpgradeParts(record.backPlane, CardPartType, sum, percent);
    if (!percent.parts.empty())
        percent.rate = static_cast<std::uint8_t>(sum / percent.parts.size());
}

void UpgradeFileOfHTTPPrivate::mergeUpgradeParts(
    const std::vector<s_CompatibilitySubCardPercentSection> &list, int type, quint64 &sum,
    s_UpgradePercent &percent)
{
    std::vector<s_UpgradeCardParts> &parts = percent.parts;
    const auto isOfType = [type](const s_UpgradeCardParts &part) {
        return part.type == type;
    };
    // A place and not a pointer: the list grows.
    auto found = static_cast<std::size_t>(std::find_if(parts.begin(), parts.end(), isOfType)
                                          - parts.begin());
    for (const s_CompatibilitySubCardPercentSection &element : list) {
        s_UpgradeCardParts added;
        added.type = type;
        makeUpgradePart(added, element);
        if (found == parts.size()) {
            sum += added.rate;
            parts.push_back(std::move(added));
            continue;
        }
        s_UpgradeCardParts &part = parts[found];
        sum -= part.rate;
        const quint64 oldCount = part.section.size();
        const quint64 newCount = added.section.size();
        const quint64 weighted = oldCount * part.rate;
        part.section.insert(part.section.end(), added.section.begin(), added.section.end());
        // Without any section there is no mean, and the rate stays.
        if (oldCount + newCount != 0)
            part.rate = static_cast<std::uint8_t>((added.rate * newCount + weighted)
                                                  / (oldCount + newCount));
        sum += part.rate;
    }
}

void UpgradeFileOfHTTPPrivate::makeUpgradePart(s_UpgradeCardParts &part,
                                               const s_CompatibilitySubCardPercentSection &element)
{
    part.slotId = element.slotId;
    quint64 total = 0;
    for (const s_SectionPercent &entry : element.sections) {
        s_SectionPercent section;
        if (!findUpgradeCodeByCompatilityCode(entry.code, section.code)) {
            warning().nospace() << "Can not find the section code by compatility code :"
                                << entry.code;
            continue;
        }
        section.result = entry.result != 0 ? ResultRunning : ResultInstalled;
        section.rate = entry.rate;
        total += entry.rate;
        part.section.push_back(section);
    }
    if (!part.section.empty())
        part.rate = static_cast<std::uint8_t>(total / part.section.size());
}

} // namespace Internal

UpgradeFileOfHTTP::UpgradeFileOfHTTP(QObject *parent)
    : QObject(parent)
    , d(new Internal::UpgradeFileOfHTTPPrivate(this))
{
}

void UpgradeFileOfHTTP::init(bool compatibility, std::shared_ptr<SSProxy::DeviceChannel> channel,
                             unsigned short modelId, const std::vector<s_CardInfoParts> &parts,
                             const QString &filePath, const QString &deviceIP)
{
    d->m_bCompatibility = compatibility;
    d->m_pDeviceChannel = std::move(channel);
    d->m_modelId = modelId;
    d->m_cardInfoParts = parts;
    d->m_filePath = filePath;
    d->m_deviceIP = deviceIP;
}

void UpgradeFileOfHTTP::setDeviceIP(const QString &ip)
{
    d->m_deviceIP = ip;
}

void UpgradeFileOfHTTP::registerRefreshUpgradeProcessCallBack(
    std::function<void(s_UpgradePercent &)> callback)
{
    d->m_refreshUpgradeProcessCallBack = std::move(callback);
}

void UpgradeFileOfHTTP::registerUpgradeFinishedCallBack(std::function<void()> callback)
{
    d->m_upgradeFinishedCallBack = std::move(callback);
}

bool UpgradeFileOfHTTP::doDeviceUpgradeOfHTTP()
{
    return d->doDeviceUpgradeOfHTTP();
}

} // namespace Velmar::Firmware
