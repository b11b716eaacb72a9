#include "jsonpeers.h"

#include "json/fieldtable.h"

#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace JsonPeers::RapidJson {

namespace {

using namespace Velmar::ProtoModel::Auxiliary;
using ajson::FieldTable;
using ajson::Internal::IsRecord;

template<class Type> struct IsList : std::false_type {
};

template<class Element> struct IsList<std::vector<Element>> : std::true_type {
};

struct Shape;

// A record or a list that is being filled.
struct Frame {
    const Shape *shape;
    void *target;
    std::size_t field; // of a record: the one whose key was read last
};

// What the handler has to know of a type of record or list.
struct Shape {
    std::size_t (*find)(std::string_view key);
    bool (*setNumber)(const Frame &frame, std::int64_t number);
    bool (*setText)(const Frame &frame, std::string_view text);
    Frame (*open)(const Frame &frame); // the nested record or list that begins
};

template<class Type> const Shape &shapeOf();

// Calls a visitor with the member that a frame of a record stands at.
template<class Record, class Visitor, std::size_t... Index>
bool visitMember(const Frame &frame, Visitor visitor, std::index_sequence<Index...>)
{
    auto &record = *static_cast<Record *>(frame.target);
    return ((frame.field == Index && visitor(record.*std::get<Index>(Record::Members))) || ...);
}

template<class Record, class Visitor> bool visitMember(const Frame &frame, Visitor visitor)
{
    return visitMember<Record>(frame, visitor,
                               std::make_index_sequence<FieldTable<Record>.size()>());
}

template<class Record> constexpr Shape recordShape()
{
    return { [](std::string_view key) { return ajson::findField(FieldTable<Record>, key); },
             [](const Frame &frame, std::int64_t number) {
                 return visitMember<Record>(frame, [number](auto &member) {
                     using Member = std::remove_reference_t<decltype(member)>;
                     if constexpr (std::is_integral_v<Member>)
                         member = static_cast<Member>(number);
                     return std::is_integral_v<Member>;
                 });
             },
             [](const Frame &frame, std::string_view text) {
                 return visitMember<Record>(frame, [text](auto &member) {
                     using Member = std::remove_reference_t<decltype(member)>;
                     if constexpr (std::is_same_v<Member, std::string>)
                         member.assign(text);
                     return std::is_same_v<Member, std::string>;
                 });
             },
             [](const Frame &frame) {
                 Frame nested {};
                 visitMember<Record>(frame, [&nested](auto &member) {
                     using Member = std::remove_reference_t<decltype(member)>;
                     if constexpr (IsRecord<Member>::value || IsList<Member>::value)
                         nested = { &shapeOf<Member>(), &member, 0 };
                     return true;
                 });
                 return nested;
             } };
}

template<class List> constexpr Shape listShape()
{
    return { nullptr, nullptr, nullptr, [](const Frame &frame) {
                auto &list = *static_cast<List *>(frame.target);
                return Frame { &shapeOf<typename List::value_type>(), &list.emplace_back(), 0 };
            } };
}

template<class Type> constexpr Shape makeShape()
{
    if constexpr (IsList<Type>::value)
        return listShape<Type>();
    else
        return recordShape<Type>();
}

template<class Type> const Shape &shapeOf()
{
    static constexpr Shape TheShape = makeShape<Type>();
    return TheShape;
}

class Handler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Handler>
{
public:
    template<class Document>
    explicit Handler(Document &document)
        : m_top { &shapeOf<Document>(), &document, 0 }
    {
    }

    bool Default() { return false; }
    bool Int(int number) { return setNumber(number); }
    bool Uint(unsigned number) { return setNumber(number); }
    bool String(const char *text, rapidjson::SizeType length, bool)
    {
        const Frame &frame = m_frames[m_depth - 1];
        return frame.shape->setText != nullptr && frame.shape->setText(frame, { text, length });
    }
    bool Key(const char *text, rapidjson::SizeType length, bool)
    {
        Frame &frame = m_frames[m_depth - 1];
        frame.field = frame.shape->find({ text, length });
        return true;
    }
    bool StartObject() { return open(); }
    bool EndObject(rapidjson::SizeType) { return close(); }
    bool StartArray() { return open(); }
    bool EndArray(rapidjson::SizeType) { return close(); }

private:
    bool setNumber(std::int64_t number)
    {
        const Frame &frame = m_frames[m_depth - 1];
        return frame.shape->setNumber != nullptr && frame.shape->setNumber(frame, number);
    }
    bool open()
    {
        const Frame frame =
            m_depth == 0 ? m_top : m_frames[m_depth - 1].shape->open(m_frames[m_depth - 1]);
        if (frame.shape == nullptr || m_depth == m_frames.size())
            return false;
        m_frames[m_depth++] = frame;
        return true;
    }
    bool close()
    {
        --m_depth;
        return true;
    }

    Frame m_top;
    std::array<Frame, 8> m_frames;
    std::size_t m_depth = 0;
};

template<class Document> bool decodeDocument(const std::string &text, Document &document)
{
    rapidjson::Reader reader;
    rapidjson::StringStream stream(text.c_str());
    Handler handler(document);
    return !reader.Parse(stream, handler).IsError();
}

using Writer = rapidjson::Writer<rapidjson::StringBuffer, rapidjson::UTF8<>, rapidjson::ASCII<>>;

template<class Record, std::size_t... Index>
void writeFields(Writer &writer, const Record &record, std::index_sequence<Index...>);

template<class Type> void writeValue(Writer &writer, const Type &value)
{
    if constexpr (std::is_same_v<Type, std::string>) {
        writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
    } else if constexpr (std::is_unsigned_v<Type>) {
        writer.Uint(value);
    } else if constexpr (std::is_integral_v<Type>) {
        writer.Int(value);
    } else if constexpr (IsList<Type>::value) {
        writer.StartArray();
        for (const auto &element : value)
            writeValue(writer, element);
        writer.EndArray();
    } else {
        writer.StartObject();
        writeFields(writer, value, std::make_index_sequence<FieldTable<Type>.size()>());
        writer.EndObject();
    }
}

template<class Record, std::size_t... Index>
void writeFields(Writer &writer, const Record &record, std::index_sequence<Index...>)
{
    constexpr auto &Table = FieldTable<Record>;
    ((writer.Key(Table[Index].data(), static_cast<rapidjson::SizeType>(Table[Index].size())),
      writeValue(writer, record.*std::get<Index>(Record::Members))),
     ...);
}

template<class Document> void encodeDocument(std::string &text, const Document &document)
{
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writeValue(writer, document);
    text.assign(buffer.GetString(), buffer.GetSize());
}

} // namespace

bool decode(const std::string &text, s_DeviceVersion &document)
{
    return decodeDocument(text, document);
}

bool decode(const std::string &text, s_UpgradePercent &document)
{
    return decodeDocument(text, document);
}

bool decode(const std::string &text, JsonDocuments::CompatibilityProgress &document)
{
    return decodeDocument(text, document);
}

void encode(std::string &text, const s_UpgradeDetail &document)
{
    encodeDocument(text, document);
}

void encode(std::string &text, const JsonDocuments::CompatibilityRequest &document)
{
    encodeDocument(text, document);
}

} // namespace JsonPeers::RapidJson
