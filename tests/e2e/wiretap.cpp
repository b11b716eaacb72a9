#include "wiretap.h"

#include <velmarssproxy/framecodec.h>
#include <velmarssproxy/linkmessages.h>

#include <QCborMap>
#include <QTcpSocket>
#include <QtEndian>

#include <memory>

namespace {

constexpr int LengthSize = 4; // bytes of the length in front of a message

} // namespace

WireTap::WireTap(const QString &device)
    : m_deviceHost(device.section(QLatin1Char(':'), 0, 0))
    , m_devicePort(device.section(QLatin1Char(':'), 1).toUShort())
{
    connect(this, &QTcpServer::newConnection, this, &WireTap::takeConnection);
    listen(QHostAddress::LocalHost);
}

QString WireTap::address() const
{
    return QStringLiteral("127.0.0.1:%1").arg(serverPort());
}

void WireTap::takeConnection()
{
    while (auto *host = nextPendingConnection()) {
        auto *device = new QTcpSocket(host);
        const int number = ++m_connections;
        const auto operations = std::make_shared<QHash<quint32, QString>>();
        const auto requests = std::make_shared<Direction>(Direction { number, false, 0, {} });
        const auto answers = std::make_shared<Direction>(Direction { number, true, 0, {} });
        device->connectToHost(m_deviceHost, m_devicePort);
        connect(host, &QTcpSocket::readyRead, device,
                [=] { pass(host, device, *requests, *operations); });
        connect(device, &QTcpSocket::readyRead, host,
                [=] { pass(device, host, *answers, *operations); });
        connect(host, &QTcpSocket::disconnected, device, &QTcpSocket::disconnectFromHost);
        connect(device, &QTcpSocket::disconnected, host, &QTcpSocket::disconnectFromHost);
    }
}

void WireTap::pass(QTcpSocket *from, QTcpSocket *to, Direction &direction,
                   QHash<quint32, QString> &operations)
{
    const QByteArray bytes = from->readAll();
    to->write(bytes);
    direction.rest += bytes;
    while (direction.rest.size() >= LengthSize) {
        const int size = int(qFromBigEndian<quint32>(direction.rest.constData())) + LengthSize;
        if (direction.rest.size() < size)
            return;
        QCborMap map;
        QString errorText;
        Velmar::SSProxy::decodeMessage(direction.rest.mid(LengthSize, size - LengthSize), map,
                                       errorText);
        TappedMessage message { direction.connection, direction.isAnswer, QString(),
                                direction.passed, direction.passed + size };
        if (direction.isAnswer) {
            Velmar::SSProxy::AnswerMessage answer;
            answer.fromCbor(map, errorText);
            message.operation = operations.take(answer.label);
        } else {
            Velmar::SSProxy::RequestMessage request;
            request.fromCbor(map, errorText);
            message.operation = request.operation;
            operations.insert(request.label, request.operation);
        }
        m_messages.append(message);
        direction.passed += size;
        direction.rest.remove(0, size);
    }
}
