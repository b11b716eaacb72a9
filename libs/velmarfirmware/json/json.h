#ifndef VELMARFIRMWARE_JSON_JSON_H
#define VELMARFIRMWARE_JSON_JSON_H

#include "exception.h"
#include "fieldtable.h"
#include "recordreader.h"
#include "recordwriter.h"
#include "writebuffer.h"

#include <exception>
#include <string>

/*!
    Records as JSON texts and back.

    A document is a record, or a vector of records for a text that is an array. Both directions
    exist for every record that declares \c Keys and \c Members, at any depth.
*/
namespace ajson {

/*!
    Reads \a text, up to its first NUL, into \a document and answers whether it is one.

    \a document is not emptied first: lists grow, and what the text does not name stays. Anything
    behind the first complete value is ignored. On failure, \a error is the whole message, with line
    and column, and \a document may be partly filled; on success \a error stays as it is.

    Does not return if the value of an unknown key is or holds an array that breaks off, or that
    holds a ':' or '}' where a value should stand. A text from an untrusted peer is therefore to be
    read on a thread or in a process that can be given up.
*/
template<class Document>
bool decodeJson(const std::string &text, Document &document, std::string &error)
{
    static_assert(Internal::IsDocument<Document>, "A document is a record or a list");

    try {
        Reader reader(text.c_str());
        reader.next();
        Internal::readValue<Internal::Level::Top>(reader, document);
        return true;
    } catch (const std::exception &failure) {
        error = failure.what();
        return false;
    }
}

/*! Replaces \a text by the whole of \a document. Fails for lack of memory only. */
template<class Document> void encodeJson(std::string &text, const Document &document)
{
    static_assert(Internal::IsDocument<Document>, "A document is a record or a list");

    WriteBuffer buffer;
    buffer.setEnd(Internal::writeValue(buffer.makeRoom(Internal::roomOfValue(document)), document));
    text = buffer.text();
}

} // namespace ajson

#endif // VELMARFIRMWARE_JSON_JSON_H
