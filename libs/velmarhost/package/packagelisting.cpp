#include "package/packagelisting.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QXmlStreamReader>

#include <functional>
#include <utility>

namespace Velmar::Host {

namespace {

constexpr qint64 LargestFile = 16 * 1024 * 1024;
constexpr int DeepestNesting = 16;

/*! Called for each start, text and end within a file, with the depth of its element: 1 for the
    root. */
using TokenReader = std::function<void(const QXmlStreamReader &xml, int depth)>;

bool readXml(const QString &path, const TokenReader &readToken, QString &errorText)
{
    // A pipe would block the open for as long as nobody writes to it.
    if (!QFileInfo(path).isFile()) {
        errorText = QStringLiteral("there is no file %1").arg(path);
        return false;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        errorText = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    const QByteArray text = file.read(LargestFile + 1);
    if (text.size() > LargestFile) {
        errorText = QStringLiteral("%1 is larger than 16 MiB").arg(path);
        return false;
    }
    QXmlStreamReader xml(text);
    xml.setNamespaceProcessing(false);
    int depth = 0;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isDTD())
            xml.raiseError(QStringLiteral("A document type is not allowed."));
        else if (xml.isStartElement() && ++depth > DeepestNesting)
            xml.raiseError(QStringLiteral("Elements are nested more than 16 deep."));
        else if (xml.isStartElement() || xml.isCharacters())
            readToken(xml, depth);
        else if (xml.isEndElement())
            readToken(xml, depth--);
    }
    if (xml.hasError()) {
        errorText = QStringLiteral("%1:%2: %3")
                        .arg(path, QString::number(xml.lineNumber()), xml.errorString());
        return false;
    }
    return true;
}

bool readIndex(const QString &path, QStringList &folders, QString &errorText)
{
    QString folder;
    bool isNamed = false;
    return readXml(
        path,
        [&](const QXmlStreamReader &xml, int depth) {
            if (depth == 2 && xml.isStartElement()) {
                isNamed = xml.qualifiedName() == QLatin1String("string");
                folder.clear();
            } else if (depth >= 2 && xml.isCharacters()) {
                folder += xml.text();
            } else if (depth == 2 && xml.isEndElement() && isNamed) {
                folders.append(folder);
            }
        },
        errorText);
}

/*! The file that describes a unit: the first in name order whose name ends in ".xml". */
QString descriptionIn(const QString &unitPath)
{
    const auto names = QDir(unitPath).entryList();
    for (const auto &name : names) {
        if (name.endsWith(QLatin1String(".xml")))
            return name;
    }
    return QString();
}

int numberOf(const QXmlStreamAttributes &attributes, const char *name)
{
    return attributes.value(QLatin1String(name)).toInt(nullptr, 0);
}

void readUnit(ListedUnit &unit)
{
    const QString description = descriptionIn(unit.path);
    if (description.isEmpty()) {
        unit.problem = QStringLiteral("there is no description, a file that ends in .xml, in %1")
                           .arg(unit.path);
        return;
    }
    int fileDepth = 0; // of the file's element that is being read; 0: none is
    readXml(
        unit.path + QLatin1Char('/') + description,
        [&unit, &fileDepth](const QXmlStreamReader &xml, int depth) {
            if (xml.isEndElement() && depth == fileDepth)
                fileDepth = 0;
            if (!xml.isStartElement())
                return;
            const auto attributes = xml.attributes();
            if (depth == 1) {
                unit.modelId = attributes.value(QLatin1String("ModuleID")).toInt(nullptr, 16);
                unit.stepType = numberOf(attributes, "StepType");
                unit.version = attributes.value(QLatin1String("Version")).toString();
            } else if (xml.qualifiedName() == QLatin1String("FileInfo")) {
                ListedFile file;
                file.sectionName = attributes.value(QLatin1String("FileLabel")).toString();
                file.fileName = attributes.value(QLatin1String("FileName")).toString();
                file.filePath = unit.path + QLatin1Char('/') + file.fileName;
                file.boardId = numberOf(attributes, "ExtendNum");
                const QFileInfo onDisk(file.filePath);
                file.size = onDisk.exists() ? onDisk.size() : -1;
                unit.files.append(file);
                fileDepth = depth;
            } else if (fileDepth > 0 && xml.qualifiedName() == QLatin1String("CommandConfig")) {
                unit.files.last().commands.append(
                    attributes.value(QLatin1String("CmdName")).toString());
            }
        },
        unit.problem);
}

} // namespace

bool PackageListing::read(const QString &path, QString &errorText)
{
    m_units.clear();
    QStringList folders;
    if (!readIndex(path + QStringLiteral("/PackageCfg.xml"), folders, errorText))
        return false;
    m_units.reserve(folders.size());
    for (const auto &folder : std::as_const(folders)) {
        ListedUnit unit;
        unit.folder = folder;
        unit.path = path + QLatin1Char('/') + folder;
        readUnit(unit);
        m_units.append(unit);
    }
    return true;
}

const QVector<ListedUnit> &PackageListing::units() const
{
    return m_units;
}

} // namespace Velmar::Host
