#include "decoding.h"
#include "records/compatibilityrecords.h"
#include "records/devicerecords.h"
#include "support/expectedtext.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <type_traits>
#include <vector>

using namespace Velmar::ProtoModel::Auxiliary;

namespace {

// Fills a record with any numbers and any bytes for texts, and a second one with what is to come
// back. False if a text can be written, but not be read again.
class RecordPair
{
public:
    explicit RecordPair(FuzzedDataProvider &data)
        : m_data(data)
    {
    }

    template<class Element> bool fill(std::vector<Element> &list, std::vector<Element> &expected)
    {
        list.resize(m_data.ConsumeIntegralInRange<std::size_t>(0, 5));
        expected.resize(list.size());
        bool isReadable = true;
        for (std::size_t i = 0; i < list.size(); ++i)
            isReadable = fill(list[i], expected[i]) && isReadable;
        return isReadable;
    }

    template<class Type> bool fill(Type &value, Type &expected)
    {
        bool isReadable = true;
        if constexpr (ajson::Internal::IsRecord<Type>::value) {
            std::apply(
                [&](auto... member) {
                    ((isReadable = fill(value.*member, expected.*member) && isReadable), ...);
                },
                Type::Members);
        } else if constexpr (std::is_integral_v<Type>) {
            value = m_data.ConsumeIntegral<Type>();
            expected = value;
        } else {
            value = m_data.ConsumeRandomLengthString(60);
            isReadable = readsBackAs(value, expected);
        }
        return isReadable;
    }

private:
    FuzzedDataProvider &m_data;
};

template<class Document> void fuzzDocument(FuzzedDataProvider &data)
{
    Document document {};
    Document expected {};
    const bool isReadable = RecordPair(data).fill(document, expected);
    std::string text;
    ajson::encodeJson(text, document);
    for (const char character : text) {
        if (character < 0x20 || character > 0x7E)
            reportFinding("not printable ASCII: " + text);
    }
    reportFinding(differenceInReading<Document>(text));

    Document copy {};
    std::string error;
    if (ajson::decodeJson(text, copy, error) != isReadable)
        reportFinding(isReadable ? error + ": " + text : "should not be readable: " + text);
    if (isReadable && !sameFields(copy, expected))
        reportFinding("reads back as something else: " + text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    FuzzedDataProvider data(bytes, size);
    switch (data.ConsumeIntegralInRange(0, 4)) {
    case 0:
        fuzzDocument<s_DeviceVersion>(data);
        break;
    case 1:
        fuzzDocument<s_UpgradePercent>(data);
        break;
    case 2:
        fuzzDocument<std::vector<s_CompatibilityUpgradePercent>>(data);
        break;
    case 3:
        fuzzDocument<s_UpgradeDetail>(data);
        break;
    default:
        fuzzDocument<std::vector<s_CompatibilityUpgradeDetail>>(data);
    }
    return 0;
}
