#include "package/packagelisting.h"

#include "package/packagename.h"
#include "package/unitdescription.h"

#include <QDir>
#include <QSet>
#include <QXmlStreamReader>

#include <algorithm>
#include <optional>
#include <utility>

namespace Velmar::Host {

namespace {

const QString IndexFile = QStringLiteral("PackageCfg.xml");
const QString PathFile = QStringLiteral("DataFilPathCfg.xml");

/*! The folders of the units, as the index names them. */
class IndexReader
{
public:
    explicit IndexReader(QStringList &folders)
        : m_folders(folders)
    {
    }

    void readToken(const QXmlStreamReader &xml, int depth)
    {
        const QLatin1String unitNode("string");
        if (depth == 2 && xml.isStartElement()) {
            m_isNamed = xml.qualifiedName() == unitNode;
            m_folder.clear();
            m_pieces = 0;
            m_line = int(xml.lineNumber());
        } else if (depth >= 2 && xml.isCharacters()) {
            m_folder += xml.text();
            ++m_pieces;
        } else if (depth == 2 && xml.isEndElement() && m_isNamed) {
            addFolder();
        } else if (depth == 1 && xml.isProcessingInstruction()
                   && xml.processingInstructionTarget() == unitNode) {
            m_folders.append(QString()); // the upgrade library goes by the name of any node
        }
    }

    const std::optional<ListedFault> &fault() const { return m_fault; }

private:
    void addFolder()
    {
        m_folders.append(m_folder);
        // Of a piece with nothing but blanks the upgrade library has none.
        if (m_pieces > 1 && !m_fault)
            m_fault = ListedFault { QStringLiteral("split-name"), IndexFile, m_line,
                                    QStringLiteral("The name of a unit's folder is not written in "
                                                   "one piece.") };
    }

    QStringList &m_folders;
    QString m_folder; // of the entry that is being read
    bool m_isNamed = false; // it is one for a unit
    int m_pieces = 0; // of its text, between comments and the like
    int m_line = 0;
    std::optional<ListedFault> m_fault;
};

std::optional<ListedFault> readIndex(const QString &package, XmlAccount &account,
                                     QStringList &folders)
{
    IndexReader reader(folders);
    auto broken = readStrictXml(
        package, IndexFile, account,
        [&reader](const QXmlStreamReader &xml, int depth) { reader.readToken(xml, depth); });
    return broken ? broken : reader.fault();
}

/*! The entries of a unit's folder that end in ".xml", in name order: the first describes the unit.
 */
QStringList descriptionsIn(const QString &unitPath)
{
    QStringList names = QDir(unitPath).entryList();
    const auto isOther = [](const QString &name) {
        return !name.endsWith(QLatin1String(".xml"));
    };
    names.erase(std::remove_if(names.begin(), names.end(), isOther), names.end());
    return names;
}

/*! What the file of destinations says, entry by entry. */
class PathReader
{
public:
    explicit PathReader(QVector<ListedPath> &paths)
        : m_paths(paths)
    {
    }

    void readToken(const QXmlStreamReader &xml, int depth)
    {
        if (m_fault)
            return;
        if (depth == 1 && xml.isStartElement() && xml.qualifiedName() != QLatin1String("Velmar"))
            addFault("wrong-root",
                     QStringLiteral("The root element is \"%1\" instead of \"Velmar\".")
                         .arg(xml.qualifiedName()),
                     int(xml.lineNumber()));
        else if (depth == 2)
            readEntry(xml);
        else if (depth >= 3)
            readPart(xml, depth);
    }

    const std::optional<ListedFault> &fault() const { return m_fault; }

private:
    void readEntry(const QXmlStreamReader &xml)
    {
        if (xml.isStartElement()) {
            m_entry = { {}, {}, int(xml.lineNumber()) };
            m_hasSource = false;
            m_hasTarget = false;
        } else if (xml.isEndElement()) {
            if (m_hasSource && m_hasTarget)
                m_paths.append(m_entry);
            else
                addFault(
                    "incomplete-entry",
                    QStringLiteral("The entry has no \"%1\".")
                        .arg(m_hasSource ? QLatin1String("DestPath") : QLatin1String("SrcPath")),
                    m_entry.line);
        }
    }

