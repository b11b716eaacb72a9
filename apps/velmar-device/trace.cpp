#include "trace.h"

#include <QCborArray>
#include <QCborMap>
#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>

namespace Velmar::Simulator {

namespace {

constexpr int MaxBytesInFull = 32;

QJsonObject bytesToJson(const QByteArray &bytes)
{
    QJsonObject object { { "length", bytes.size() } };
    if (bytes.size() <= MaxBytesInFull)
        object.insert(QLatin1String("hex"), QString::fromLatin1(bytes.toHex()));
    else
        object.insert(QLatin1String("sha256"),
                      QString::fromLatin1(
                          QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex()));
    return object;
}

/*! The way to the device that \a operation is a step of. */
QString roadOf(const QString &operation)
{
    return operation == QLatin1String("register.write") ? QStringLiteral("registers")
                                                        : QStringLiteral("native");
}

/*! As QCborValue::toJsonValue(), but for bytes. The depth is that of a message, which is bounded.
 */
QJsonValue toJson(const QCborValue &value) // NOLINT(misc-no-recursion)
{
    if (value.isByteArray())
        return bytesToJson(value.toByteArray());
    if (value.isMap()) {
        QJsonObject object;
        const QCborMap map = value.toMap();
        for (const auto &entry : map)
            object.insert(entry.first.toString(), toJson(entry.second));
        return object;
    }
    if (value.isArray()) {
        QJsonArray array;
        const QCborArray elements = value.toArray();
        for (const QCborValue element : elements)
            array.append(toJson(element));
        return array;
    }
    return value.toJsonValue();
}

} // namespace

bool Trace::open(const QString &path, QString &errorText)
{
    m_file.setFileName(path);
    // Unbuffered: a line is written at once, and appended even if somebody else writes there, too.
    if (m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        return true;
    errorText = QString::fromLatin1("The trace \"%1\" cannot be written: %2.")
                    .arg(path, m_file.errorString());
    return false;
}

void Trace::request(const QString &peer, const SSProxy::RequestMessage &request)
{
    if (!m_file.isOpen())
        return;
    write(roadOf(request.operation), QStringLiteral("in"), peer,
          { { "op", request.operation },
            { "label", qint64(request.label) },
            { "args", toJson(request.arguments) } });
}

void Trace::answer(const QString &peer, const QString &operation,
                   const SSProxy::AnswerMessage &answer)
{
    if (!m_file.isOpen())
        return;
    QJsonObject fields { { "op", operation },
                         { "label", qint64(answer.label) },
                         { "ack", answer.ack },
                         { "values", toJson(answer.values) } };
    if (answer.ack != 0)
        fields.insert(QLatin1String("error"), answer.errorText);
    write(roadOf(operation), QStringLiteral("out"), peer, fields);
}

void Trace::probe(const QString &peer, const QString &direction, const QCborMap &message)
{
    if (!m_file.isOpen())
        return;
    write(QStringLiteral("probe"), direction, peer, toJson(message).toObject());
}

void Trace::http(const QString &peer, const QJsonObject &exchange)
{
    if (m_file.isOpen())
        write(QStringLiteral("http"), QStringLiteral("in"), peer, exchange);
}

void Trace::write(const QString &road, const QString &direction, const QString &peer,
                  QJsonObject fields)
{
    fields.insert(QLatin1String("time"),
                  QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    fields.insert(QLatin1String("road"), road);
    fields.insert(QLatin1String("direction"), direction);
    fields.insert(QLatin1String("peer"), peer);
    m_file.write(QJsonDocument(fields).toJson(QJsonDocument::Compact) + '\n');
}

} // namespace Velmar::Simulator
