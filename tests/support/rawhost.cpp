#include "rawhost.h"

#include <QCborArray>
#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QNetworkProxy>

using namespace Velmar::SSProxy;

namespace {

constexpr int PatienceMs = 20000;

} // namespace

bool RawHost::connectTo(quint16 port, const QHostAddress &address)
{
    m_socket.abort();
    m_frames = FrameReader();
    m_socket.setProxy(QNetworkProxy::NoProxy);
    m_socket.connectToHost(address, port);
    return m_socket.waitForConnected(PatienceMs);
}

std::optional<RawHost::Answer> RawHost::ask(const QString &operation, const QCborMap &arguments)
{
    const quint32 label = send(operation, arguments);
    const std::optional<Answer> answer = receive();
    return answer && answer->label == label ? answer : std::nullopt;
}

quint32 RawHost::send(const QString &operation, const QCborMap &arguments)
{
    RequestMessage request;
    request.label = ++m_label;
    request.operation = operation;
    request.arguments = arguments;
    write(encodeFrame(request.toCbor()));
    return m_label;
}

std::optional<RawHost::Answer> RawHost::receive()
{
    QCborMap message;
    for (;;) {
        const FrameReader::Status status = m_frames.next(message);
        if (status == FrameReader::Status::Message)
            break;
        if (status == FrameReader::Status::Broken)
            return {};
        if (m_socket.bytesAvailable() == 0 && !m_socket.waitForReadyRead(PatienceMs))
            return {};
        m_frames.append(m_socket.readAll());
    }
    Answer answer;
    QString fault;
    if (!answer.fromCbor(message, fault))
        return {};
    return answer;
}

void RawHost::write(const QByteArray &bytes)
{
    m_socket.write(bytes);
    m_socket.flush();
}

std::optional<RawHost::Answer> RawHost::announceAndOpen(const QByteArray &image)
{
    const QCborMap file { { QLatin1String("fileId"), 0 },
                          { QLatin1String("fileType"), 13 },
                          { QLatin1String("fileName"), QLatin1String("") },
                          { QLatin1String("fileSize"), image.size() } };
    const std::optional<Answer> announced =
        ask(QStringLiteral("file.announce"), { { QLatin1String("files"), QCborArray { file } } });
    if (!announced || announced->ack != 0)
        return announced;
    return ask(QStringLiteral("file.open"),
               { { QLatin1String("fileId"), 0 },
                 { QLatin1String("fileType"), 13 },
                 { QLatin1String("size"), image.size() },
                 { QLatin1String("sha256"),
                   QCryptographicHash::hash(image, QCryptographicHash::Sha256) } });
}

std::optional<RawHost::Answer> RawHost::sendChunk(const QByteArray &image, int offset, int length)
{
    return ask(QStringLiteral("file.data"),
               { { QLatin1String("fileId"), 0 },
                 { QLatin1String("offset"), offset },
                 { QLatin1String("bytes"), image.mid(offset, length) } });
}

std::optional<RawHost::Answer> RawHost::sendImage(const QByteArray &image, int chunkSize)
{
    std::optional<Answer> answer = announceAndOpen(image);
    for (int offset = 0; answer && answer->ack == 0 && offset < image.size(); offset += chunkSize)
        answer = sendChunk(image, offset, chunkSize);
    if (!answer || answer->ack != 0)
        return answer;
    return ask(QStringLiteral("file.close"), { { QLatin1String("fileId"), 0 } });
}

QCborMap RawHost::configuration(const QVector<OrderedPart> &parts, bool deletesImage)
{
    QCborArray array;
    for (const OrderedPart &part : parts) {
        QCborArray sections;
        for (const int code : part.codes)
            sections.append(QCborMap { { QLatin1String("code"), code } });
        array.append(QCborMap { { QLatin1String("type"), part.type },
                                { QLatin1String("slotId"), part.slotId },
                                { QLatin1String("boardId"), part.boardId },
                                { QLatin1String("section"), sections } });
    }
    return { { QLatin1String("upgradeType"), 1 },
             { QLatin1String("filePath"), QLatin1String("N/A") },
             { QLatin1String("reboot"), 1 },
             { QLatin1String("deleteUpgradeFile"), deletesImage ? 1 : 0 },
             { QLatin1String("parts"), array } };
}

std::optional<RawHost::Answer> RawHost::waitForInstallation()
{
    QElapsedTimer clock;
    clock.start();
    std::optional<Answer> progress;
    do
        progress = ask(QStringLiteral("upgrade.progress"));
    while (progress && progress->values.value(QLatin1String("result")).toInteger() == 1
           && clock.elapsed() < PatienceMs);
    return progress;
}

bool RawHost::hearsNothing()
{
    m_socket.waitForReadyRead(0);
    return m_socket.readAll().isEmpty() && m_socket.state() == QAbstractSocket::ConnectedState;
}

bool RawHost::waitForEnd()
{
    return m_socket.state() == QAbstractSocket::UnconnectedState
        || m_socket.waitForDisconnected(PatienceMs);
}
