// Compiled with different KEYS, some of which the binding has to refuse.
#include "json/json.h"

struct Record {
    int first = 0;
    int second = 0;

    static constexpr char Keys[] = KEYS;
    static constexpr auto Members = std::make_tuple(&Record::first, &Record::second);
};

bool decode(const std::string &text, Record &record, std::string &error)
{
    return ajson::decodeJson(text, record, error);
}

void encode(std::string &text, const Record &record)
{
    ajson::encodeJson(text, record);
}
