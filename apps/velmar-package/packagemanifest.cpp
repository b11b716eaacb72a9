#include "packagemanifest.h"

#include "manifestobject.h"
#include "package/destinations.h"
#include "package/packagerules.h"

#include <jsontext/jsontext.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QPair>
#include <QSet>

#include <algorithm>
#include <functional>

namespace Velmar::Package {

namespace {

using Need = ManifestObject::Need;

constexpr int ManifestVersion = 1;
constexpr int MainStepType = 0;

// Empty if a file or folder of a package may be called so.
QString nameFault(const QString &name)
{
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String("..")
        || name.contains(QLatin1Char('/')) || name.contains(QLatin1Char('\\')))
        return QStringLiteral("is no name of a file or folder");
    if (name.trimmed() != name)
        return QStringLiteral("begins or ends with a blank");
    if (name.endsWith(QLatin1String(".xml"), Qt::CaseInsensitive))
        return QStringLiteral("ends in \".xml\", which is for descriptions only");
    if (name.endsWith(QLatin1String("_dn")))
        return QStringLiteral("ends in \"_dn\", which is for deciphered copies only");
    return QString();
}

// The same for a path below the package folder.
QString pathFault(const QString &path)
{
    const QStringList names = path.split(QLatin1Char('/'));
    if (names.first() == QLatin1String("upgrade"))
        return QStringLiteral("begins with \"upgrade\", which is for the upgrade image only");
    for (const QString &name : names) {
        const QString fault = nameFault(name);
        if (!fault.isEmpty())
            return fault;
    }
    if (names.size() - 1 > Host::DeepestPath)
        return QStringLiteral("lies in more than %1 folders").arg(Host::DeepestPath);
    if (path.toUtf8().size() > Host::LongestPath)
        return QStringLiteral("is longer than %1 bytes").arg(Host::LongestPath);
    return QString();
}

QString targetPathFault(const QString &path)
{
    if (path.isEmpty())
        return QStringLiteral("is empty");
    // The image keeps as many bytes of a path as it has characters, and would cut others short.
    if (std::any_of(path.begin(), path.end(), [](QChar c) { return c < u' ' || c > u'~'; }))
        return QStringLiteral("has characters outside ASCII");
    if (path.size() > Host::LongestTarget)
        return QStringLiteral("is longer than %1 bytes").arg(Host::LongestTarget);
    return Host::isTarget(path) ? QString() : QStringLiteral("has nothing but blanks");
}

QString commandNameFault(const QString &name)
{
    // A host refuses a package with any other: what is passed over is most likely spelled wrong.
    const QStringList &known = Host::commandNames();
    if (name.isEmpty() || known.contains(name)) // an empty one has its own fault
        return QString();
    return QStringLiteral("is none of %1").arg(known.join(QStringLiteral(", ")));
}

bool isDottedVersion(const QString &version)
{
    const QStringList parts = version.split(QLatin1Char('.'));
    return parts.size() <= 4 && std::all_of(parts.begin(), parts.end(), [](const QString &part) {
               return !part.isEmpty() && part.size() <= 3 && part.toInt() <= 255
                   && std::all_of(part.begin(), part.end(),
                                  [](QChar c) { return c >= u'0' && c <= u'9'; });
           });
}

QString flagText(bool flag)
{
    return flag ? QStringLiteral("true") : QStringLiteral("false");
}

/*! Reads one manifest; what all its parts need to know of each other is here. */
class ManifestReader
{
public:
    ManifestReader(PackageManifest &manifest, QString &error)
        : m_manifest(manifest)
        , m_error(error)
    {
    }

    void read(const QJsonDocument &document)
    {
        ManifestObject object(document.isArray() ? QJsonValue(document.array())
                                                 : QJsonValue(document.object()),
                              QString(), m_error);
        object.number("manifestVersion", ManifestVersion, ManifestVersion, Need::Required);
        object.forEach("units", Need::Required,
                       [this](const QJsonValue &value, const QString &place) {
                           m_manifest.units.append(readUnit(value, place));
                       });
        object.forEach("dataFiles", Need::Optional,
                       [this](const QJsonValue &value, const QString &place) {
                           m_manifest.dataFiles.append(readDataFile(value, place));
                       });
        object.finish();
    }

private:
    /*! What the files of one unit need to know of each other. */
    struct UnitScope {
        QString folder;
        bool isMain;
        QSet<QPair<QString, int>> sections;
        Host::Destinations mainDestinations;
    };

