#ifndef TZCRYPTRC2_RC2CBC_H
#define TZCRYPTRC2_RC2CBC_H

#include <tzcryptrc2/cryptkey.h>

#include <nettle/arctwo.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace TZ::Internal {

/*!
    RC2 (RFC 2268) in cipher block chaining mode, over any number of calls.

    Each call takes whole blocks. One object goes one way only: both directions share the chain.
*/
class Rc2Cbc
{
public:
    static constexpr int BlockSize = ARCTWO_BLOCK_SIZE;
    using Block = std::array<std::uint8_t, BlockSize>;

    Rc2Cbc(const CryptKey &key, const Block &initialVector);

    /*! \a plain and \a cipher must not overlap. \a length is a multiple of BlockSize. */
    void encrypt(const char *plain, char *cipher, std::size_t length);
    void decrypt(const char *cipher, char *plain, std::size_t length);

private:
    arctwo_ctx m_schedule;
    Block m_chain; // the last cipher block, at first the initial vector
};

} // namespace TZ::Internal

#endif // TZCRYPTRC2_RC2CBC_H
