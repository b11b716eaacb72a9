#include "package/plan.h"

#include <QJsonArray>
#include <QJsonValue>

#include <cmath>
#include <functional>
#include <initializer_list>
#include <utility>

// Plan::toJson() and Plan::fromJson(): how a plan stands in JSON.

namespace Velmar::Host {

namespace {

constexpr qint64 LargestNumber = qint64(1) << 53; // beyond it JSON numbers lose their last digits
constexpr int HashSize = 32; // bytes of a SHA-256

namespace Key {
const QLatin1String Address("address");
const QLatin1String BoardId("boardId");
const QLatin1String Cards("cards");
const QLatin1String Code("code");
const QLatin1String Compatibility("compatibility");
const QLatin1String DataFile("dataFile");
const QLatin1String Device("device");
const QLatin1String File("file");
const QLatin1String Files("files");
const QLatin1String Host("host");
const QLatin1String LeftOut("leftOut");
const QLatin1String MainControl("mainControl");
const QLatin1String Model("model");
const QLatin1String ModelId("modelId");
const QLatin1String Name("name");
const QLatin1String Package("package");
const QLatin1String Path("path");
const QLatin1String PlanFormat("planFormat");
const QLatin1String Reason("reason");
const QLatin1String Road("road");
const QLatin1String Section("section");
const QLatin1String Sections("sections");
const QLatin1String Serial("serial");
const QLatin1String Sha256("sha256");
const QLatin1String Size("size");
const QLatin1String SlotId("slotId");
const QLatin1String Target("target");
const QLatin1String Text("text");
const QLatin1String Type("type");
const QLatin1String Unit("unit");
const QLatin1String Upload("upload");
const QLatin1String VersionBefore("versionBefore");
const QLatin1String VersionExpected("versionExpected");
const QLatin1String Wish("wish");
} // namespace Key

QString hexOf(const QByteArray &hash)
{
    return QString::fromLatin1(hash.toHex());
}

template<typename Records, typename ToJson>
QJsonArray arrayOf(const Records &records, ToJson toJson)
{
    QJsonArray array;
    for (const auto &record : records)
        array.append(toJson(record));
    return array;
}

QJsonObject cardJson(const PlannedCard &card)
{
    return { { Key::SlotId, card.slotId },
             { Key::ModelId, card.modelId },
             { Key::BoardId, card.boardId } };
}

QJsonObject fileJson(const PlannedFile &file)
{
    return { { Key::Section, file.section },     { Key::Code, file.code },
             { Key::DataFile, file.isDataFile }, { Key::MainControl, file.isMainControl },
             { Key::SlotId, file.slotId },       { Key::ModelId, file.modelId },
             { Key::BoardId, file.boardId },     { Key::File, file.file },
             { Key::Target, file.target },       { Key::Size, file.size },
             { Key::Sha256, hexOf(file.sha256) } };
}

QJsonObject sectionJson(const PlannedSection &section)
{
    return { { Key::MainControl, section.isMainControl },
             { Key::SlotId, section.slotId },
             { Key::ModelId, section.modelId },
             { Key::Type, section.type },
             { Key::Code, section.code },
             { Key::Section, section.name },
             { Key::VersionBefore, section.versionBefore },
             { Key::VersionExpected, section.versionExpected } };
}

QJsonObject leftOutJson(const LeftOut &leftOut)
{
    return { { Key::Unit, leftOut.unit },
             { Key::Section, leftOut.section },
             { Key::File, leftOut.file },
             { Key::Reason, leftOutWord(leftOut.reason) },
             { Key::Text, leftOut.text } };
}

/*! A value with its place in the plan, as in "files[3].size"; the plan itself has none. */
struct Node {
    QJsonValue value;
    QString place;

    Node member(QLatin1String key) const
    {
        return { value.toObject().value(key),
                 place.isEmpty() ? QString(key) : place + QLatin1Char('.') + key };
    }
};

/*! Reads a plan's values strictly. The first fault counts; everything behind it is skipped. */
class PlanReader
{
public:
    bool isGood() const { return m_errorText.isEmpty(); }
    QString errorText() const { return m_errorText; }

