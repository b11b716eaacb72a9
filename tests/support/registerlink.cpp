#include "registerlink.h"

using Velmar::BizModel::LinkAnswer;

namespace {

const QString RegisterWrite = QStringLiteral("register.write");

} // namespace

RegisterLink::RegisterLink()
{
    answer(RegisterWrite, accepted());
    answer(QStringLiteral("heartbeat.pause"), accepted());
    answer(QStringLiteral("heartbeat.resume"), accepted());
}

void RegisterLink::answerWrite(int number, const LinkAnswer &answer)
{
    for (int before = 1; before < number; ++before)
        queue(RegisterWrite, accepted());
    queue(RegisterWrite, answer);
}

QStringList RegisterLink::writes() const
{
    QStringList writes;
    const auto sent = arguments(RegisterWrite);
    for (const QCborMap &write : sent) {
        writes.append(
            QStringLiteral("%1: %2")
                .arg(write.value(QLatin1String("address")).toInteger(), 8, 16, QLatin1Char('0'))
                .arg(QString::fromLatin1(
                    write.value(QLatin1String("body")).toByteArray().toHex(' '))));
    }
    return writes;
}

QVector<QByteArray> RegisterLink::payloads() const
{
    QVector<QByteArray> payloads;
    const auto sent = arguments(RegisterWrite);
    for (const QCborMap &write : sent)
        payloads.append(write.value(QLatin1String("body")).toByteArray());
    return payloads;
}

QVector<int> RegisterLink::pauses() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_pauses;
}

int RegisterLink::restarts() const
{
    return m_restarts;
}

void RegisterLink::pauseHeartbeat(int milliseconds)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_pauses.append(milliseconds);
    }
    ScriptedLink::pauseHeartbeat(milliseconds);
}

void RegisterLink::restartHeartbeat()
{
    ++m_restarts;
    ScriptedLink::restartHeartbeat();
}
