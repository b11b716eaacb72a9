#include "package/unitdescription.h"

#include "package/packagename.h"

#include <QFileInfo>
#include <QXmlStreamReader>

#include <algorithm>
#include <iterator>
#include <optional>

namespace Velmar::Host {

namespace {

const QLatin1String RootElement("DataPackage");
const QLatin1String FileElement("FileInfo");
const QLatin1String CommandElement("CommandConfig");
const QLatin1String EndElement("EndSendCmd");
const QLatin1String StartElement("BeforeStartCmd");

enum class ValueType { Bool, Int };

// The attributes that are no text.
struct TypedAttribute {
    QLatin1String element;
    QLatin1String name;
    ValueType type;
};
const TypedAttribute TypedAttributes[] = {
    { RootElement, QLatin1String("StepType"), ValueType::Int },
    { RootElement, QLatin1String("IsSupportFromScratch"), ValueType::Bool },
    { FileElement, QLatin1String("IsSupportBroadcast"), ValueType::Bool },
    { FileElement, QLatin1String("IsMCUFile"), ValueType::Bool },
    { FileElement, QLatin1String("IsFileAddrNoIncrease"), ValueType::Bool },
    { FileElement, QLatin1String("Address"), ValueType::Int },
    { FileElement, QLatin1String("ExtendNum"), ValueType::Int },
    { CommandElement, QLatin1String("IsCommonCmd"), ValueType::Bool },
    { CommandElement, QLatin1String("Address"), ValueType::Int },
    { CommandElement, QLatin1String("WaitTime"), ValueType::Int },
    { CommandElement, QLatin1String("TimeOut"), ValueType::Int },
    { CommandElement, QLatin1String("ExecuteTimes"), ValueType::Int },
    { CommandElement, QLatin1String("CmdFromNoneType"), ValueType::Int },
    { CommandElement, QLatin1String("SpecialPackID"), ValueType::Int },
};

bool isBool(const QStringRef &text)
{
    return text == QLatin1String("true") || text == QLatin1String("1")
        || text == QLatin1String("false") || text == QLatin1String("0");
}

bool isDigit(QChar character, bool isHex)
{
    const ushort code = character.unicode();
    return (code >= '0' && code <= '9')
        || (isHex && ((code >= 'a' && code <= 'f') || (code >= 'A' && code <= 'F')));
}

// As the upgrade library has it: decimal or hexadecimal, and of the latter and all above 2147483647
// the same 32 bits. QString's own conversion also takes blanks, octal digits and a plus sign.
std::optional<int> intOf(const QStringRef &text)
{
    const bool isHex = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    const bool isNegative = text.startsWith(QLatin1Char('-'));
    const auto digits = text.mid(isHex ? 2 : isNegative ? 1 : 0);
    if (!std::all_of(digits.begin(), digits.end(),
                     [isHex](QChar character) { return isDigit(character, isHex); }))
        return std::nullopt;
    bool isNumber = false;
    const qulonglong magnitude = digits.toULongLong(&isNumber, isHex ? 16 : 10);
    if (!isNumber || magnitude > (isNegative ? 0x80000000U : 0xFFFFFFFFU))
        return std::nullopt;
    return int(isNegative ? 0U - quint32(magnitude) : quint32(magnitude));
}

int numberOf(const QXmlStreamAttributes &attributes, const char *name)
{
    return intOf(attributes.value(QLatin1String(name))).value_or(0);
}

/*! What the elements of one description say. */
class DescriptionReader
{
public:
    DescriptionReader(const QString &file, ListedUnit &unit)
        : m_file(file)
        , m_unit(unit)
    {
    }

    void readToken(const QXmlStreamReader &xml, int depth)
    {
        if (xml.isEndElement()) {
            if (depth == m_ignoredFrom)
                m_ignoredFrom = 0;
            if (depth == m_fileDepth)
                m_fileDepth = 0;
        } else if (xml.isStartElement() && m_ignoredFrom == 0) {
            readStart(xml, depth);
        }
    }