    void readPart(const QXmlStreamReader &xml, int depth)
    {
        if (xml.isStartElement() && depth == 3) {
            m_text = nullptr;
            if (xml.qualifiedName() == QLatin1String("SrcPath") && !m_hasSource) {
                m_hasSource = true;
                m_text = &m_entry.source;
            } else if (xml.qualifiedName() == QLatin1String("DestPath") && !m_hasTarget) {
                m_hasTarget = true;
                m_text = &m_entry.target;
            }
        } else if (xml.isCharacters() && m_text) {
            *m_text += xml.text();
        } else if (xml.isEndElement() && depth == 3) {
            m_text = nullptr;
        }
    }

    void addFault(const char *code, const QString &text, int line)
    {
        m_fault = ListedFault { QLatin1String(code), PathFile, line, text };
    }

    QVector<ListedPath> &m_paths;
    ListedPath m_entry;
    bool m_hasSource = false;
    bool m_hasTarget = false;
    QString *m_text = nullptr; // of the part that is being read
    std::optional<ListedFault> m_fault;
};

} // namespace

bool PackageListing::read(const QString &path, QString &errorText, const XmlAllowance &allowance)
{
    XmlAccount account(allowance);
    m_units.clear();
    m_paths.clear();
    m_faults.clear();
    QStringList folders;
    if (const auto fault = readIndex(path, account, folders)) {
        m_faults.append(*fault);
        errorText = faultLine(path, *fault);
        return false;
    }
    QSet<QString> named;
    m_units.reserve(folders.size());
    for (const auto &folder : std::as_const(folders)) {
        ListedUnit unit;
        unit.folder = folder;
        unit.path = path + QLatin1Char('/') + folder;
        const QString nameFault = packageNameFault(folder);
        // Read once only: an index could name a large unit any number of times.
        if (!nameFault.isEmpty())
            unit.problem = QStringLiteral("the name of the unit's folder %1").arg(nameFault);
        else if (named.contains(folder))
            unit.problem =
                QStringLiteral("the index names the folder %1 more than once").arg(folder);
        else
            readUnit(path, account, unit);
        named.insert(folder);
        m_units.append(unit);
        if (account.isOverdrawn()) {
            errorText = unit.problem;
            return false;
        }
    }
    readPaths(path, account);
    if (account.isOverdrawn())
        errorText = faultLine(path, m_faults.last());
    return !account.isOverdrawn();
}

void PackageListing::readUnit(const QString &path, XmlAccount &account, ListedUnit &unit)
{
    const QStringList descriptions = descriptionsIn(unit.path);
    unit.descriptionCount = descriptions.size();
    if (descriptions.isEmpty()) {
        unit.problem = QStringLiteral("there is no description, a file that ends in .xml, in %1")
                           .arg(unit.path);
        return;
    }
    unit.description = unit.folder + QLatin1Char('/') + descriptions.first();
    readUnitDescription(path, unit.description, account, unit);
}

void PackageListing::readPaths(const QString &path, XmlAccount &account)
{
    PathReader reader(m_paths);
    const auto broken =
        readStrictXml(path, PathFile, account, [&reader](const QXmlStreamReader &xml, int depth) {
            reader.readToken(xml, depth);
        });
    if (reader.fault())
        m_faults.append(*reader.fault());
    if (broken)
        m_faults.append(*broken);
}

const QVector<ListedUnit> &PackageListing::units() const
{
    return m_units;
}

const QVector<ListedPath> &PackageListing::paths() const
{
    return m_paths;
}

const QVector<ListedFault> &PackageListing::faults() const
{
    return m_faults;
}

} // namespace Velmar::Host
