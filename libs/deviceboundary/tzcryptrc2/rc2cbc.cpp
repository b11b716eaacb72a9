#include "rc2cbc.h"

#include <nettle/cbc.h>

namespace TZ::Internal {

namespace {

std::uint8_t *bytes(char *data)
{
    return reinterpret_cast<std::uint8_t *>(data);
}

const std::uint8_t *bytes(const char *data)
{
    return reinterpret_cast<const std::uint8_t *>(data);
}

void encryptBlocks(const void *schedule, std::size_t length, std::uint8_t *target,
                   const std::uint8_t *source)
{
    // The library reads the schedule only, though its signature does not say so.
    arctwo_encrypt(static_cast<arctwo_ctx *>(const_cast<void *>(schedule)), length, target, source);
}

void decryptBlocks(const void *schedule, std::size_t length, std::uint8_t *target,
                   const std::uint8_t *source)
{
    arctwo_decrypt(static_cast<arctwo_ctx *>(const_cast<void *>(schedule)), length, target, source);
}

} // namespace

Rc2Cbc::Rc2Cbc(const CryptKey &key, const Block &initialVector)
    : m_chain(initialVector)
{
    arctwo_set_key_ekb(&m_schedule, std::size_t(key.bytes.size()), bytes(key.bytes.constData()),
                       unsigned(key.effectiveBits));
}

void Rc2Cbc::encrypt(const char *plain, char *cipher, std::size_t length)
{
    cbc_encrypt(&m_schedule, encryptBlocks, BlockSize, m_chain.data(), length, bytes(cipher),
                bytes(plain));
}

void Rc2Cbc::decrypt(const char *cipher, char *plain, std::size_t length)
{
    cbc_decrypt(&m_schedule, decryptBlocks, BlockSize, m_chain.data(), length, bytes(plain),
                bytes(cipher));
}

} // namespace TZ::Internal
