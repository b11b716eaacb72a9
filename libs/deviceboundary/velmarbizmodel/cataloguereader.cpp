#include "cataloguereader_p.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>

namespace Velmar::BizModel::Internal {

namespace {

constexpr int CatalogueVersion = 1;
constexpr int LongestTimeoutMs = 3'600'000;

namespace Key {
const QLatin1String BackPlaneModelId("backPlaneModelId");
const QLatin1String BoardId("boardId");
const QLatin1String Boards("boards");
const QLatin1String CatalogueVersion("catalogueVersion");
const QLatin1String CommandGroup("commandGroup");
const QLatin1String CommandId("commandId");
const QLatin1String CommandTimeouts("commandTimeouts");
const QLatin1String CompatibilityCode("compatibilityCode");
const QLatin1String DefaultTimeout("defaultTimeout");
const QLatin1String DeviceModels("deviceModels");
const QLatin1String ModelId("modelId");
const QLatin1String Name("name");
const QLatin1String Order("order");
const QLatin1String Sections("sections");
const QLatin1String Series("series");
const QLatin1String SlotCount("slotCount");
const QLatin1String SubCardModels("subCardModels");
const QLatin1String SubCards("subCards");
const QLatin1String Timeout("timeout");
const QLatin1String Type("type");
const QLatin1String UpgradeCode("upgradeCode");
} // namespace Key

QString hexText(unsigned short number)
{
    return QStringLiteral("0x")
        + QString::number(number, 16).toUpper().rightJustified(4, QLatin1Char('0'));
}

// How the error text names the value at path.
QString description(const JsonPath &path)
{
    if (path.isEmpty())
        return QStringLiteral("the catalogue");
    const QString &last = path.last();
    const bool isEntry = last.at(0).isDigit(); // no key of a catalogue begins so
    return isEntry ? QStringLiteral("an entry of \"%1\"").arg(path.at(path.size() - 2))
                   : QStringLiteral("\"%1\"").arg(last);
}

} // namespace

CatalogueReader::CatalogueReader(const QByteArray &json, const QString &source)
    : m_json(json)
    , m_text(json)
    , m_source(source)
{
}

bool CatalogueReader::read()
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(m_json, &error);
    if (error.error != QJsonParseError::NoError)
        return failAtLine(m_text.lineAt(error.offset), error.errorString());

    // The tree would keep the last one and drop the others without a word.
    int line = 0;
    const JsonPath repeated = m_text.repeatedKey(line);
    if (!repeated.isEmpty())
        return failAtLine(line, QStringLiteral("key \"%1\" is used twice").arg(repeated.last()));

    return readCatalogue(
        { document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array()), {} });
}

bool CatalogueReader::readCatalogue(const Node &node)
{
    int version = 0;
    // Sub-card models come first, so that device models can be checked against them.
    return isObject(node, { Key::CatalogueVersion, Key::DeviceModels, Key::SubCardModels })
        && readNumber(node.member(Key::CatalogueVersion), CatalogueVersion, CatalogueVersion,
                      version)
        && readList(node.member(Key::SubCardModels),
                    [this](const Node &entry) { return readSubCardModel(entry); })
        && readList(node.member(Key::DeviceModels),
                    [this](const Node &entry) { return readDeviceModel(entry); });
}

bool CatalogueReader::readDeviceModel(const Node &node)
{
    if (!isObject(node,
                  { Key::ModelId, Key::Name, Key::Series, Key::BackPlaneModelId,
                    Key::DefaultTimeout, Key::CommandTimeouts, Key::Sections, Key::SubCards }))
        return false;

    s_DeviceConfig config;
    Claims timeoutClaims;
    Claims subCardClaims;
    const Node modelId = node.member(Key::ModelId);
    const Node name = node.member(Key::Name);
    const bool isRead = readHex(modelId, 1, config.modelId)
        && claim(m_modelClaims, QStringLiteral("model id ") + hexText(config.modelId), modelId)
        && readText(name, config.name)
        && claim(m_modelClaims, QStringLiteral("name \"%1\"").arg(config.name), name)
        && readText(node.member(Key::Series), config.series)
        && readHex(node.member(Key::BackPlaneModelId), 0, config.backPlaneModelId)
        && readNumber(node.member(Key::DefaultTimeout), 1, LongestTimeoutMs, config.defaultTimeout)
        && readList(node.member(Key::CommandTimeouts),
                    [&](const Node &entry) {
                        return readCommandTimeout(entry, timeoutClaims, config);
                    })
        && readSections(node.member(Key::Sections), config.upgradeCfgs)
        && readList(node.member(Key::SubCards), [&](const Node &entry) {
                            return readSubCardSlots(entry, subCardClaims, config);
                        });
    if (isRead)
        deviceModels.append(config);
    return isRead;
}

