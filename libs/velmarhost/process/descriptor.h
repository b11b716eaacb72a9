#ifndef VELMARHOST_DESCRIPTOR_H
#define VELMARHOST_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace Velmar::Host {

/*! An open file, folder or lock of the system, closed with the object. */
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int number)
        : m_number(number)
    {
    }
    Descriptor(Descriptor &&other) noexcept
        : m_number(std::exchange(other.m_number, -1))
    {
    }
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(m_number, other.m_number);
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor()
    {
        if (m_number >= 0)
            ::close(m_number);
    }

    bool isOpen() const { return m_number >= 0; }
    int number() const { return m_number; } //!< -1 without one

    /*! Leaves the descriptor to the caller. */
    int release() { return std::exchange(m_number, -1); }

private:
    int m_number = -1;
};

} // namespace Velmar::Host

#endif // VELMARHOST_DESCRIPTOR_H
