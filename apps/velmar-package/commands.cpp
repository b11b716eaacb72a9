#include "commands.h"

#include "imagereport.h"
#include "interruption.h"
#include "packagebuilder.h"
#include "packagemanifest.h"

#include <tzcryptrc2/convertfile.h>
#include <tzcryptrc2/cryptkey.h>

#include <QDebug>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

namespace Velmar::Package {

namespace {

ExitCode fail(ExitCode code, const QString &text)
{
    qCritical().noquote() << text;
    return code;
}

ExitCode print(const QByteArray &text, ExitCode code = ExitCode::Ok)
{
    QFile output;
    if (!output.open(stdout, QIODevice::WriteOnly) || output.write(text) != text.size()
        || !output.flush())
        return fail(ExitCode::IoError, QStringLiteral("standard output: ") + output.errorString());
    return code;
}

// False, with a message, if path is no file that can be read.
bool isInput(const QString &path)
{
    const QFileInfo file(path);
    if (file.isFile() && file.isReadable())
        return true;
    qCritical().noquote() << path
            + (file.isFile() ? QStringLiteral(": cannot be read")
                             : QStringLiteral(": no such file"));
    return false;
}

ExitCode setKey(const QString &keyFile)
{
    if (keyFile.isEmpty())
        return ExitCode::Ok;
    TZ::CryptKey key;
    QString errorText;
    if (!TZ::readCryptKeyFile(keyFile, key, errorText))
        return fail(QFileInfo(keyFile).isReadable() ? ExitCode::DataError : ExitCode::NoInput,
                    errorText);
    TZ::setCryptKey(key);
    return ExitCode::Ok;
}

ExitCode toExitCode(TZ::ConvertOutcome::Result result)
{
    using Result = TZ::ConvertOutcome::Result;
    switch (result) {
    case Result::Done:
        return ExitCode::Ok;
    case Result::SourceRefused:
        return ExitCode::NoInput;
    case Result::SourceUnsound:
        return ExitCode::DataError;
    case Result::TargetRefused:
        return ExitCode::CannotCreate;
    case Result::Failed:
    case Result::Interrupted:
        break;
    }
    return ExitCode::IoError;
}

ExitCode convert(const CommandLine &commandLine)
{
    const bool enciphers = commandLine.action == CommandLine::Action::Encipher;
    if (!isInput(commandLine.input))
        return ExitCode::NoInput;
    const QFileInfo output(commandLine.output);
    if (!commandLine.force && (output.exists() || output.isSymLink()))
        return fail(ExitCode::CannotCreate,
                    commandLine.output + QStringLiteral(" is there already"));
    const TZ::ConvertOutcome outcome = enciphers
        ? TZ::encipherFile(commandLine.input, commandLine.output, mayGoOn)
        : TZ::decipherFile(commandLine.input, commandLine.output, mayGoOn);
    const ExitCode code = toExitCode(outcome.result);
    if (code == ExitCode::Ok)
        return code;
    return fail(code,
                QStringLiteral("Failed to %1 %2: %3")
                    .arg(enciphers ? QStringLiteral("encipher") : QStringLiteral("decipher"),
                         commandLine.input, outcome.cause));
}

ExitCode showImage(const CommandLine &commandLine)
{
    QFile file(commandLine.input);
    if (!isInput(commandLine.input))
        return ExitCode::NoInput;
    if (!file.open(QIODevice::ReadOnly))
        return fail(ExitCode::NoInput,
                    commandLine.input + QStringLiteral(": ") + file.errorString());
    const ImageReport report = makeImageReport(file);
    return print(commandLine.json ? toJson(report) : toText(report),
                 report.faults.isEmpty() ? ExitCode::Ok : ExitCode::DataError);
}

ExitCode create(const CommandLine &commandLine)
{
    PackageManifest manifest;
    QString errorText;
    if (!isInput(commandLine.input))
        return ExitCode::NoInput;
    if (!readPackageManifest(commandLine.input, manifest, errorText))
        return fail(ExitCode::DataError, errorText);
    switch (PackageBuilder(manifest).build(commandLine.output, commandLine.force, errorText)) {
    case PackageBuilder::Result::Done:
        return ExitCode::Ok;
    case PackageBuilder::Result::TargetRefused:
        return fail(ExitCode::CannotCreate, errorText);
    case PackageBuilder::Result::Failed:
        break;
    }
    return fail(ExitCode::IoError, errorText);
}

} // namespace

ExitCode run(const CommandLine &commandLine)
{
    const ExitCode keyResult = setKey(commandLine.keyFile);
    if (keyResult != ExitCode::Ok)
        return keyResult;
    switch (commandLine.action) {
    case CommandLine::Action::Encipher:
    case CommandLine::Action::Decipher:
        return convert(commandLine);
    case CommandLine::Action::Image:
        return showImage(commandLine);
    case CommandLine::Action::Create:
        return create(commandLine);
    case CommandLine::Action::Version:
        return print("velmar-package " VELMAR_VERSION "\n");
    case CommandLine::Action::Help:
        break;
    }
    return print(commandLine.help.toUtf8());
}

} // namespace Velmar::Package