bool CatalogueReader::readCommandTimeout(const Node &node, Claims &claims, s_DeviceConfig &config)
{
    s_CommandTimeout timeout;
    if (!isObject(node, { Key::CommandGroup, Key::CommandId, Key::Timeout })
        || !readHex(node.member(Key::CommandGroup), 0, timeout.commandGroup)
        || !readHex(node.member(Key::CommandId), 0, timeout.commandId)
        || !claim(claims,
                  QStringLiteral("the command with group %1 and id %2")
                      .arg(hexText(timeout.commandGroup), hexText(timeout.commandId)),
                  node)
        || !readNumber(node.member(Key::Timeout), 1, LongestTimeoutMs, timeout.timeout))
        return false;
    config.commandTimeouts.append(timeout);
    return true;
}

bool CatalogueReader::readSubCardSlots(const Node &node, Claims &claims, s_DeviceConfig &config)
{
    s_SubCardConfig subCard;
    if (!isObject(node, { Key::ModelId, Key::SlotCount }))
        return false;
    const Node modelId = node.member(Key::ModelId);
    if (!readHex(modelId, 1, subCard.modelId)
        || !claim(claims, QStringLiteral("sub-card model ") + hexText(subCard.modelId), modelId)
        || !readNumber(node.member(Key::SlotCount), 1, 255, subCard.slotCount))
        return false;
    if (!m_subCardModelIds.contains(subCard.modelId)) {
        return fail(modelId.path,
                    QStringLiteral("there is no sub-card model ") + hexText(subCard.modelId));
    }
    config.subCardConfigs.append(subCard);
    return true;
}

bool CatalogueReader::readSubCardModel(const Node &node)
{
    if (!isObject(node, { Key::ModelId, Key::Name, Key::Boards }))
        return false;

    s_SubCardModel model;
    Claims boardClaims;
    const Node modelId = node.member(Key::ModelId);
    const Node name = node.member(Key::Name);
    const Node boards = node.member(Key::Boards);
    if (!readHex(modelId, 1, model.modelId)
        || !claim(m_modelClaims, QStringLiteral("model id ") + hexText(model.modelId), modelId)
        || !readText(name, model.name)
        || !claim(m_modelClaims, QStringLiteral("name \"%1\"").arg(model.name), name)
        || !readList(boards,
                     [&](const Node &entry) { return readBoard(entry, boardClaims, model); }))
        return false;
    if (model.boards.isEmpty())
        return fail(boards.path, QStringLiteral("\"boards\" is empty"));

    std::sort(model.boards.begin(), model.boards.end(),
              [](const auto &left, const auto &right) { return left.boardId < right.boardId; });
    m_subCardModelIds.insert(model.modelId);
    subCardModels.append(model);
    return true;
}

bool CatalogueReader::readBoard(const Node &node, Claims &claims, s_SubCardModel &model)
{
    s_SubCardBoard board;
    if (!isObject(node, { Key::BoardId, Key::Sections }))
        return false;
    const Node boardId = node.member(Key::BoardId);
    if (!readNumber(boardId, 1, 255, board.boardId)
        || !claim(claims, QStringLiteral("board id %1").arg(board.boardId), boardId)
        || !readSections(node.member(Key::Sections), board.upgradeCfgs))
        return false;
    model.boards.append(board);
    return true;
}

bool CatalogueReader::readSections(const Node &node, QList<s_UpgradeCfg> &sections)
{
    Claims claims;
    return readList(node, [&](const Node &entry) { return readSection(entry, claims, sections); });
}

