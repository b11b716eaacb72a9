#include "velmarcommandline/settings.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace Velmar::Cli {

namespace {

constexpr qint64 LargestFile = 65536;

const Option *findSetting(const std::vector<const Option *> &settings, const QString &name)
{
    const auto found =
        std::find_if(settings.begin(), settings.end(), [&name](const Option *setting) {
            return name == QLatin1String(setting->name());
        });
    return found == settings.end() ? nullptr : *found;
}

bool hasControlCharacter(const QString &text)
{
    return std::any_of(text.begin(), text.end(), [](QChar letter) {
        return letter.category() == QChar::Other_Control && letter != QLatin1Char('\t');
    });
}

/*! What is wrong with the value of a line, empty if nothing is. */
QString lineFault(const Option &setting, const QString &value)
{
    if (value.isEmpty())
        return QStringLiteral("the value is empty");
    const bool isPath = setting.kind() == ValueKind::File || setting.kind() == ValueKind::Folder;
    if (isPath && !value.startsWith(QLatin1Char('/')))
        return QStringLiteral("%1 is no absolute path").arg(quoted(value));
    return valueFault(setting, value);
}

/*! Reads the file \a path line by line into \a values. */
bool readFile(const QString &path, const std::vector<const Option *> &settings,
              std::map<QString, QString> &values, QString &errorText)
{
    const QString shown = quoted(path);
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink())
        return true;
    QFile file(path);
    if (!info.isFile()) {
        errorText = QStringLiteral("The configuration file %1 is no file").arg(shown);
        return false;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        errorText = QStringLiteral("The configuration file %1 cannot be read: %2")
                        .arg(shown, file.errorString());
        return false;
    }
    const QByteArray bytes = file.read(LargestFile + 1);
    if (bytes.size() > LargestFile) {
        errorText = QStringLiteral("The configuration file %1 has more than %2 bytes")
                        .arg(shown)
                        .arg(LargestFile);
        return false;
    }
    int number = 0;
    for (const QByteArray &line : bytes.split('\n')) {
        ++number;
        const auto fail = [&](const QString &fault) {
            errorText = QStringLiteral("The configuration file %1, line %2: %3")
                            .arg(shown, QString::number(number), fault);
            return false;
        };
        const QString text = QString::fromUtf8(line).trimmed();
        if (QString::fromUtf8(line).toUtf8() != line || hasControlCharacter(text))
            return fail(QStringLiteral("this is no text in UTF-8"));
        if (text.isEmpty() || text.startsWith(QLatin1Char('#')))
            continue;
        const int equals = text.indexOf(QLatin1Char('='));
        if (equals < 0)
            return fail(QStringLiteral("%1 is not of the form name = value").arg(quoted(text)));
        const QString name = text.left(equals).trimmed();
        const QString value = text.mid(equals + 1).trimmed();
        const Option *const setting = findSetting(settings, name);
        if (setting == nullptr)
            return fail(QStringLiteral("there is no setting %1").arg(quoted(name)));
        const QString fault = lineFault(*setting, value);
        if (!fault.isEmpty())
            return fail(QStringLiteral("%1: %2").arg(name, fault));
        if (!values.emplace(name, value).second)
            return fail(QStringLiteral("%1 is set twice").arg(name));
    }
    return true;
}

} // namespace

bool addSettings(Command &command, const QProcessEnvironment &environment, const QString &path,
                 QString &errorText)
{
    const auto known = settingsOf(command.program());
    std::map<QString, QString> fromFile;
    if (!path.isEmpty() && !readFile(path, known, fromFile, errorText))
        return false;
    auto taken = optionsOf(command.program(), command.verb());
    for (const Option &setting : command.program().settings)
        taken.push_back(&setting);
    for (const Option *setting : taken) {
        if (!setting->isSetting() || command.isGiven(setting->name()))
            continue;
        const QString variable = QLatin1String(setting->variable());
        const QString value = environment.value(variable);
        if (!value.isEmpty()) {
            const QString fault = valueFault(*setting, value);
            if (!fault.isEmpty()) {
                errorText = QStringLiteral("The environment variable %1: %2").arg(variable, fault);
                return false;
            }
            command.addSetting(*setting, value);
            continue;
        }
        const auto found = fromFile.find(QLatin1String(setting->name()));
        if (found != fromFile.end())
            command.addSetting(*setting, found->second);
    }
    return true;
}

QString configurationPath(const Program &program, const QProcessEnvironment &environment)
{
    if (program.configurationFile == nullptr)
        return {};
    QString folder = environment.value(QStringLiteral("XDG_CONFIG_HOME"));
    if (!folder.startsWith(QLatin1Char('/'))) {
        const QString home = environment.value(QStringLiteral("HOME"));
        if (!home.startsWith(QLatin1Char('/')))
            return {};
        folder = home + QLatin1String("/.config");
    }
    return folder + QLatin1Char('/') + QLatin1String(program.configurationFile);
}

} // namespace Velmar::Cli
