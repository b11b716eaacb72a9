#include "jsondocuments.h"
#include "jsonpeers.h"
#include "pairedrounds.h"

#include "json/json.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>

namespace {

using namespace Velmar::ProtoModel::Auxiliary;

// Of the time that another library takes for the same document, the faster one in decoding.
constexpr double DecodingLimit = 0.90;
constexpr double DecodingMeanLimit = 0.75; // the geometric mean of all documents
constexpr double EncodingLimit = 0.20;

// By document: the time against the faster library so far.
std::map<std::string, double> &decodingRatios()
{
    static std::map<std::string, double> ratios;
    return ratios;
}

// Nothing is timed unless all give the same results.
void require(bool isSame, const std::string &name)
{
    if (isSame)
        return;
    std::cerr << name << ": the results differ\n";
    std::exit(EXIT_FAILURE);
}

template<class Document> std::string encoded(const Document &document)
{
    std::string text;
    ajson::encodeJson(text, document);
    return text;
}

// Many short rounds rather than few long ones: fewer of them are cut in two by other programs.
constexpr int Rounds = 101;

// How many texts of this length make a round long enough for the clock: a power of ten.
int textsPerRound(std::size_t length)
{
    int count = 1;
    while (length * static_cast<std::size_t>(count) < 1000000)
        count *= 10;
    return count;
}

std::string rowName(const std::string &what, int count, const std::string &library)
{
    return what + "_x_" + std::to_string(count) + "_against_" + library;
}

template<class Document> using Decode = std::function<bool(Document &)>;

// A round of decoding: each text into a fresh document.
template<class Document, class Decoding>
std::function<void()> decodingRound(int count, Decoding decode)
{
    return [count, decode] {
        for (int i = 0; i < count; ++i) {
            Document document;
            benchmark::DoNotOptimize(decode(document));
            benchmark::DoNotOptimize(document);
        }
    };
}

// expected: the document as the writer gives it, to compare the records by.
template<class Document>
void timeDecoding(const std::string &name, const std::string &text, const std::string &expected)
{
    const auto simdJson = std::make_shared<JsonPeers::SimdJson>();
    simdJson->setText(text);
    const auto bySimdJson = [simdJson](Document &document) {
        return simdJson->decode(document);
    };
    const auto byRapidJson = [text](Document &document) {
        return JsonPeers::RapidJson::decode(text, document);
    };
    const auto byAjson = [text](Document &document) {
        std::string error;
        return ajson::decodeJson(text, document, error);
    };
    for (const Decode<Document> &decode :
         { Decode<Document>(bySimdJson), Decode<Document>(byRapidJson),
           Decode<Document>(byAjson) }) {
        Document document;
        require(decode(document) && encoded(document) == expected, name);
    }

    const int count = textsPerRound(text.size());
    const auto timeAgainst = [=](const std::string &library, std::function<void()> reference) {
        const auto subject = decodingRound<Document>(count, byAjson);
        benchmark::RegisterBenchmark(rowName("decode_" + name, count, library).c_str(),
                                     [=](benchmark::State &state) {
                                         PairedRounds::run(state, DecodingLimit, subject,
                                                           reference);
                                         double &ratio = decodingRatios()[name];
                                         ratio = std::max(ratio, state.counters["ratio"].value);
                                     })
            ->Iterations(Rounds)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    };
    decodingRatios()[name] = 0;
    timeAgainst("simdjson", decodingRound<Document>(count, bySimdJson));
    timeAgainst("RapidJSON", decodingRound<Document>(count, byRapidJson));
}

template<class Document> void timeDecoding(const std::string &name, const Document &document)
{
    const std::string text = encoded(document);
    timeDecoding<Document>(name, text, text);
}

template<class Document>
void timeDecodingIndented(const std::string &name, const Document &document)
{
    const std::string text = encoded(document);
    timeDecoding<Document>(name + "_indented", JsonDocuments::indented(text), text);
}

void reportDecodingMean(benchmark::State &state)
{
    for (auto _ : state)
        state.SetIterationTime(0);
    double sum = 0;
    for (const auto &[name, ratio] : decodingRatios()) {
        if (ratio <= 0) {
            state.SkipWithError("the mean is that of all documents");
            return;
        }
        sum += std::log(ratio);
    }
    state.counters["ratio"] = std::exp(sum / static_cast<double>(decodingRatios().size()));
    state.counters["limit"] = DecodingMeanLimit;
}

template<class Document> void timeEncoding(const std::string &name, const Document &document)
{
    const std::string expected = encoded(document);
    std::string byRapidJson;
    JsonPeers::RapidJson::encode(byRapidJson, document);
    require(byRapidJson == expected, name);

    const int count = textsPerRound(expected.size());
    const auto encodingRound = [count, document](auto encode) {
        return [count, document, encode] {
            for (int i = 0; i < count; ++i) {
                std::string text;
                encode(text, document);
                benchmark::DoNotOptimize(text);
            }
        };
    };
    const auto subject = encodingRound(
        [](std::string &text, const Document &value) { ajson::encodeJson(text, value); });
    const auto reference = encodingRound([](std::string &text, const Document &value) {
        JsonPeers::RapidJson::encode(text, value);
    });
    benchmark::RegisterBenchmark(rowName("encode_" + name, count, "RapidJSON").c_str(),
                                 [=](benchmark::State &state) {
                                     PairedRounds::run(state, EncodingLimit, subject, reference);
                                 })
        ->Iterations(Rounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char **argv)
{
    for (const int parts : { 0, 1, 10, 200 }) {
        const std::string name = "progress_of_" + std::to_string(parts);
        const auto document = JsonDocuments::progress(parts);
        timeDecoding(name, document);
        timeDecodingIndented(name, document);
    }
    for (const int devices : { 1, 16 })
        timeDecoding("older_progress_of_" + std::to_string(devices),
                     JsonDocuments::compatibilityProgress(devices));
    for (const int parts : { 1, 20, 500 }) {
        const std::string name = "version_of_" + std::to_string(parts);
        const auto document = JsonDocuments::deviceVersion(parts);
        timeDecoding(name, document);
        timeDecodingIndented(name, document);
    }
    benchmark::RegisterBenchmark("decode_geometric_mean_against_the_faster", reportDecodingMean)
        ->Iterations(1)
        ->UseManualTime();
    for (const int parts : { 1, 10, 200 }) {
        timeEncoding("request_of_" + std::to_string(parts), JsonDocuments::request(parts));
        timeEncoding("older_request_of_" + std::to_string(parts),
                     JsonDocuments::compatibilityRequest(parts, "C:/packages/s2/upgrade.bin"));
    }
    timeEncoding("older_request_with_a_path_not_in_ASCII",
                 JsonDocuments::compatibilityRequest(
                     2,
                     "C:/Pakete/Ger\xC3\xA4te f\xC3\xBCr \xC3\x9C"
                     "bertragung/"
                     "\xE3\x83\x95\xE3\x82\xA1\xE3\x83\xBC\xE3\x83\xA0/upgrade.bin"));

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
