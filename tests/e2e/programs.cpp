#include "programs.h"

#include "support/eventcheck.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>

#include <csignal>

QByteArray exampleFile(const QString &name)
{
    QFile file(QStringLiteral(VELMAR_EXAMPLE "/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be opened)");
}

ExamplePackage::ExamplePackage(const QStringList &arguments)
{
    const auto creation =
        runProgram(QStringLiteral(VELMAR_PACKAGE),
                   QStringList { QStringLiteral("create"),
                                 QStringLiteral(VELMAR_EXAMPLE "/manifest.json"), path() }
                       + arguments);
    if (creation.exitCode != 0)
        qFatal("There is no package to test with: %s", qPrintable(creation.err));
}

QString ExamplePackage::path() const
{
    return m_folder.filePath(QStringLiteral("package"));
}

QStringList ExamplePackage::files() const
{
    QStringList names;
    QDirIterator entries(path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (entries.hasNext())
        names.append(QDir(path()).relativeFilePath(entries.next()));
    names.sort();
    return names;
}

QString hostFolder(const QString &name)
{
    static const QTemporaryDir root;
    const QString path = root.filePath(name);
    // Owner-only, as a system makes the one of XDG_RUNTIME_DIR.
    if (!QDir().mkpath(path)
        || !QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))
        qFatal("There is no folder %s", qPrintable(path));
    return path;
}

QProcessEnvironment hostEnvironment()
{
    auto environment = QProcessEnvironment::systemEnvironment();
    const auto names = environment.keys();
    for (const auto &name : names) {
        if (name.startsWith(QLatin1String("VELMAR_")))
            environment.remove(name);
    }
    environment.insert(QStringLiteral("HOME"), hostFolder(QStringLiteral("home")));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), hostFolder(QStringLiteral("config")));
    environment.insert(QStringLiteral("XDG_CACHE_HOME"), hostFolder(QStringLiteral("cache")));
    environment.insert(QStringLiteral("XDG_STATE_HOME"), hostFolder(QStringLiteral("state")));
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), hostFolder(QStringLiteral("runtime")));
    return environment;
}

QJsonObject ToldRun::verdict() const
{
    const bool isTold = !events.isEmpty()
        && events.constLast().value(QLatin1String("event")) == QLatin1String("verdict");
    return isTold ? events.constLast().value(QLatin1String("data")).toObject() : QJsonObject();
}

QString ToldRun::code() const
{
    return verdict().value(QLatin1String("code")).toString();
}

QString ToldRun::end() const
{
    const auto text = QStringLiteral("%1 %2").arg(exitCode).arg(code());
    return faults.isEmpty() ? text : text + QLatin1Char(' ') + QString::fromUtf8(faults);
}

QJsonObject ToldRun::answer(const QString &event) const
{
    for (const auto &each : events) {
        if (each.value(QLatin1String("event")).toString() == event)
            return each.value(QLatin1String("data")).toObject();
    }
    return {};
}

QStringList ToldRun::texts(const QString &event) const
{
    QStringList texts;
    for (const auto &each : events) {
        if (each.value(QLatin1String("event")).toString() == event)
            texts.append(each.value(QLatin1String("text")).toString());
    }
    return texts;
}

QStringList ToldRun::phases() const
{
    QStringList phases;
    for (const auto &each : events) {
        if (each.value(QLatin1String("event")) == QLatin1String("phase"))
            phases.append(each.value(QLatin1String("phase")).toString());
    }
    return phases;
}

UpgradeProgram::UpgradeProgram(const QStringList &arguments, const QProcessEnvironment &environment)
{
    m_process.setProcessEnvironment(environment);
    m_process.setStandardInputFile(QProcess::nullDevice());
    m_process.start(QStringLiteral(VELMAR_UPGRADE), arguments);
}

bool UpgradeProgram::waitForOutput(const QByteArray &text)
{
    while (!m_process.peek(m_process.bytesAvailable()).contains(text)) {
        if (!m_process.waitForReadyRead(50000))
            return false;
    }
    return true;
}

bool UpgradeProgram::waitForPhase(const QByteArray &word)
{
    return waitForOutput("\"event\":\"phase\",\"phase\":\"" + word + '"');
}

void UpgradeProgram::interrupt(int signalNumber)
{
    ::kill(static_cast<pid_t>(m_process.processId()), signalNumber);
}

ProgramRun UpgradeProgram::finish()
{
    return finishProgram(m_process);
}

ToldRun UpgradeProgram::finishTold()
{
    const auto run = finish();
    ToldRun told;
    told.exitCode = run.exitCode;
    told.err = run.err;
    const auto lines = run.out.toUtf8();
    const auto each = lines.split('\n');
    for (const auto &line : each) {
        if (!line.isEmpty())
            told.events.append(QJsonDocument::fromJson(line).object());
    }
    told.faults = eventFaults(lines);
    return told;
}

ProgramRun UpgradeProgram::run(const QStringList &arguments, const QProcessEnvironment &environment)
{
    return UpgradeProgram(arguments, environment).finish();
}

ToldRun UpgradeProgram::told(const QStringList &arguments, const QProcessEnvironment &environment)
{
    return UpgradeProgram(arguments + QStringList(QStringLiteral("--json")), environment)
        .finishTold();
}
