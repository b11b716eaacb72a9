#include <velmarmodelcontrol/auxiliary.h>

#include "devicevalues.h"
#include "exchange.h"

#include <velmarbizmodel/device.h>

#include <QDebug>

#include <optional>
#include <utility>

namespace Velmar::ModelControl {

using BizModel::LinkAnswer;
using BizModel::LinkRequest;
using Internal::failureText;

namespace {

constexpr int Installed = 2;
constexpr int InstallationFailed = 3;

QString deviceGoneText()
{
    return QStringLiteral("the device is gone");
}

} // namespace

Auxiliary::Auxiliary(std::weak_ptr<BizModel::Device> device)
    : m_device(std::move(device))
{
}

Auxiliary::~Auxiliary() = default;

bool Auxiliary::readDeviceVersion(ProtoModel::Auxiliary::s_DeviceVersion &version,
                                  QString &errorText)
{
    const auto device = m_device.lock();
    if (!device) {
        errorText = deviceGoneText();
        return false;
    }
    const LinkPolicy policy = linkPolicy();
    const LinkRequest request { QStringLiteral("version.read"), {}, policy.readTimeout };
    const LinkAnswer answer = Internal::ask(*device->link(), request, policy);
    if (!answer.isAccepted()) {
        errorText = failureText(request, answer);
        return false;
    }
    return Internal::readVersion(answer.values, version, errorText);
}

bool Auxiliary::setUgradeConfig(const ProtoModel::Auxiliary::s_UpgradeDetail &detail)
{
    const auto device = m_device.lock();
    if (!device) {
        qWarning().noquote() << "Cannot configure the upgrade:" << deviceGoneText();
        return false;
    }
    const LinkPolicy policy = linkPolicy();
    const LinkRequest request { QStringLiteral("upgrade.configure"),
                                Internal::upgradeArguments(detail), policy.writeTimeout };
    const LinkAnswer answer = Internal::order(*device->link(), request, policy);
    std::optional<quint32> run;
    QString errorText;
    if (!answer.isAccepted())
        errorText = failureText(request, answer);
    else if (Internal::readRun(answer.values, run, errorText))
        device->upgradeRun = run.value_or(0);
    if (!errorText.isEmpty())
        qWarning().noquote() << "Cannot configure the upgrade:" << errorText;
    return errorText.isEmpty();
}

bool Auxiliary::readUpgradeProgress(ProtoModel::Auxiliary::s_UpgradePercent &percent,
                                    QString &errorText)
{
    const auto device = m_device.lock();
    if (!device) {
        errorText = deviceGoneText();
        return false;
    }
    const LinkPolicy policy = linkPolicy();
    const LinkRequest request { QStringLiteral("upgrade.progress"), {}, policy.readTimeout };
    const LinkAnswer answer = Internal::ask(*device->link(), request, policy);
    if (!answer.isAccepted()) {
        errorText = failureText(request, answer);
        return false;
    }
    std::optional<quint32> run;
    ProtoModel::Auxiliary::s_UpgradePercent read = percent;
    if (!Internal::readRun(answer.values, run, errorText)
        || !Internal::readProgress(answer.values, read, errorText))
        return false;

    // The end of an older installation, which the device still shows: the one that was ordered has
    // not begun yet. A device that does not number its installations is taken at its word.
    const bool hasEnded = read.result == Installed || read.result == InstallationFailed;
    if (hasEnded && run && *run < device->upgradeRun)
        read = {};
    percent = std::move(read);
    return true;
}

bool Auxiliary::setDeviceShutDownMode(const unsigned char &mode)
{
    const auto device = m_device.lock();
    if (!device) {
        qWarning().noquote() << "Cannot shut down the device:" << deviceGoneText();
        return false;
    }
    const LinkPolicy policy = linkPolicy();
    QCborMap arguments;
    arguments.insert(QLatin1String("mode"), mode);
    const LinkRequest request { QStringLiteral("device.shutdown"), arguments, policy.writeTimeout };
    const LinkAnswer answer = Internal::order(*device->link(), request, policy);
    if (!answer.isAccepted())
        qWarning().noquote() << "Cannot shut down the device:" << failureText(request, answer);
    return answer.isAccepted();
}

} // namespace Velmar::ModelControl
