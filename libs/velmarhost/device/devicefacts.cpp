#include "device/devicefacts.h"

#include "device/greeting.h"
#include "device/onetrylink.h"
#include "show/printable.h"

#include <velmarbizmodel/device.h>
#include <velmarmodelcontrol/auxiliary.h>
#include <velmarssproxy/socketlink.h>

#include <utility>

namespace Velmar::Host {

using ProtoModel::Auxiliary::s_DeviceVersion;
using ProtoModel::Auxiliary::s_UpgradePercent;

namespace {

/*! A question of the control layer, as one of its member functions. */
template<typename Record> using Question = bool (ModelControl::Auxiliary::*)(Record &, QString &);

/*! Asks \a question once; \a cause is made printable. */
template<typename Record>
std::optional<Record> ask(const std::shared_ptr<BizModel::DeviceLink> &link,
                          std::chrono::milliseconds timeout, Question<Record> question,
                          QString &cause)
{
    const auto once = std::make_shared<OneTryLink>(link, timeout);
    const auto device = std::make_shared<BizModel::Device>(
        BizModel::s_DeviceConfig(), std::vector<std::shared_ptr<BizModel::Subcard>>(), once);
    Record record;
    QString errorText;
    ModelControl::Auxiliary control(device);
    if ((control.*question)(record, errorText))
        return record;
    cause = printable(once->failure().isEmpty() ? errorText : once->failure());
    return std::nullopt;
}

} // namespace

std::shared_ptr<BizModel::DeviceLink> makeSocketLink(const DeviceAddress &address)
{
    return std::make_shared<SSProxy::SocketLink>(address.host, address.port);
}

std::optional<DeviceFacts> readDeviceFacts(const DeviceAddress &address,
                                           std::chrono::milliseconds timeout, QString &errorText,
                                           const LinkFactory &makeLink)
{
    const auto link = makeLink(address);
    const auto greeting = greet(*link, address.toString(), timeout, errorText);
    if (!greeting)
        return std::nullopt;
    auto versions = readVersions(link, timeout, errorText);
    if (!versions)
        return std::nullopt;
    DeviceFacts facts { address, greeting->modelId,   greeting->serial, greeting->name,
                        {},      std::move(*versions) };
    for (const auto &card : greeting->cards)
        facts.cards.push_back(
            { card->slotId(), static_cast<quint16>(card->modelId()), card->boardId() });
    return facts;
}

std::optional<s_UpgradePercent> readInstallation(const DeviceAddress &address,
                                                 std::chrono::milliseconds timeout,
                                                 QString &errorText, const LinkFactory &makeLink)
{
    const auto link = makeLink(address);
    if (!greet(*link, address.toString(), timeout, errorText))
        return std::nullopt;
    return readInstallation(link, timeout, errorText);
}

std::optional<s_UpgradePercent> readInstallation(const std::shared_ptr<BizModel::DeviceLink> &link,
                                                 std::chrono::milliseconds timeout,
                                                 QString &errorText)
{
    QString cause;
    auto progress =
        ask<s_UpgradePercent>(link, timeout, &ModelControl::Auxiliary::readUpgradeProgress, cause);
    if (!progress)
        errorText = QStringLiteral("The device does not tell its progress: %1").arg(cause);
    return progress;
}

std::optional<s_DeviceVersion> readVersions(const std::shared_ptr<BizModel::DeviceLink> &link,
                                            std::chrono::milliseconds timeout, QString &errorText)
{
    QString cause;
    auto versions =
        ask<s_DeviceVersion>(link, timeout, &ModelControl::Auxiliary::readDeviceVersion, cause);
    if (!versions)
        errorText = QStringLiteral("The device does not tell its versions: %1").arg(cause);
    return versions;
}

} // namespace Velmar::Host