    void readPlan(const Node &node, Plan &plan)
    {
        const bool isObject = node.value.toObject().contains(Key::Upload)
            ? hasKeys(node,
                      { Key::PlanFormat, Key::Road, Key::Device, Key::Wish, Key::Package,
                        Key::Upload, Key::Files, Key::Sections, Key::LeftOut })
            : hasKeys(node,
                      { Key::PlanFormat, Key::Road, Key::Device, Key::Wish, Key::Package,
                        Key::Files, Key::Sections, Key::LeftOut });
        if (!isObject)
            return;
        number(node.member(Key::PlanFormat), Plan::Format, Plan::Format);
        const auto road = roadOf(text(node.member(Key::Road)));
        if (!road)
            fail(node.member(Key::Road), QStringLiteral("is no road"));
        plan.road = road.value_or(Road::Native);
        if ((plan.road == Road::Http) != node.value.toObject().contains(Key::Upload))
            fail(node.member(Key::Upload),
                 QStringLiteral("is for the road \"http\", which needs it"));
        readDevice(node.member(Key::Device), plan.device);
        readWish(node.member(Key::Wish), plan.wish);
        readPackage(node.member(Key::Package), plan);
        if (plan.road == Road::Http)
            readUpload(node.member(Key::Upload), plan.upload);
        readList(node.member(Key::Files), plan.files,
                 [this](const Node &entry) { return file(entry); });
        readList(node.member(Key::Sections), plan.sections,
                 [this](const Node &entry) { return section(entry); });
        readList(node.member(Key::LeftOut), plan.leftOut,
                 [this](const Node &entry) { return leftOut(entry); });
    }

private:
    void readDevice(const Node &node, PlannedDevice &device)
    {
        if (!hasKeys(
                node,
                { Key::Address, Key::ModelId, Key::Model, Key::Serial, Key::Name, Key::Cards }))
            return;
        device.address = address(node.member(Key::Address));
        device.modelId = word(node.member(Key::ModelId));
        device.modelName = text(node.member(Key::Model));
        device.serial = text(node.member(Key::Serial));
        device.name = text(node.member(Key::Name));
        readList(node.member(Key::Cards), device.cards, [this](const Node &entry) {
            PlannedCard card;
            if (hasKeys(entry, { Key::SlotId, Key::ModelId, Key::BoardId })) {
                card.slotId = byte(entry.member(Key::SlotId));
                card.modelId = word(entry.member(Key::ModelId));
                card.boardId = byte(entry.member(Key::BoardId));
            }
            return card;
        });
    }

    DeviceAddress address(const Node &node)
    {
        const QString told = text(node);
        if (told.isEmpty())
            return {}; // made for a model alone
        QString fault;
        const auto parsed = DeviceAddress::parse(told, 0, fault);
        if (!parsed || parsed->port == 0)
            fail(node, QStringLiteral("must be an address with a port, or empty"));
        return parsed.value_or(DeviceAddress());
    }

    void readWish(const Node &node, Wish &wish)
    {
        const auto readText = [this](const Node &entry) {
            return text(entry);
        };
        if (!hasKeys(node, { Key::Sections, Key::Cards }))
            return;
        readList(node.member(Key::Sections), wish.sections, readText);
        readList(node.member(Key::Cards), wish.cards, readText);
    }

    void readPackage(const Node &node, Plan &plan)
    {
        if (!hasKeys(node, { Key::Path, Key::Sha256 }))
            return;
        plan.packagePath = text(node.member(Key::Path));
        plan.packageDigest = hash(node.member(Key::Sha256));
    }

    void readUpload(const Node &node, PlannedUpload &upload)
    {
        if (!hasKeys(node, { Key::Host, Key::File, Key::Compatibility }))
            return;
        upload.host = text(node.member(Key::Host));
        upload.filePath = text(node.member(Key::File));
        upload.isCompatible = truth(node.member(Key::Compatibility));
    }

    PlannedFile file(const Node &node)
    {
        PlannedFile file;
        if (!hasKeys(node,
                     { Key::Section, Key::Code, Key::DataFile, Key::MainControl, Key::SlotId,
                       Key::ModelId, Key::BoardId, Key::File, Key::Target, Key::Size,
                       Key::Sha256 }))
            return file;
        file.section = text(node.member(Key::Section));
        file.code = word(node.member(Key::Code));
        file.isDataFile = truth(node.member(Key::DataFile));
        file.isMainControl = truth(node.member(Key::MainControl));
        file.slotId = byte(node.member(Key::SlotId));
        file.modelId = word(node.member(Key::ModelId));
        file.boardId = byte(node.member(Key::BoardId));
        file.file = filledText(node.member(Key::File));
        file.target = text(node.member(Key::Target));
        file.size = number(node.member(Key::Size), 0, LargestNumber);
        file.sha256 = hash(node.member(Key::Sha256));
        return file;
    }

    PlannedSection section(const Node &node)
    {
        PlannedSection section;
        if (!hasKeys(node,
                     { Key::MainControl, Key::SlotId, Key::ModelId, Key::Type, Key::Code,
                       Key::Section, Key::VersionBefore, Key::VersionExpected }))
            return section;
        section.isMainControl = truth(node.member(Key::MainControl));
        section.slotId = byte(node.member(Key::SlotId));
        section.modelId = word(node.member(Key::ModelId));
        section.type = byte(node.member(Key::Type));
        section.code = word(node.member(Key::Code));
        section.name = filledText(node.member(Key::Section));
        section.versionBefore = text(node.member(Key::VersionBefore));
        section.versionExpected = text(node.member(Key::VersionExpected));
        return section;
    }

    LeftOut leftOut(const Node &node)
    {
        LeftOut leftOut;
        if (!hasKeys(node, { Key::Unit, Key::Section, Key::File, Key::Reason, Key::Text }))
            return leftOut;
        leftOut.unit = text(node.member(Key::Unit));
        leftOut.section = text(node.member(Key::Section));
        leftOut.file = text(node.member(Key::File));
        const auto reason = leftOutReasonOf(text(node.member(Key::Reason)));
        if (!reason)
            fail(node.member(Key::Reason), QStringLiteral("is no reason"));
        leftOut.reason = reason.value_or(LeftOutReason::NotChosen);
        leftOut.text = text(node.member(Key::Text));
        return leftOut;
    }

