#include "jsonpeers.h"

#include "json/fieldtable.h"

#include <simdjson.h>

namespace JsonPeers {

namespace {

namespace ondemand = simdjson::ondemand;
using ajson::FieldTable;

template<class Record> bool readObject(ondemand::object object, Record &record);

template<class Type> bool readValue(ondemand::value value, Type &target)
{
    if constexpr (std::is_same_v<Type, std::string>) {
        std::string_view text;
        if (value.get_string().get(text) != simdjson::SUCCESS)
            return false;
        target.assign(text);
    } else if constexpr (std::is_unsigned_v<Type>) {
        std::uint64_t number = 0;
        if (value.get_uint64().get(number) != simdjson::SUCCESS)
            return false;
        target = static_cast<Type>(number);
    } else if constexpr (std::is_integral_v<Type>) {
        std::int64_t number = 0;
        if (value.get_int64().get(number) != simdjson::SUCCESS)
            return false;
        target = static_cast<Type>(number);
    } else {
        ondemand::object object;
        return value.get_object().get(object) == simdjson::SUCCESS && readObject(object, target);
    }
    return true;
}

template<class Element> bool readArray(ondemand::array array, std::vector<Element> &list)
{
    for (auto entry : array) {
        ondemand::value value;
        if (entry.get(value) != simdjson::SUCCESS || !readValue(value, list.emplace_back()))
            return false;
    }
    return true;
}

template<class Element> bool readValue(ondemand::value value, std::vector<Element> &target)
{
    ondemand::array array;
    return value.get_array().get(array) == simdjson::SUCCESS && readArray(array, target);
}

template<std::size_t Index, class Record> bool readField(ondemand::object &object, Record &record)
{
    ondemand::value value;
    switch (object.find_field_unordered(FieldTable<Record>[Index]).get(value)) {
    case simdjson::SUCCESS:
        return readValue(value, record.*std::get<Index>(Record::Members));
    case simdjson::NO_SUCH_FIELD:
        return true;
    default:
        return false;
    }
}

template<class Record, std::size_t... Index>
bool readFields(ondemand::object &object, Record &record, std::index_sequence<Index...>)
{
    return (readField<Index>(object, record) && ...);
}

template<class Record> bool readObject(ondemand::object object, Record &record)
{
    return readFields(object, record, std::make_index_sequence<FieldTable<Record>.size()>());
}

} // namespace

struct SimdJson::State {
    ondemand::parser parser;
    simdjson::padded_string text;

    template<class Record> bool decode(Record &record)
    {
        ondemand::document document;
        ondemand::object object;
        return parser.iterate(text).get(document) == simdjson::SUCCESS
            && document.get_object().get(object) == simdjson::SUCCESS && readObject(object, record);
    }
};

SimdJson::SimdJson()
    : m_state(std::make_unique<State>())
{
}

SimdJson::~SimdJson() = default;

void SimdJson::setText(const std::string &text)
{
    m_state->text = simdjson::padded_string(text);
}

bool SimdJson::decode(Velmar::ProtoModel::Auxiliary::s_DeviceVersion &document)
{
    return m_state->decode(document);
}

bool SimdJson::decode(Velmar::ProtoModel::Auxiliary::s_UpgradePercent &document)
{
    return m_state->decode(document);
}

bool SimdJson::decode(JsonDocuments::CompatibilityProgress &document)
{
    ondemand::document parsed;
    ondemand::array array;
    return m_state->parser.iterate(m_state->text).get(parsed) == simdjson::SUCCESS
        && parsed.get_array().get(array) == simdjson::SUCCESS && readArray(array, document);
}

} // namespace JsonPeers
