#ifndef VELMAR_FUZZ_DECODING_H
#define VELMAR_FUZZ_DECODING_H

#include "support/jsoncomparison.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

/*! Stops the fuzzer with \a what it has found, unless that is nothing. */
inline void reportFinding(const std::string &what)
{
    if (what.empty())
        return;
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

/*!
    Reads \a size bytes as a document and holds the result against that of the plain reader, which
    also sees beforehand whether the reader would ever return.
*/
template<class Document> void fuzzDecoding(const std::uint8_t *data, std::size_t size)
{
    reportFinding(differenceInReading<Document>({ reinterpret_cast<const char *>(data), size }));
}

#endif // VELMAR_FUZZ_DECODING_H
