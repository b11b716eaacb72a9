#include "pollfaults.h"

#include "faults.h"

#include <nlohmann/json.hpp>
#include <zlib.h>

namespace Velmar::Simulator {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t Megabyte = 1 << 20;

void turnNumbersIntoTexts(Json &value)
{
    if (value.is_number())
        value = value.dump();
    else if (value.is_structured())
        for (Json &element : value)
            turnNumbersIntoTexts(element);
}

void removeResultsAndRates(Json &value)
{
    if (value.is_object()) {
        value.erase("result");
        value.erase("rate");
    }
    if (value.is_structured())
        for (Json &element : value)
            removeResultsAndRates(element);
}

/*! Compresses text piece by piece. */
class GzipWriter
{
public:
    GzipWriter()
    {
        constexpr int GzipWindow = 15 + 16; // the largest, in gzip's own envelope
        constexpr int Memory = 8; // zlib's default
        deflateInit2(&m_stream, Z_BEST_COMPRESSION, Z_DEFLATED, GzipWindow, Memory,
                     Z_DEFAULT_STRATEGY);
    }
    ~GzipWriter() { deflateEnd(&m_stream); }

    void write(const std::string &text, bool isLast)
    {
        std::string in = text; // zlib does not write into it, but asks for it
        m_stream.next_in = reinterpret_cast<Bytef *>(in.data());
        m_stream.avail_in = uInt(in.size());
        std::string out(4096, '\0');
        do {
            m_stream.next_out = reinterpret_cast<Bytef *>(out.data());
            m_stream.avail_out = uInt(out.size());
            deflate(&m_stream, isLast ? Z_FINISH : Z_NO_FLUSH);
            m_compressed.append(out, 0, out.size() - m_stream.avail_out);
        } while (m_stream.avail_out == 0);
    }

    const std::string &compressed() const { return m_compressed; }

private:
    GzipWriter(const GzipWriter &) = delete;
    GzipWriter &operator=(const GzipWriter &) = delete;

    z_stream m_stream {};
    std::string m_compressed;
};

} // namespace

std::string spoiltText(std::string text, const Faults &faults)
{
    if (faults.isSet(Fault::WrongTypes) || faults.isSet(Fault::AbsentKeys)) {
        Json json = Json::parse(text);
        if (faults.isSet(Fault::WrongTypes))
            turnNumbersIntoTexts(json);
        if (faults.isSet(Fault::AbsentKeys))
            removeResultsAndRates(json);
        text = json.dump();
    }
    const std::size_t firstKey = text.find('"');
    if (faults.isSet(Fault::HttpHuge) && firstKey != std::string::npos)
        text.insert(firstKey,
                    "\"padding\":\""
                        + std::string(std::size_t(faults.value(Fault::HttpHuge, 0)), 'x') + "\",");
    if (faults.isSet(Fault::HttpBroken))
        text.pop_back();
    if (faults.isSet(Fault::HttpEmpty))
        text.clear();
    return text;
}

std::string beginningOfUnknownList(const std::string &text)
{
    const bool isList = text.compare(0, 1, "[") == 0;
    return std::string(isList ? "[{" : "{") + "\"unknown\":[1,1";
}

std::string gzipBomb(const std::string &text, int megabytes)
{
    GzipWriter writer;
    const std::string blanks(Megabyte, ' ');
    for (int i = 0; i < megabytes; ++i)
        writer.write(blanks, false);
    writer.write(text, true);
    return writer.compressed();
}

} // namespace Velmar::Simulator
