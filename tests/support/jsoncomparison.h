#ifndef VELMAR_TESTS_JSONCOMPARISON_H
#define VELMAR_TESTS_JSONCOMPARISON_H

#include "plainjson.h"
#include "samefields.h"
#include "json/json.h"

#include <string>

/*!
    Reads \a text with the reader and with its plain counterpart. Answers how the two differ, in
    outcome, message or what has been read up to a failure, or "" if they agree.

    A text that the reader never returns from is left to its counterpart alone.
*/
template<class Document> std::string differenceInReading(const std::string &text)
{
    Document expected {};
    const PlainJson::Outcome outcome = PlainJson::decode(text, expected);
    if (outcome.kind == PlainJson::Outcome::NeverEnds)
        return {};

    Document document {};
    std::string error;
    const bool isRead = ajson::decodeJson(text, document, error);
    if (isRead != (outcome.kind == PlainJson::Outcome::Read))
        return isRead ? "read, but should fail with: " + outcome.error
                      : "should be read, but fails with: " + error;
    if (error != outcome.error)
        return "fails with: " + error + ", but should with: " + outcome.error;
    if (!sameFields(document, expected)) {
        std::string is;
        std::string should;
        ajson::encodeJson(is, document);
        ajson::encodeJson(should, expected);
        return "reads " + is + ", but should " + should;
    }
    return {};
}

#endif // VELMAR_TESTS_JSONCOMPARISON_H
