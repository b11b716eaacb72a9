#include "devicevalues.h"

#include <QCborArray>
#include <QCborValue>

#include <limits>

namespace Velmar::ModelControl::Internal {

using namespace ProtoModel::Auxiliary;

namespace {

// Reads the members of one map; the first that is wrong sticks in the error text.
class MapReader
{
public:
    MapReader(const QCborMap &map, QString &errorText)
        : m_map(map)
        , m_errorText(errorText)
    {
    }

    template<typename Number> void number(QLatin1String key, Number &member)
    {
        const QCborValue value = m_map.value(key);
        if (value.isUndefined())
            return;
        if (!value.isInteger() || value.toInteger() < std::numeric_limits<Number>::min()
            || value.toInteger() > std::numeric_limits<Number>::max())
            fail(key);
        else
            member = Number(value.toInteger());
    }

    void text(QLatin1String key, std::string &member)
    {
        const QCborValue value = m_map.value(key);
        if (value.isUndefined())
            return;
        if (!value.isString())
            fail(key);
        else
            member = value.toString().toStdString();
    }

    // readMembers(MapReader &, Record &) fills one element.
    template<typename Record, typename ReadMembers>
    void list(QLatin1String key, std::vector<Record> &member, ReadMembers readMembers)
    {
        const QCborValue value = m_map.value(key);
        if (value.isUndefined())
            return;
        if (!value.isArray())
            return fail(key);
        const QCborArray array = value.toArray();
        std::vector<Record> records;
        records.reserve(std::size_t(array.size()));
        for (const QCborValue element : array) {
            if (!element.isMap())
                return fail(key);
            const QCborMap members = element.toMap();
            MapReader reader(members, m_errorText);
            readMembers(reader, records.emplace_back());
        }
        member = std::move(records);
    }

    void requireKey(QLatin1String key)
    {
        if (!m_map.contains(key))
            fail(key);
    }

    QCborMap submap(QLatin1String key)
    {
        const QCborValue value = m_map.value(key);
        if (!value.isUndefined() && !value.isMap())
            fail(key);
        return value.toMap();
    }

private:
    void fail(QLatin1String key)
    {
        if (m_errorText.isEmpty())
            m_errorText = QStringLiteral("the answer has no valid \"%1\"").arg(key);
    }

    const QCborMap &m_map;
    QString &m_errorText;
};

void readVersionSection(MapReader &reader, s_DeviceVersionSection &section)
{
    reader.number(QLatin1String("code"), section.code);
    reader.text(QLatin1String("version"), section.version);
    reader.text(QLatin1String("brief"), section.brief);
}

void readVersionPart(MapReader &reader, s_DeviceVersionPart &part)
{
    reader.number(QLatin1String("type"), part.type);
    reader.number(QLatin1String("slotId"), part.slotId);
    reader.number(QLatin1String("modelId"), part.modelId);
    reader.text(QLatin1String("version"), part.version);
    reader.text(QLatin1String("brief"), part.brief);
    reader.list(QLatin1String("section"), part.section, readVersionSection);
}

void readSectionPercent(MapReader &reader, s_SectionPercent &section)
{
    reader.number(QLatin1String("code"), section.code);
    reader.number(QLatin1String("rate"), section.rate);
    reader.number(QLatin1String("result"), section.result);
}

void readCardPercent(MapReader &reader, s_UpgradeCardParts &card)
{
    reader.number(QLatin1String("type"), card.type);
    reader.number(QLatin1String("slotId"), card.slotId);
    reader.number(QLatin1String("rate"), card.rate);
    reader.number(QLatin1String("result"), card.result);
    reader.list(QLatin1String("section"), card.section, readSectionPercent);
}

QCborMap partArguments(const s_CardInfoParts &part)
{
    QCborArray sections;
    for (const s_SectionCode &section : part.section) {
        QCborMap code;
        code.insert(QLatin1String("code"), section.code);
        sections.append(code);
    }
    QCborMap arguments;
    arguments.insert(QLatin1String("type"), part.type);
    arguments.insert(QLatin1String("slotId"), part.slotId);
    arguments.insert(QLatin1String("boardId"), part.boardId);
    arguments.insert(QLatin1String("section"), sections);
    return arguments;
}

} // namespace

bool readVersion(const QCborMap &values, s_DeviceVersion &version, QString &errorText)
{
    QString error;
    s_DeviceVersion read = version;
    MapReader reader(values, error);
    reader.text(QLatin1String("version"), read.version);
    reader.text(QLatin1String("brief"), read.brief);
    reader.list(QLatin1String("parts"), read.parts, readVersionPart);
    if (!error.isEmpty()) {
        errorText = error;
        return false;
    }
    version = std::move(read);
    return true;
}

bool readProgress(const QCborMap &values, s_UpgradePercent &percent, QString &errorText)
{
    QString error;
    s_UpgradePercent read = percent;
    MapReader reader(values, error);
    reader.requireKey(QLatin1String("result"));
    reader.number(QLatin1String("result"), read.result);
    reader.number(QLatin1String("rate"), read.rate);
    const QCborMap subSections = reader.submap(QLatin1String("subSections"));
    MapReader(subSections, error).number(QLatin1String("rate"), read.subSections.rate);
    reader.list(QLatin1String("parts"), read.parts, readCardPercent);
    if (!error.isEmpty()) {
        errorText = error;
        return false;
    }
    percent = std::move(read);
    return true;
}

bool readRun(const QCborMap &values, std::optional<quint32> &run, QString &errorText)
{
    const QLatin1String key("run");
    QString error;
    quint32 read = 0;
    MapReader(values, error).number(key, read);
    if (!error.isEmpty()) {
        errorText = error;
        return false;
    }
    run = values.contains(key) ? std::make_optional(read) : std::nullopt;
    return true;
}

QCborMap upgradeArguments(const s_UpgradeDetail &detail)
{
    QCborArray parts;
    for (const s_CardInfoParts &part : detail.parts)
        parts.append(partArguments(part));
    QCborMap arguments;
    arguments.insert(QLatin1String("upgradeType"), detail.upgradeType);
    arguments.insert(QLatin1String("filePath"), QString::fromStdString(detail.filePath));
    arguments.insert(QLatin1String("reboot"), detail.reboot);
    arguments.insert(QLatin1String("deleteUpgradeFile"), detail.deleteUpgradeFile);
    arguments.insert(QLatin1String("parts"), parts);
    return arguments;
}

QCborMap announceArguments(const std::vector<ProtoModel::File::s_FileInfo> &files)
{
    QCborArray infos;
    for (const ProtoModel::File::s_FileInfo &file : files) {
        QCborMap info;
        info.insert(QLatin1String("fileId"), file.fileId);
        info.insert(QLatin1String("fileType"), file.fileType);
        info.insert(QLatin1String("fileName"), QString::fromStdString(file.fileName));
        info.insert(QLatin1String("fileSize"), file.fileSize);
        if (file.fileVersion != 0)
            info.insert(QLatin1String("fileVersion"), file.fileVersion);
        if (file.checksum != 0)
            info.insert(QLatin1String("checksum"), qint64(file.checksum));
        infos.append(info);
    }
    QCborMap arguments;
    arguments.insert(QLatin1String("files"), infos);
    return arguments;
}

} // namespace Velmar::ModelControl::Internal
