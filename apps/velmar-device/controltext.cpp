#include "controltext.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <set>

namespace Velmar::Simulator {

namespace {

using Json = nlohmann::json;

constexpr qint64 UpgradeOfAFile = 1; // the one value of "upgradeType"
constexpr int MainPartType = 1;

/*! Why a text is refused. Thrown and caught within this file. */
struct Refusal {
    QString text;
};

[[noreturn]] void refuse(const char *key, const char *expectation)
{
    throw Refusal {
        QString::fromLatin1("\"%1\" is not %2").arg(QLatin1String(key), QLatin1String(expectation))
    };
}

/*! The value of \a json without doubled keys, which the library would take the last of. */
Json parse(const std::string &json)
{
    std::vector<std::set<std::string>> keys;
    bool isDoubled = false;
    const auto watch = [&keys, &isDoubled](int, Json::parse_event_t event, Json &parsed) {
        if (event == Json::parse_event_t::object_start)
            keys.emplace_back();
        else if (event == Json::parse_event_t::object_end)
            keys.pop_back();
        else if (event == Json::parse_event_t::key)
            isDoubled = !keys.back().insert(parsed.get<std::string>()).second || isDoubled;
        return true;
    };
    Json value = Json::parse(json, watch, false);
    if (value.is_discarded())
        throw Refusal { QString::fromLatin1("the control text is not JSON") };
    if (isDoubled)
        throw Refusal { QString::fromLatin1("a key of the control text is there twice") };
    return value;
}

void checkKeys(const Json &value, std::initializer_list<const char *> keys)
{
    if (!value.is_object())
        throw Refusal { QString::fromLatin1("the control text has another value for an object") };
    for (const char *key : keys) {
        if (!value.contains(key))
            throw Refusal { QString::fromLatin1("\"%1\" is missing").arg(QLatin1String(key)) };
    }
    if (value.size() != keys.size())
        throw Refusal { QString::fromLatin1("the control text has an unknown key") };
}

template<typename Number> Number number(const Json &value, const char *key)
{
    const Json &member = value.at(key);
    // A number beyond 63 bits is no signed one for the library.
    if (!member.is_number_integer() || (member.is_number_unsigned() && member > INT64_MAX))
        refuse(key, "a whole number of its width");
    const auto read = member.get<qint64>();
    if (read < std::numeric_limits<Number>::min() || read > std::numeric_limits<Number>::max())
        refuse(key, "a whole number of its width");
    return static_cast<Number>(read);
}

bool flag(const Json &value, const char *key)
{
    const auto read = number<int>(value, key);
    if (read != 0 && read != 1)
        refuse(key, "0 or 1");
    return read == 1;
}

const Json &list(const Json &value, const char *key)
{
    const Json &member = value.at(key);
    if (!member.is_array() || member.empty())
        refuse(key, "a list with something in it");
    return member;
}

void readCommon(const Json &value, ControlText &control)
{
    if (number<int>(value, "upgradeType") != UpgradeOfAFile)
        refuse("upgradeType", "1");
    control.reboots = flag(value, "reboot");
    control.deletesImage = flag(value, "deleteUpgradeFile");
}

ControlText readNewer(const Json &value)
{
    checkKeys(value, { "upgradeType", "filePath", "reboot", "deleteUpgradeFile", "parts" });
    ControlText control;
    readCommon(value, control);
    if (value.at("filePath") != "N/A")
        refuse("filePath", "\"N/A\"");
    for (const Json &element : list(value, "parts")) {
        checkKeys(element, { "type", "slotId", "boardId", "section" });
        ControlledPart part;
        part.order.type = number<int>(element, "type");
        part.order.slotId = number<quint8>(element, "slotId");
        part.boardId = number<quint8>(element, "boardId");
        for (const Json &section : list(element, "section")) {
            checkKeys(section, { "code" });
            part.order.codes.push_back(number<quint16>(section, "code"));
        }
        control.parts.push_back(part);
    }
    return control;
}

/*! The sections of the one element of the list \a key, which is for \a modelId. */
ControlledPart readOlderPart(const Json &value, const char *key, quint16 modelId,
                             const BizModel::s_DeviceConfig &model)
{
    const Json &elements = list(value, key);
    const Json &element = elements.front();
    checkKeys(element, { "modelId", "slotId", "sections" });
    if (elements.size() != 1 || number<quint16>(element, "modelId") != modelId
        || number<quint8>(element, "slotId") != 0)
        refuse(key, "for this device alone");
    ControlledPart part;
    part.order.type = MainPartType;
    for (const Json &section : list(element, "sections")) {
        checkKeys(section, { "code", "timeout" });
        if (number<int>(section, "timeout") <= 0)
            refuse("timeout", "above 0");
        const auto code = number<quint16>(section, "code");
        const auto &known = model.upgradeCfgs;
        const auto found =
            std::find_if(known.begin(), known.end(), [code](const BizModel::s_UpgradeCfg &entry) {
                return entry.compatibilityCode == code;
            });
        if (found == known.end())
            refuse("code", "one of this model");
        part.order.codes.push_back(found->upgradeCode);
    }
    return part;
}

ControlText readOlder(const Json &value, const BizModel::s_DeviceConfig &model)
{
    if (!value.is_array() || value.size() != 1)
        throw Refusal { QString::fromLatin1("the control text is not a list of one element") };
    const Json &record = value.front();
    checkKeys(record,
              { "deviceId", "upgradeType", "filePath", "reboot", "deleteUpgradeFile", "mainControl",
                "backPlane" });
    ControlText control;
    readCommon(record, control);
    if (number<int>(record, "deviceId") != model.modelId)
        refuse("deviceId", "the model of this device");
    if (!record.at("filePath").is_string() || record.at("filePath").get<std::string>().empty())
        refuse("filePath", "a path");
    control.parts.push_back(readOlderPart(record, "mainControl", model.modelId, model));
    control.parts.push_back(readOlderPart(record, "backPlane", model.backPlaneModelId, model));
    return control;
}

} // namespace

std::optional<ControlText> ControlText::read(const std::string &json, Generation generation,
                                             const BizModel::s_DeviceConfig &model,
                                             QString &errorText)
{
    try {
        const Json value = parse(json);
        return generation == Generation::Older ? readOlder(value, model) : readNewer(value);
    } catch (const Refusal &refusal) {
        errorText = refusal.text;
        return {};
    }
}

} // namespace Velmar::Simulator
