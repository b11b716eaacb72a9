#include "device/servicegeneration.h"

#include <velmarbizmodel/deviceconfig.h>
#include <velmarssproxy/devicechannel.h>
#include <velmarssproxy/devicecommand.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <algorithm>

namespace Velmar::Host {

namespace {

constexpr unsigned char VersionCommandKind = 1;
constexpr unsigned char VersionCommandId = 0x0A;
constexpr unsigned char VersionCommandGroup = 0xFC;

int queryTimeout(const BizModel::s_DeviceConfig &config)
{
    const auto entry = std::find_if(config.commandTimeouts.cbegin(), config.commandTimeouts.cend(),
                                    [](const BizModel::s_CommandTimeout &candidate) {
                                        return candidate.commandGroup == VersionCommandGroup
                                            && candidate.commandId == VersionCommandId;
                                    });
    return entry == config.commandTimeouts.cend() ? config.defaultTimeout : entry->timeout;
}

} // namespace

ServiceGeneration askServiceGeneration(const std::shared_ptr<BizModel::DeviceLink> &link,
                                       const BizModel::s_DeviceConfig &config)
{
    const auto request = std::make_shared<SSProxy::DeviceRequestCommand>();
    request->commandKind = VersionCommandKind;
    request->commandId = VersionCommandId;
    request->commandGroup = VersionCommandGroup;
    request->setTimeout(queryTimeout(config));
    const auto response = SSProxy::DeviceChannel(link).sendSyncRequest(request);
    if (!response)
        return ServiceGeneration::Older;
    const auto document = QJsonDocument::fromJson(QByteArray::fromStdString(response->body()));
    if (!document.isObject())
        return ServiceGeneration::Older;

    static const QStringList hardwareWithoutService { QStringLiteral("S1.T1"),
                                                      QStringLiteral("S1.T2"),
                                                      QStringLiteral("S1.T3") };
    const auto version = document.object();
    const bool isRefused = version.value(QLatin1String("version")) == QLatin1String("2.0.0.0")
        && hardwareWithoutService.contains(version.value(QLatin1String("brief")).toString());
    return isRefused ? ServiceGeneration::None : ServiceGeneration::Newer;
}

} // namespace Velmar::Host