    bool hasKeys(const Node &node, std::initializer_list<QLatin1String> keys)
    {
        if (!isGood())
            return false;
        if (!node.value.isObject())
            return fail(node, QStringLiteral("must be an object"));
        const QJsonObject object = node.value.toObject();
        for (const auto key : keys) {
            if (!object.contains(key))
                return fail(node.member(key), QStringLiteral("is missing"));
        }
        if (object.size() == int(keys.size()))
            return true;
        for (auto member = object.begin(); member != object.end(); ++member) {
            const QString name = member.key();
            if (std::find(keys.begin(), keys.end(), name) == keys.end())
                return fail(node, QStringLiteral("has the unknown key \"%1\"").arg(name));
        }
        return true;
    }

    template<typename Records, typename Read>
    void readList(const Node &node, Records &records, Read read)
    {
        if (!isGood())
            return;
        if (!node.value.isArray()) {
            fail(node, QStringLiteral("must be a list"));
            return;
        }
        const QJsonArray entries = node.value.toArray();
        records.reserve(entries.size());
        for (int i = 0; i < entries.size() && isGood(); ++i)
            records.push_back(
                read({ entries.at(i), QStringLiteral("%1[%2]").arg(node.place).arg(i) }));
    }

    QString text(const Node &node)
    {
        if (!node.value.isString())
            fail(node, QStringLiteral("must be a text"));
        return node.value.toString();
    }

    QString filledText(const Node &node)
    {
        if (text(node).isEmpty())
            fail(node, QStringLiteral("must not be empty"));
        return node.value.toString();
    }

    bool truth(const Node &node)
    {
        if (!node.value.isBool())
            fail(node, QStringLiteral("must be true or false"));
        return node.value.toBool();
    }

    qint64 number(const Node &node, qint64 minimum, qint64 maximum)
    {
        const double number = node.value.toDouble(-1);
        if (node.value.isDouble() && number >= double(minimum) && number <= double(maximum)
            && number == std::floor(number))
            return qint64(number);
        fail(node,
             minimum == maximum ? QStringLiteral("must be %1").arg(minimum)
                                : QStringLiteral("must be a whole number from %1 to %2")
                                      .arg(QString::number(minimum), QString::number(maximum)));
        return minimum;
    }

    quint8 byte(const Node &node) { return quint8(number(node, 0, 0xFF)); }
    quint16 word(const Node &node) { return quint16(number(node, 0, 0xFFFF)); }

    QByteArray hash(const Node &node)
    {
        const QString hex = text(node);
        const QByteArray bytes = QByteArray::fromHex(hex.toLatin1());
        // Reading skips what is no digit, so that only a text that comes out again was one.
        if (hexOf(bytes) != hex || (!bytes.isEmpty() && bytes.size() != HashSize))
            fail(node, QStringLiteral("must be 64 hexadecimal digits in lower case, or empty"));
        return bytes;
    }

    bool fail(const Node &node, const QString &fault)
    {
        if (isGood())
            m_errorText = QStringLiteral("%1 %2").arg(
                node.place.isEmpty() ? QStringLiteral("the plan") : node.place, fault);
        return false;
    }

    QString m_errorText; // of the first fault
};

} // namespace

QJsonObject Plan::toJson() const
{
    QJsonObject json {
        { Key::PlanFormat, Format },
        { Key::Road, roadWord(road) },
        { Key::Device,
          QJsonObject { { Key::Address,
                          device.address.host.isEmpty() ? QString() : device.address.toString() },
                        { Key::ModelId, device.modelId },
                        { Key::Model, device.modelName },
                        { Key::Serial, device.serial },
                        { Key::Name, device.name },
                        { Key::Cards, arrayOf(device.cards, cardJson) } } },
        { Key::Wish,
          QJsonObject { { Key::Sections, QJsonArray::fromStringList(wish.sections) },
                        { Key::Cards, QJsonArray::fromStringList(wish.cards) } } },
        { Key::Package,
          QJsonObject { { Key::Path, packagePath }, { Key::Sha256, hexOf(packageDigest) } } },
        { Key::Files, arrayOf(files, fileJson) },
        { Key::Sections, arrayOf(sections, sectionJson) },
        { Key::LeftOut, arrayOf(leftOut, leftOutJson) },
    };
    if (road == Road::Http) {
        json.insert(Key::Upload,
                    QJsonObject { { Key::Host, upload.host },
                                  { Key::File, upload.filePath },
                                  { Key::Compatibility, upload.isCompatible } });
    }
    return json;
}

std::optional<Plan> Plan::fromJson(const QJsonObject &json, QString &errorText)
{
    Plan plan;
    PlanReader reader;
    reader.readPlan({ json, {} }, plan);
    if (!reader.isGood()) {
        errorText = reader.errorText();
        return std::nullopt;
    }
    return plan;
}

} // namespace Velmar::Host
