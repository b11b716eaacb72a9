#include <velmarssproxy/devicechannel.h>

#include <velmarbizmodel/devicelink.h>
#include <velmarssproxy/devicecommand.h>

#include <utility>

namespace Velmar::SSProxy {

namespace {

QByteArray bodyBytes(const DeviceRequestCommand &request)
{
    return QByteArray(request.body().data(), int(request.body().size()));
}

BizModel::LinkRequest commandRequest(const DeviceRequestCommand &request)
{
    QCborMap arguments;
    arguments.insert(QLatin1String("kind"), request.commandKind);
    arguments.insert(QLatin1String("id"), request.commandId);
    arguments.insert(QLatin1String("group"), request.commandGroup);
    arguments.insert(QLatin1String("body"), bodyBytes(request));
    return { QStringLiteral("command"), arguments, request.timeout() };
}

BizModel::LinkRequest registerRequest(const DeviceRequestCommand &request)
{
    QCborMap arguments;
    arguments.insert(QLatin1String("scanner"), request.isScannerTarget);
    arguments.insert(QLatin1String("write"), request.writeFlag);
    arguments.insert(QLatin1String("reserved"), request.reservedFlag);
    arguments.insert(QLatin1String("address"), qint64(request.address));
    arguments.insert(QLatin1String("length"), request.dataLength);
    arguments.insert(QLatin1String("trailing"), request.trailingFlag);
    arguments.insert(QLatin1String("body"), bodyBytes(request));
    return { QStringLiteral("register.write"), arguments, request.timeout() };
}

} // namespace

DeviceChannel::DeviceChannel(std::shared_ptr<BizModel::DeviceLink> link)
    : m_link(std::move(link))
{
}

DeviceChannel::~DeviceChannel() = default;

std::shared_ptr<DeviceResponseCommand>
DeviceChannel::sendSyncRequest(std::shared_ptr<DeviceRequestCommand> request)
{
    if (!request)
        return nullptr;

    const BizModel::LinkAnswer answer = m_link->send(
        request->commandKind != 0 ? commandRequest(*request) : registerRequest(*request));
    request->label = std::uint8_t(answer.label & 0xFF);
    if (answer.outcome != BizModel::LinkAnswer::Outcome::Answered)
        return nullptr;

    // A register write is answered without a body, and so is a refused command.
    const QCborValue body = answer.values.value(QLatin1String("body"));
    if (!body.isUndefined() && !body.isByteArray())
        return nullptr;

    auto response = std::make_shared<DeviceResponseCommand>();
    response->label = request->label;
    response->ack = answer.ack;
    response->setBody(body.toByteArray().toStdString());
    return response;
}

bool DeviceChannel::isHardwareReadFinished()
{
    return m_link->isOpen();
}

void DeviceChannel::pauseHeartbeat(const int &milliseconds)
{
    m_link->pauseHeartbeat(milliseconds);
}

void DeviceChannel::restartHeartbeat()
{
    m_link->restartHeartbeat();
}

} // namespace Velmar::SSProxy
