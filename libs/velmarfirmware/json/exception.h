#ifndef VELMARFIRMWARE_JSON_EXCEPTION_H
#define VELMARFIRMWARE_JSON_EXCEPTION_H

#include <exception>
#include <string>
#include <utility>

namespace ajson {

/*!
    A text that breaks the grammar, or a value that does not fit its field's kind.

    Thrown inside the reader and caught by decodeJson(). what() is the whole message, with line and
    column, as in "error at line :0 col :12 msg:not a valid string."
*/
class exception : public std::exception
{
public:
    explicit exception(std::string message)
        : m_message(std::move(message))
    {
    }

    const char *what() const noexcept override { return m_message.c_str(); }

private:
    std::string m_message;
};

} // namespace ajson

#endif // VELMARFIRMWARE_JSON_EXCEPTION_H
