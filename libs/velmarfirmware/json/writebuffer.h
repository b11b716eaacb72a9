#ifndef VELMARFIRMWARE_JSON_WRITEBUFFER_H
#define VELMARFIRMWARE_JSON_WRITEBUFFER_H

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace ajson {

/*!
    The bytes of a text that is being written.

    Starts with a capacity of 1024 bytes without a heap allocation, and grows to multiples of it.
    Room is asked for before it is written to; the writing itself looks at no bounds.
*/
class WriteBuffer
{
public:
    WriteBuffer() = default;
    WriteBuffer(const WriteBuffer &) = delete;
    WriteBuffer &operator=(const WriteBuffer &) = delete;

    /*! The place behind the text, with room for \a size more bytes. */
    char *makeRoom(std::size_t size)
    {
        if (size > m_capacity - m_size)
            grow(size);
        return m_bytes + m_size;
    }

    /*! The text ends at \a end now, in the room made last. */
    void setEnd(const char *end) { m_size = static_cast<std::size_t>(end - m_bytes); }

    std::string_view text() const { return { m_bytes, m_size }; }
    std::size_t capacity() const { return m_capacity; }

private:
    static constexpr std::size_t Step = 1024;

    void grow(std::size_t size)
    {
        const std::size_t capacity = (m_size + size + Step - 1) / Step * Step;
        std::unique_ptr<char[]> bytes(new char[capacity]);
        std::memcpy(bytes.get(), m_bytes, m_size);
        m_grown = std::move(bytes);
        m_bytes = m_grown.get();
        m_capacity = capacity;
    }

    std::array<char, Step> m_first;
    std::unique_ptr<char[]> m_grown; // takes over as soon as m_first is too small
    char *m_bytes = m_first.data();
    std::size_t m_size = 0;
    std::size_t m_capacity = Step;
};

} // namespace ajson

#endif // VELMARFIRMWARE_JSON_WRITEBUFFER_H