    ManifestUnit readUnit(const QJsonValue &value, const QString &place)
    {
        ManifestObject object(value, place, m_error);
        ManifestUnit unit;
        unit.folder = object.text("folder", Need::Required);
        const QString fault = unit.folder.contains(QLatin1Char('/')) ? nameFault(unit.folder)
                                                                     : pathFault(unit.folder);
        if (!fault.isEmpty())
            object.fail("folder", fault);
        else if (m_folders.contains(unit.folder.toCaseFolded()))
            object.fail("folder", QStringLiteral("is that of an earlier unit"));
        m_folders.insert(unit.folder.toCaseFolded());

        const QString version = object.text("version", Need::Required);
        if (!isDottedVersion(version))
            object.fail("version",
                        QStringLiteral("is not 1 to 4 numbers up to 255 with dots between"));
        const int moduleId = int(object.number("moduleId", 1, 0xFFFF, Need::Required));
        if (m_moduleIds.contains(moduleId))
            object.fail("moduleId", QStringLiteral("is that of an earlier unit"));
        m_moduleIds.insert(moduleId);
        const int stepType = int(object.number("stepType", MainStepType, 1, Need::Required));
        unit.attributes = {
            { QStringLiteral("DeviceTypes"), object.text("deviceTypes") },
            { QStringLiteral("Version"), version },
            { QStringLiteral("ModuleID"),
              QStringLiteral("0x%1").arg(moduleId, 4, 16, QLatin1Char('0')) },
            { QStringLiteral("IsSupportFromScratch"),
              flagText(object.flag("isSupportFromScratch")) },
            { QStringLiteral("StepType"), QString::number(stepType) },
        };
        unit.endSendCommands = readCommands(object, "endSendCommands");
        unit.beforeStartCommands = readCommands(object, "beforeStartCommands");
        UnitScope scope { unit.folder, stepType == MainStepType, {}, {} };
        object.forEach("files", Need::Required,
                       [&](const QJsonValue &file, const QString &filePlace) {
                           unit.files.append(readFile(file, filePlace, scope));
                       });
        object.finish();
        return unit;
    }

    ManifestFile readFile(const QJsonValue &value, const QString &place, UnitScope &scope)
    {
        ManifestObject object(value, place, m_error);
        ManifestFile file;
        file.fileName = object.text("fileName", Need::Required);
        const QString fault = nameFault(file.fileName);
        if (!fault.isEmpty())
            object.fail("fileName", fault);
        else
            checkSource(object, "fileName", scope.folder + QLatin1Char('/') + file.fileName);

        const QString label = object.text("fileLabel", Need::Required);
        const int board = int(object.number("extendNum", 0, 255));
        // A section that a main unit names twice makes the parser drop the whole unit.
        const QPair<QString, int> section(label, scope.isMain ? 0 : board);
        if (scope.sections.contains(section))
            object.fail("fileLabel", QStringLiteral("is that of an earlier file of the unit"));
        scope.sections.insert(section);
        file.targetPaths = readTargetPaths(object, [&](const QString &path, const QString &where) {
            if (scope.isMain)
                m_mainDestinations.add(path, where);
            QString clash = scope.isMain ? scope.mainDestinations.add(path, where)
                                         : m_cardDestinations.add(path, where);
            if (clash.isEmpty())
                clash = (scope.isMain ? m_cardDestinations : m_mainDestinations).clash(path);
            return clash;
        });
        if (board != 0 && file.targetPaths.size() > 1)
            object.fail(
                "targetPaths",
                QStringLiteral("has more than one path, and a file for one board takes one"));
        file.attributes = {
            { QStringLiteral("IsSupportBroadcast"), flagText(object.flag("isSupportBroadcast")) },
            { QStringLiteral("IsMCUFile"), flagText(object.flag("isMCUFile")) },
            { QStringLiteral("IsFileAddrNoIncrease"),
              flagText(object.flag("isFileAddrNoIncrease")) },
            { QStringLiteral("Version"), object.text("version") },
            { QStringLiteral("Remark"), object.text("remark") },
            { QStringLiteral("FileName"), file.fileName },
            { QStringLiteral("FileLabel"), label },
            { QStringLiteral("Address"), object.numberText("address") },
            { QStringLiteral("ExtendNum"), QString::number(board) },
        };
        file.commands = readCommands(object, "commands");
        object.finish();
        return file;
    }

    ManifestDataFile readDataFile(const QJsonValue &value, const QString &place)
    {
        ManifestObject object(value, place, m_error);
        ManifestDataFile file;
        file.path = object.text("path", Need::Required);
        const QString fault = pathFault(file.path);
        if (!fault.isEmpty())
            object.fail("path", fault);
        else if (!Host::isMcuDataFile(file.path))
            object.fail(
                "path",
                QStringLiteral("ends neither in \".json\" nor in \"font12.dat\", and nothing "
                               "else is sent as a data file"));
        else
            checkSource(object, "path", file.path);
        file.targetPaths =
            readTargetPaths(object, [this](const QString &path, const QString &where) {
                const QString clash = m_mainDestinations.add(path, where);
                return clash.isEmpty() ? m_cardDestinations.clash(path) : clash;
            });
        object.finish();
        return file;
    }

