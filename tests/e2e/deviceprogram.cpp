#include "deviceprogram.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

namespace {

constexpr int PatienceMs = 50000;

bool isReady(const QJsonObject &event)
{
    return event.value(QLatin1String("event")).toString() == QLatin1String("ready");
}

} // namespace

DeviceProgram::DeviceProgram(const QStringList &arguments)
{
    start(QStringList { QStringLiteral("--listen"), QStringLiteral("127.0.0.1:0") } + arguments);
}

DeviceProgram::~DeviceProgram()
{
    m_process.terminate();
    if (!m_process.waitForFinished(PatienceMs))
        m_process.kill();
}

void DeviceProgram::start(const QStringList &arguments)
{
    m_process.setProcessChannelMode(QProcess::SeparateChannels);
    m_process.start(QStringLiteral(VELMAR_DEVICE),
                    QStringList { QStringLiteral("--state"), m_folder.filePath("state"),
                                  QStringLiteral("--trace"), m_folder.filePath("trace"),
                                  QStringLiteral("--probe-port"), QStringLiteral("0"),
                                  QStringLiteral("--install-ms"), QStringLiteral("0"),
                                  QStringLiteral("--restart-ms"), QStringLiteral("50") }
                        + arguments);
}

bool DeviceProgram::waitForReady(int count)
{
    const QDeadlineTimer deadline(PatienceMs);
    while (std::count_if(m_events.cbegin(), m_events.cend(), isReady) < count) {
        m_unread += m_process.readAllStandardOutput();
        const int end = m_unread.indexOf('\n');
        if (end >= 0) {
            m_events.append(QJsonDocument::fromJson(m_unread.left(end)).object());
            m_unread.remove(0, end + 1);
        } else if (!m_process.waitForReadyRead(static_cast<int>(deadline.remainingTime()))) {
            return false;
        }
    }
    return true;
}

bool DeviceProgram::waitForEnd()
{
    return m_process.state() == QProcess::NotRunning || m_process.waitForFinished(PatienceMs);
}

bool DeviceProgram::startAgain()
{
    const int readyCount =
        static_cast<int>(std::count_if(m_events.cbegin(), m_events.cend(), isReady));
    start({ QStringLiteral("--listen"), address() });
    return waitForReady(readyCount + 1);
}

QString DeviceProgram::address() const
{
    return endpoint("port");
}

QString DeviceProgram::probeAddress() const
{
    return endpoint("probePort");
}

QString DeviceProgram::endpoint(const char *port) const
{
    const QJsonObject &ready = m_events.constFirst();
    return QStringLiteral("%1:%2")
        .arg(ready.value(QLatin1String("address")).toString())
        .arg(ready.value(QLatin1String(port)).toInt());
}

QMap<QString, QByteArray> DeviceProgram::installedFiles() const
{
    const QDir root(m_folder.filePath(QStringLiteral("state/files")));
    QMap<QString, QByteArray> files;
    QDirIterator entries(root.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        QFile file(entries.next());
        const bool isOpen = file.open(QIODevice::ReadOnly);
        files.insert(QLatin1Char('/') + root.relativeFilePath(file.fileName()),
                     isOpen ? file.readAll() : QByteArray("(cannot be opened)"));
    }
    return files;
}

QVector<QByteArray> DeviceProgram::registerFirmware() const
{
    QVector<QByteArray> firmware;
    const QDir folder(m_folder.filePath(QStringLiteral("state/firmware")));
    const auto names = folder.entryList(QDir::Files | QDir::Hidden);
    for (const auto &name : names) {
        QFile file(folder.filePath(name));
        firmware.append(file.open(QIODevice::ReadOnly) ? file.readAll()
                                                       : QByteArray("(cannot be opened)"));
    }
    return firmware;
}

QString DeviceProgram::runningVersion(int code) const
{
    QFile record(m_folder.filePath(QStringLiteral("state/state.json")));
    if (!record.open(QIODevice::ReadOnly))
        return QStringLiteral("(cannot be opened)");
    const auto sections = QJsonDocument::fromJson(record.readAll())
                              .object()
                              .value(QLatin1String("sections"))
                              .toArray();
    for (const auto &section : sections) {
        const auto object = section.toObject();
        if (object.value(QLatin1String("slotId")).toInt() == 0
            && object.value(QLatin1String("code")).toInt() == code)
            return object.value(QLatin1String("running")).toString();
    }
    return QString();
}

QStringList DeviceProgram::operations() const
{
    QStringList operations;
    QFile trace(m_folder.filePath(QStringLiteral("trace")));
    if (!trace.open(QIODevice::ReadOnly))
        return operations;
    while (!trace.atEnd()) {
        const auto line = QJsonDocument::fromJson(trace.readLine()).object();
        const auto operation = line.value(QLatin1String("op")).toString();
        if (line.value(QLatin1String("direction")) == QLatin1String("in")
            && (operations.isEmpty() || operations.constLast() != operation))
            operations.append(operation);
    }
    return operations;
}