    /*! The first fault for which the upgrade library takes nothing of the file. */
    const std::optional<ListedFault> &loss() const { return m_loss; }

private:
    void readStart(const QXmlStreamReader &xml, int depth)
    {
        const QStringRef name = xml.qualifiedName();
        m_line = int(xml.lineNumber());
        if (depth == 1) {
            if (name != RootElement)
                lose("wrong-root",
                     QStringLiteral("The root element is \"%1\" instead of \"%2\".")
                         .arg(name, RootElement));
            checkValues(xml);
            readRoot(xml.attributes());
            return;
        }
        const bool isHolder = name == FileElement || name == EndElement || name == StartElement;
        if (!isHolder && name != CommandElement && name != RootElement) {
            m_ignoredFrom = depth; // as the library does, with all below it
            return;
        }
        checkValues(xml);
        // Anywhere else the library may take it for several things at once.
        if (depth != (isHolder ? 2 : 3) || name == RootElement) {
            addFault("misplaced-element",
                     QStringLiteral("The element \"%1\" does not belong here.").arg(name));
            m_ignoredFrom = depth;
        } else if (name == FileElement) {
            readFile(xml.attributes());
            m_fileDepth = depth;
        } else if (name == CommandElement) {
            const QString command = xml.attributes().value(QLatin1String("CmdName")).toString();
            m_unit.commands.append({ command, m_line });
            if (m_fileDepth > 0)
                m_unit.files.last().commands.append(command);
        }
    }

    void readRoot(const QXmlStreamAttributes &attributes)
    {
        m_unit.modelId = attributes.value(QLatin1String("ModuleID")).toInt(nullptr, 16);
        m_unit.stepType = numberOf(attributes, "StepType");
        m_unit.version = attributes.value(QLatin1String("Version")).toString();
    }

    void readFile(const QXmlStreamAttributes &attributes)
    {
        ListedFile file;
        file.sectionName = attributes.value(QLatin1String("FileLabel")).toString();
        file.fileName = attributes.value(QLatin1String("FileName")).toString();
        file.filePath = m_unit.path + QLatin1Char('/') + file.fileName;
        file.boardId = numberOf(attributes, "ExtendNum");
        file.line = m_line;
        const QFileInfo onDisk(file.filePath);
        if (packageNameFault(file.fileName).isEmpty() && onDisk.exists())
            file.size = onDisk.size();
        m_unit.files.append(file);
    }

    void checkValues(const QXmlStreamReader &xml)
    {
        const auto attributes = xml.attributes();
        for (const auto &attribute : attributes) {
            const auto *typed = std::find_if(std::begin(TypedAttributes), std::end(TypedAttributes),
                                             [&](const TypedAttribute &candidate) {
                                                 return xml.qualifiedName() == candidate.element
                                                     && attribute.qualifiedName() == candidate.name;
                                             });
            if (typed == std::end(TypedAttributes))
                continue;
            const bool isInt = typed->type == ValueType::Int;
            if (isInt ? !intOf(attribute.value()).has_value() : !isBool(attribute.value()))
                lose("bad-value",
                     QStringLiteral("\"%1\" is no %2 for %3.")
                         .arg(attribute.value(),
                              isInt ? QLatin1String("number") : QLatin1String("bool"),
                              attribute.qualifiedName()));
        }
    }

    void addFault(const char *code, const QString &text)
    {
        m_unit.faults.append({ QLatin1String(code), m_file, m_line, text });
    }

    void lose(const char *code, const QString &text)
    {
        addFault(code, text);
        if (!m_loss)
            m_loss = m_unit.faults.last();
    }

    const QString &m_file;
    ListedUnit &m_unit;
    std::optional<ListedFault> m_loss;
    int m_line = 0;
    int m_ignoredFrom = 0; // depth of the element that is passed over; 0: none is
    int m_fileDepth = 0; // of the file's element that is being read; 0: none is
};

} // namespace

void readUnitDescription(const QString &package, const QString &file, XmlAccount &account,
                         ListedUnit &unit)
{
    DescriptionReader reader(file, unit);
    const auto broken =
        readStrictXml(package, file, account, [&reader](const QXmlStreamReader &xml, int depth) {
            reader.readToken(xml, depth);
        });
    if (broken)
        unit.faults.append(*broken);
    const auto &loss = broken ? broken : reader.loss();
    if (!loss)
        return;
    unit.problem = faultLine(package, *loss);
    unit.modelId = 0;
    unit.stepType = 0;
    unit.version.clear();
    unit.files.clear();
}

} // namespace Velmar::Host
