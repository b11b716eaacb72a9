#include <velmarssproxy/linkmessages.h>

#include "cborfields.h"

#include <QCborValue>

namespace Velmar::SSProxy {

using Internal::readNumber;

namespace {

const QLatin1String LabelKey("label");
const QLatin1String OperationKey("op");
const QLatin1String ArgumentsKey("args");
const QLatin1String AckKey("ack");
const QLatin1String ValuesKey("values");
const QLatin1String ErrorKey("error");

} // namespace

QCborMap RequestMessage::toCbor() const
{
    QCborMap message;
    message.insert(LabelKey, qint64(label));
    message.insert(OperationKey, operation);
    message.insert(ArgumentsKey, arguments);
    return message;
}

bool RequestMessage::fromCbor(const QCborMap &message, QString &errorText)
{
    const QCborValue op = message.value(OperationKey);
    const QCborValue args = message.value(ArgumentsKey);
    quint32 number = 0;
    if (!readNumber(message, LabelKey, number) || !op.isString() || !args.isMap()) {
        errorText = QStringLiteral("the message is no request");
        return false;
    }
    label = number;
    operation = op.toString();
    arguments = args.toMap();
    return true;
}

QCborMap AnswerMessage::toCbor() const
{
    QCborMap message;
    message.insert(LabelKey, qint64(label));
    message.insert(AckKey, ack);
    message.insert(ValuesKey, values);
    if (ack != 0)
        message.insert(ErrorKey, errorText);
    return message;
}

bool AnswerMessage::fromCbor(const QCborMap &message, QString &errorReason)
{
    const QCborValue answered = message.value(ValuesKey);
    const QCborValue error = message.value(ErrorKey);
    quint32 number = 0;
    quint16 word = 0;
    if (!readNumber(message, LabelKey, number) || !readNumber(message, AckKey, word)
        || !answered.isMap() || !(error.isUndefined() || error.isString())) {
        errorReason = QStringLiteral("the message is no answer");
        return false;
    }
    label = number;
    ack = word;
    values = answered.toMap();
    errorText = error.toString();
    return true;
}

} // namespace Velmar::SSProxy
