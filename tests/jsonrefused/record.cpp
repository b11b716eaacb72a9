// Compiled with different KEYS, MEMBERS, types of the first member (FIRST) and DOCUMENTs, some of
// which the binding has to refuse.
#include "json/json.h"

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

struct Inner {
    std::uint16_t code = 0;

    static constexpr char Keys[] = "code";
    static constexpr auto Members = std::make_tuple(&Inner::code);
};

struct Record {
    FIRST first {};
    int second = 0;

    static constexpr char Keys[] = KEYS;
    static constexpr auto Members = std::make_tuple(MEMBERS);
};

#ifdef DECODED
bool decode(const std::string &text, DOCUMENT &document, std::string &error)
{
    return ajson::decodeJson(text, document, error);
}
#else
void encode(std::string &text, const DOCUMENT &document)
{
    ajson::encodeJson(text, document);
}
#endif
