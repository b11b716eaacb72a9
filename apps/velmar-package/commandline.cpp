#include "commandline.h"

#include <QCommandLineOption>
#include <QCommandLineParser>

namespace Velmar::Package {

namespace {

const char Help[] = R"(Usage: velmar-package COMMAND [OPTIONS]

Makes upgrade packages and looks into them.

Commands:
  create MANIFEST OUTDIR  Make the package folder OUTDIR from the JSON file MANIFEST and the plain
                          files beside it.
  image FILE              Show header and table of an upgrade image, and check all of it.
  encipher IN OUT         Encipher the file IN.
  decipher IN OUT         Decipher the file IN.

Options:
  --key-file FILE  Take the key from FILE. The default is the published demonstration key.
  --force          Replace what is at OUTDIR or OUT. Only a package or an empty folder is replaced by
                   a package.
  --json           Let "image" write JSON.
  -h, --help       Show this text.
  -v, --version    Show the version.

Exit status:
  0   done; for "image": the image is sound
  64  the command line is wrong
  65  an input is unsound: a wrong manifest, an unsound image, a damaged file, another key
  66  an input is missing or cannot be read
  73  the output is there already, or cannot be made at that place
  74  reading or writing failed
)";

struct Command {
    const char *name;
    CommandLine::Action action;
    int fileCount;
};

constexpr Command Commands[] = {
    { "create", CommandLine::Action::Create, 2 },
    { "decipher", CommandLine::Action::Decipher, 2 },
    { "encipher", CommandLine::Action::Encipher, 2 },
    { "image", CommandLine::Action::Image, 1 },
};

const Command *findCommand(const QString &name)
{
    for (const Command &command : Commands) {
        if (name == QLatin1String(command.name))
            return &command;
    }
    return nullptr;
}

} // namespace

bool parseCommandLine(const QStringList &arguments, CommandLine &commandLine, QString &errorText)
{
    const QCommandLineOption help(QStringList { QStringLiteral("h"), QStringLiteral("help") });
    const QCommandLineOption version(
        QStringList { QStringLiteral("v"), QStringLiteral("version") });
    const QCommandLineOption keyFile(QStringLiteral("key-file"), QString(), QStringLiteral("FILE"));
    const QCommandLineOption force(QStringLiteral("force"));
    const QCommandLineOption json(QStringLiteral("json"));
    QCommandLineParser parser;
    parser.addOptions({ help, version, keyFile, force, json });
    if (!parser.parse(arguments)) {
        errorText = parser.errorText();
        return false;
    }
    if (parser.isSet(help) || parser.isSet(version)) {
        commandLine.action =
            parser.isSet(help) ? CommandLine::Action::Help : CommandLine::Action::Version;
        return true;
    }
    QStringList words = parser.positionalArguments();
    const QString name = words.isEmpty() ? QString() : words.takeFirst();
    const Command *const command = findCommand(name);
    if (!command) {
        errorText = name.isEmpty() ? QStringLiteral("No command is given.")
                                   : QStringLiteral("There is no command \"%1\".").arg(name);
        return false;
    }
    if (words.size() != command->fileCount) {
        errorText =
            QStringLiteral("\"%1\" takes %2 %3, not %4.")
                .arg(name, QString::number(command->fileCount),
                     command->fileCount == 1 ? QStringLiteral("path") : QStringLiteral("paths"),
                     QString::number(words.size()));
        return false;
    }
    if (words.contains(QString()) || (parser.isSet(keyFile) && parser.value(keyFile).isEmpty())) {
        errorText = QStringLiteral("An empty path names nothing.");
        return false;
    }
    const bool isImage = command->action == CommandLine::Action::Image;
    if (parser.isSet(json) && !isImage) {
        errorText = QStringLiteral("--json is for \"image\" only.");
        return false;
    }
    if (isImage && (parser.isSet(force) || parser.isSet(keyFile))) {
        errorText = QStringLiteral("\"image\" takes neither --force nor --key-file.");
        return false;
    }
    commandLine.action = command->action;
    commandLine.input = words.first();
    commandLine.output = words.value(1);
    commandLine.keyFile = parser.value(keyFile);
    commandLine.json = parser.isSet(json);
    commandLine.force = parser.isSet(force);
    return true;
}

QString helpText()
{
    return QString::fromLatin1(Help);
}

} // namespace Velmar::Package
