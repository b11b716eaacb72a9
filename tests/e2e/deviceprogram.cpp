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

bool isBricked(const QJsonObject &event)
{
    return event.value(QLatin1String("event")).toString() == QLatin1String("bricked");
}

/*! What is asked for in a line of the trace; empty if nothing is. */
QString operationOf(const QJsonObject &line)
{
    if (line.value(QLatin1String("direction")) != QLatin1String("in"))
        return QString();
    if (line.value(QLatin1String("road")) == QLatin1String("http"))
        return line.value(QLatin1String("method")).toString() + QLatin1Char(' ')
            + line.value(QLatin1String("path")).toString();
    return line.value(QLatin1String("op")).toString();
}

bool isFinal(int result)
{
    return result == 2 || result == 3;
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
            if (isBricked(m_events.constLast()))
                return false;
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

void DeviceProgram::terminate()
{
    m_process.terminate();
    waitForEnd();
}

void DeviceProgram::kill()
{
    m_process.kill();
    waitForEnd();
}

bool DeviceProgram::startAgain(const QStringList &arguments)
{
    const int readyCount =
        static_cast<int>(std::count_if(m_events.cbegin(), m_events.cend(), isReady));
    start(QStringList { QStringLiteral("--listen"), address() } + arguments);
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

QJsonObject DeviceProgram::record() const
{
    QFile file(m_folder.filePath(QStringLiteral("state/state.json")));
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object()
                                          : QJsonObject();
}

QVector<QJsonObject> DeviceProgram::trace() const
{
    QVector<QJsonObject> lines;
    QFile file(m_folder.filePath(QStringLiteral("trace")));
    if (!file.open(QIODevice::ReadOnly))
        return lines;
    while (!file.atEnd())
        lines.append(QJsonDocument::fromJson(file.readLine()).object());
    return lines;
}

QString DeviceProgram::runningVersion(int code) const
{
    const auto sections = record().value(QLatin1String("sections")).toArray();
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
    const auto lines = trace();
    for (const auto &line : lines) {
        const QString operation = operationOf(line);
        if (!operation.isEmpty() && (operations.isEmpty() || operations.constLast() != operation))
            operations.append(operation);
    }
    return operations;
}

DeviceAftermath DeviceProgram::aftermath() const
{
    DeviceAftermath aftermath;
    const QJsonObject state = record();
    const QJsonObject installation = state.value(QLatin1String("installation")).toObject();
    aftermath.isBricked = state.value(QLatin1String("bricked")).toBool();
    aftermath.isRunning = m_process.state() != QProcess::NotRunning;
    aftermath.installations = state.value(QLatin1String("runs")).toInt();
    aftermath.result = installation.value(QLatin1String("result")).toInt();
    aftermath.isInstalling = !installation.isEmpty()
        && installation.value(QLatin1String("phase")) != QLatin1String("over");
    aftermath.restarts = state.value(QLatin1String("restarts")).toInt();
    aftermath.installedFiles = installedFiles();
    aftermath.registerFirmware = registerFirmware();
    for (const char *folder : { "images", "incoming", "staging" }) {
        const QDir dir(m_folder.filePath(QLatin1String("state/") + QLatin1String(folder)));
        const auto names = dir.entryList(QDir::Files | QDir::Hidden, QDir::Name);
        for (const auto &name : names)
            aftermath.leftOver.append(QLatin1String(folder) + QLatin1Char('/') + name);
    }
    aftermath.operations = operations();
    noteCourse(aftermath);
    return aftermath;
}

/*! What the trace tells of the order in which things happened on the device link. */
void DeviceProgram::noteCourse(DeviceAftermath &aftermath) const
{
    bool isInstalling = false;
    const auto lines = trace();
    for (const auto &line : lines) {
        const QString operation = line.value(QLatin1String("op")).toString();
        const bool isAccepted = line.value(QLatin1String("direction")) == QLatin1String("out")
            && line.value(QLatin1String("ack")).toInt() == 0;
        if (!isAccepted)
            continue;
        if (operation == QLatin1String("upgrade.configure"))
            isInstalling = true;
        if (operation == QLatin1String("upgrade.progress")
            && isFinal(line.value(QLatin1String("values"))
                           .toObject()
                           .value(QLatin1String("result"))
                           .toInt())) {
            aftermath.hasToldEnd = true;
            isInstalling = false;
        }
        if (operation == QLatin1String("device.shutdown")) {
            aftermath.wasRestartedEarly = aftermath.wasRestartedEarly || isInstalling;
            isInstalling = false;
        }
    }
}
