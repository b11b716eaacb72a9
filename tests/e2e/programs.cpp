#include "programs.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>

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

UpgradeProgram::UpgradeProgram(const QStringList &arguments)
{
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

void UpgradeProgram::interrupt(int signalNumber)
{
    ::kill(static_cast<pid_t>(m_process.processId()), signalNumber);
}

ProgramRun UpgradeProgram::finish()
{
    return finishProgram(m_process);
}

ProgramRun UpgradeProgram::run(const QStringList &arguments)
{
    return UpgradeProgram(arguments).finish();
}
