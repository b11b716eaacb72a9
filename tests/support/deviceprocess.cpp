#include "deviceprocess.h"

#include <QJsonDocument>

namespace {

constexpr int PatienceMs = 20000;

} // namespace

DeviceProcess::~DeviceProcess()
{
    kill();
}

bool DeviceProcess::start(const QString &program, const QStringList &options)
{
    // Of an option that is told twice, the later one holds.
    const QStringList anyPorts { QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0"),
                                 QStringLiteral("--probe-port"), QStringLiteral("0") };
    m_process.start(program, anyPorts + options);
    m_ready = nextEvent();
    m_port = quint16(m_ready.value(QLatin1String("port")).toInt());
    m_probePort = quint16(m_ready.value(QLatin1String("probePort")).toInt());
    return m_ready.value(QLatin1String("event")) == QLatin1String("ready");
}

QJsonObject DeviceProcess::nextEvent()
{
    while (!m_process.canReadLine()) {
        if (!m_process.waitForReadyRead(PatienceMs))
            return {};
    }
    return QJsonDocument::fromJson(m_process.readLine()).object();
}

void DeviceProcess::kill()
{
    m_process.kill();
    waitForEnd();
}

bool DeviceProcess::waitForEnd()
{
    return m_process.state() == QProcess::NotRunning || m_process.waitForFinished(PatienceMs);
}
