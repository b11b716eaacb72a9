#include "device/greeting.h"

#include "show/printable.h"

#include <velmarbizmodel/devicelink.h>

#include <QCborArray>

#include <algorithm>
#include <limits>
#include <utility>

namespace Velmar::Host {

namespace {

constexpr int ProtocolVersion = 1;

template<typename Number> std::optional<Number> readNumber(const QCborValue &value)
{
    if (!value.isInteger() || value.toInteger() < 0
        || value.toInteger() > std::numeric_limits<Number>::max())
        return std::nullopt;
    return static_cast<Number>(value.toInteger());
}

std::shared_ptr<BizModel::Subcard> readCard(const QCborValue &value)
{
    const auto card = value.toMap();
    const auto slotId = readNumber<quint8>(card.value(QLatin1String("slotId")));
    const auto modelId = readNumber<quint16>(card.value(QLatin1String("modelId")));
    const auto boardId = readNumber<quint8>(card.value(QLatin1String("boardId")));
    if (!slotId || !modelId || !boardId)
        return nullptr;
    return std::make_shared<BizModel::Subcard>(*modelId, *slotId, *boardId);
}

std::optional<Greeting> readGreeting(const QCborMap &values)
{
    const auto modelId = readNumber<quint16>(values.value(QLatin1String("modelId")));
    const auto serial = values.value(QLatin1String("serial"));
    const auto name = values.value(QLatin1String("name"));
    const auto cards = values.value(QLatin1String("cards"));
    if (!modelId || !serial.isString() || !name.isString() || !cards.isArray())
        return std::nullopt;
    Greeting greeting { *modelId, serial.toString(), name.toString(), {} };
    const auto cardValues = cards.toArray();
    for (const auto &value : cardValues) {
        auto card = readCard(value);
        if (!card)
            return std::nullopt;
        greeting.cards.push_back(std::move(card));
    }
    std::stable_sort(
        greeting.cards.begin(), greeting.cards.end(),
        [](const auto &left, const auto &right) { return left->slotId() < right->slotId(); });
    return greeting;
}

} // namespace

std::optional<Greeting> greet(BizModel::DeviceLink &link, const QString &name,
                              std::chrono::milliseconds timeout, QString &errorText)
{
    const int milliseconds = static_cast<int>(timeout.count());
    QString cause;
    if (!link.open(milliseconds, cause)) {
        errorText =
            QStringLiteral("%1 cannot be reached: %2. Check the address, and that the device "
                           "is switched on")
                .arg(name, printable(cause));
        return std::nullopt;
    }
    BizModel::LinkRequest hello;
    hello.operation = QStringLiteral("hello");
    hello.timeout = milliseconds;
    const auto answer = link.send(hello);
    if (!answer.isAccepted()) {
        errorText = QStringLiteral("What listens at %1 does not answer as a device: %2. Check the "
                                   "address and the port")
                        .arg(name, printable(answer.errorText));
        return std::nullopt;
    }
    const auto protocol = answer.values.value(QLatin1String("protocol"));
    if (!protocol.isInteger() || protocol.toInteger() != ProtocolVersion) {
        errorText =
            QStringLiteral("The device at %1 speaks version %2 of the device link, this host "
                           "version %3. Use a host of the device's generation")
                .arg(name,
                     protocol.isInteger() ? QString::number(protocol.toInteger())
                                          : QStringLiteral("\"unknown\""),
                     QString::number(ProtocolVersion));
        return std::nullopt;
    }
    auto greeting = readGreeting(answer.values);
    if (!greeting) {
        errorText = QStringLiteral("The device at %1 describes itself in a way that this host does "
                                   "not understand. Use a host of the device's generation")
                        .arg(name);
        return std::nullopt;
    }
    return greeting;
}

} // namespace Velmar::Host
