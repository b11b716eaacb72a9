#include "relayprogram.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr int PatienceMs = 50000;

} // namespace

RelayProgram::RelayProgram(const QString &listen, const QString &device,
                           const QStringList &arguments)
{
    m_process.start(
        QStringLiteral(VELMAR_RELAY),
        QStringList { QStringLiteral("--listen"), listen, QStringLiteral("--to"), device }
            + arguments);
    while (!m_process.canReadLine()) {
        if (!m_process.waitForReadyRead(PatienceMs))
            return;
    }
    const auto ready = QJsonDocument::fromJson(m_process.readLine()).object();
    m_address = QStringLiteral("%1:%2")
                    .arg(ready.value(QLatin1String("address")).toString())
                    .arg(ready.value(QLatin1String("port")).toInt());
}

RelayProgram::~RelayProgram()
{
    m_process.kill();
    m_process.waitForFinished(PatienceMs);
}