bool CatalogueReader::readSection(const Node &node, Claims &claims, QList<s_UpgradeCfg> &sections)
{
    if (!isObject(node,
                  { Key::Name, Key::Type, Key::UpgradeCode, Key::CompatibilityCode, Key::Order }))
        return false;

    s_UpgradeCfg section;
    int type = 0;
    int order = 0;
    const Node name = node.member(Key::Name);
    const Node upgradeCode = node.member(Key::UpgradeCode);
    // The compatibility code may be there twice: the older protocol knows fewer sections, and the
    // first one that has the code answers to it.
    if (!readText(name, section.name)
        || !claim(claims, QStringLiteral("name \"%1\"").arg(section.name), name)
        || !readNumber(node.member(Key::Type), 0, 255, type)
        || !readHex(upgradeCode, 0, section.upgradeCode)
        || !claim(claims, QStringLiteral("upgrade code ") + hexText(section.upgradeCode),
                  upgradeCode)
        || !readHex(node.member(Key::CompatibilityCode), 0, section.compatibilityCode)
        || !readNumber(node.member(Key::Order), 0, 65535, order))
        return false;
    section.type = static_cast<unsigned short>(type);
    section.order = static_cast<unsigned short>(order);
    sections.append(section);
    return true;
}

bool CatalogueReader::isObject(const Node &node, std::initializer_list<QLatin1String> keys)
{
    if (!node.value.isObject())
        return fail(node.path, description(node.path) + QStringLiteral(" must be an object"));
    const QJsonObject object = node.value.toObject();
    for (const QString &key : object.keys()) {
        if (std::find(keys.begin(), keys.end(), key) == keys.end())
            return fail(node.path + JsonPath(key), QStringLiteral("unknown key \"%1\"").arg(key));
    }
    for (const QLatin1String key : keys) {
        if (!object.contains(key))
            return fail(node.path, QStringLiteral("\"%1\" is missing").arg(key));
    }
    return true;
}

bool CatalogueReader::readList(const Node &node, const std::function<bool(const Node &)> &readEntry)
{
    if (!node.value.isArray())
        return fail(node.path, description(node.path) + QStringLiteral(" must be a list"));
    const QJsonArray entries = node.value.toArray();
    for (int index = 0; index < entries.size(); ++index) {
        if (!readEntry({ entries.at(index), node.path + JsonPath(QString::number(index)) }))
            return false;
    }
    return true;
}

bool CatalogueReader::readText(const Node &node, QString &text)
{
    text = node.value.toString();
    return !text.isEmpty()
        || fail(node.path,
                description(node.path) + QStringLiteral(" must be a text that is not empty"));
}

bool CatalogueReader::readNumber(const Node &node, int minimum, int maximum, int &number)
{
    // Out of range, not a whole number and not a number at all alike give the value told here.
    number = node.value.toInt(minimum - 1);
    if (number >= minimum && number <= maximum)
        return true;
    const QString range = minimum == maximum
        ? QString::number(minimum)
        : QStringLiteral("a whole number from %1 to %2").arg(minimum).arg(maximum);
    return fail(node.path, description(node.path) + QStringLiteral(" must be ") + range);
}

bool CatalogueReader::readHex(const Node &node, unsigned short minimum, unsigned short &number)
{
    static const QRegularExpression form(QStringLiteral("\\A0x[0-9A-Fa-f]{1,4}\\z"));
    const QString text = node.value.toString();
    if (form.match(text).hasMatch()) {
        number = text.toUShort(nullptr, 16);
        if (number >= minimum)
            return true;
    }
    return fail(node.path,
                QStringLiteral("%1 must be a text from \"%2\" to \"0xFFFF\"")
                    .arg(description(node.path), hexText(minimum)));
}

bool CatalogueReader::claim(Claims &claims, const QString &what, const Node &node)
{
    const auto first = claims.constFind(what);
    if (first != claims.constEnd()) {
        return fail(node.path,
                    QStringLiteral("%1 is used twice, first on line %2")
                        .arg(what, QString::number(m_text.lineOf(first.value()))));
    }
    claims.insert(what, node.path);
    return true;
}

bool CatalogueReader::fail(const JsonPath &path, const QString &fault)
{
    return failAtLine(m_text.lineOf(path), fault);
}

bool CatalogueReader::failAtLine(int line, const QString &fault)
{
    errorText = QStringLiteral("%1:%2: %3").arg(m_source, QString::number(line), fault);
    return false;
}

CatalogueReader::Node CatalogueReader::Node::member(QLatin1String key) const
{
    return { value.toObject().value(key), path + JsonPath(key) };
}

} // namespace Velmar::BizModel::Internal
