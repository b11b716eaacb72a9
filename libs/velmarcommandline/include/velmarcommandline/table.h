#ifndef VELMARCOMMANDLINE_TABLE_H
#define VELMARCOMMANDLINE_TABLE_H

#include <cstddef>

namespace Velmar::Cli {

/*! A view of an array that outlives it, as all parts of a program's table do. */
template<typename Entry> class Table
{
public:
    constexpr Table() = default;

    template<std::size_t Size>
    constexpr Table(const Entry (&entries)[Size]) // an array is a table wherever one is asked for
        : m_begin(entries)
        , m_size(Size)
    {
    }

    constexpr const Entry *begin() const { return m_begin; }
    constexpr const Entry *end() const { return m_begin + m_size; }
    constexpr std::size_t size() const { return m_size; }
    constexpr bool isEmpty() const { return m_size == 0; }

private:
    const Entry *m_begin = nullptr;
    std::size_t m_size = 0;
};

} // namespace Velmar::Cli

#endif // VELMARCOMMANDLINE_TABLE_H
