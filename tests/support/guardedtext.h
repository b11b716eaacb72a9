#ifndef VELMAR_TESTS_GUARDEDTEXT_H
#define VELMAR_TESTS_GUARDEDTEXT_H

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

/*!
    A text of less than a page that ends directly before memory that nobody may touch.

    With its terminating NUL, or without one for readers that are given a limit. Throws
    std::system_error if there is no such memory.
*/
class GuardedText
{
public:
    enum class End { Nul, Limit };

    explicit GuardedText(std::string_view text, End end = End::Nul)
        : m_pageSize(static_cast<std::size_t>(sysconf(_SC_PAGESIZE)))
        , m_memory(mmap(nullptr, 2 * m_pageSize, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))
    {
        if (m_memory == MAP_FAILED)
            throw std::system_error(errno, std::generic_category(), "mmap");
        char *const guard = static_cast<char *>(m_memory) + m_pageSize;
        m_text = guard - text.size() - (end == End::Nul ? 1 : 0);
        std::memcpy(m_text, text.data(), text.size()); // fresh memory: a NUL is behind it
        if (mprotect(guard, m_pageSize, PROT_NONE) != 0) {
            const std::system_error failure(errno, std::generic_category(), "mprotect");
            munmap(m_memory, 2 * m_pageSize);
            throw failure;
        }
    }
    ~GuardedText() { munmap(m_memory, 2 * m_pageSize); }
    GuardedText(const GuardedText &) = delete;
    GuardedText &operator=(const GuardedText &) = delete;

    const char *begin() const { return m_text; }

private:
    const std::size_t m_pageSize;
    void *const m_memory;
    char *m_text = nullptr;
};

#endif // VELMAR_TESTS_GUARDEDTEXT_H