    // place adds a path to the destinations that it must not clash with.
    QStringList
    readTargetPaths(ManifestObject &object,
                    const std::function<QString(const QString &, const QString &)> &place)
    {
        QStringList paths;
        QSet<QString> known;
        object.forEach("targetPaths", Need::Required,
                       [&](const QJsonValue &value, const QString &where) {
                           const QString path = value.toString();
                           QString fault = known.contains(path) ? QStringLiteral("is given twice")
                               : value.isString()               ? targetPathFault(path)
                                                                : QStringLiteral("is no text");
                           if (fault.isEmpty())
                               fault = place(path, where);
                           if (!fault.isEmpty() && m_error.isEmpty())
                               m_error = where + QLatin1Char(' ') + fault;
                           known.insert(path);
                           paths.append(path);
                       });
        return paths;
    }

    QVector<ManifestCommand> readCommands(ManifestObject &parent, const char *key)
    {
        QVector<ManifestCommand> commands;
        parent.forEach(key, Need::Optional, [&](const QJsonValue &value, const QString &place) {
            ManifestObject object(value, place, m_error);
            commands.append({ {
                { QStringLiteral("CmdName"), object.text("cmdName", Need::Required) },
                { QStringLiteral("Data"), object.text("data") },
                { QStringLiteral("IsCommonCmd"), flagText(object.flag("isCommonCmd")) },
                { QStringLiteral("Address"), object.numberText("address") },
                { QStringLiteral("WaitTime"), object.numberText("waitTime") },
                { QStringLiteral("TimeOut"), object.numberText("timeOut") },
                { QStringLiteral("ExecuteTimes"), object.numberText("executeTimes") },
                { QStringLiteral("CmdFromNoneType"), object.numberText("cmdFromNoneType") },
                { QStringLiteral("SpecialPackID"), object.numberText("specialPackId") },
            } });
            const QString fault = commandNameFault(value.toObject().value("cmdName").toString());
            if (!fault.isEmpty())
                object.fail("cmdName", fault);
            object.finish();
        });
        return commands;
    }

    // path is relative to the plain folder, and the same in the package.
    void checkSource(ManifestObject &object, const char *key, const QString &path)
    {
        if (m_sources.contains(path)) {
            object.fail(key, QStringLiteral("names the file %1 a second time").arg(path));
            return;
        }
        m_sources.insert(path);
        const QFileInfo source(m_manifest.plainFolder + QLatin1Char('/') + path);
        if (!source.isFile())
            object.fail(
                key,
                QStringLiteral("names the file %1, which is not there").arg(source.filePath()));
        else if (!source.isReadable())
            object.fail(
                key,
                QStringLiteral("names the file %1, which cannot be read").arg(source.filePath()));
        else if (source.size() == 0)
            object.fail(key,
                        QStringLiteral("names the file %1, which is empty").arg(source.filePath()));
    }

    PackageManifest &m_manifest;
    QString &m_error;
    QSet<QString> m_folders; // in folded case: a package may be carried on any file system
    QSet<int> m_moduleIds;
    QSet<QString> m_sources;
    // Data files go with a main unit, whichever that is. Main units never meet in one image.
    Host::Destinations m_mainDestinations;
    Host::Destinations
        m_cardDestinations; // of all cards and boards: one device may have all of them
};

} // namespace

bool readPackageManifest(const QString &path, PackageManifest &manifest, QString &errorText)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        errorText = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    const QByteArray text = file.readAll();
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(text, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        errorText = QStringLiteral("%1, line %2: %3")
                        .arg(path, QString::number(JsonText(text).lineAt(parseError.offset)),
                             parseError.errorString());
        return false;
    }
    int line = 0;
    const JsonPath repeated = JsonText(text).repeatedKey(line);
    if (!repeated.isEmpty()) {
        errorText = QStringLiteral("%1, line %2: the key \"%3\" is there a second time")
                        .arg(path, QString::number(line), repeated.last());
        return false;
    }
    PackageManifest read;
    read.plainFolder = QFileInfo(path).absolutePath();
    QString fault;
    ManifestReader(read, fault).read(document);
    if (!fault.isEmpty()) {
        errorText = QStringLiteral("%1: %2").arg(path, fault);
        return false;
    }
    manifest = read;
    return true;
}

} // namespace Velmar::Package
