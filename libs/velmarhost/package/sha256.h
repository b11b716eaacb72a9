#ifndef VELMARHOST_SHA256_H
#define VELMARHOST_SHA256_H

#include <QByteArray>

#include <nettle/sha2.h>

#include <cstddef>
#include <cstdint>

namespace Velmar::Host {

/*! A running SHA-256 that uses the processor's own instructions for it, which Qt's does not. */
class Sha256
{
public:
    Sha256() { sha256_init(&m_state); }

    void add(const char *data, std::size_t length)
    {
        sha256_update(&m_state, length, reinterpret_cast<const std::uint8_t *>(data));
    }
    void add(const QByteArray &data) { add(data.constData(), std::size_t(data.size())); }

    /*! 32 bytes; then begins anew. */
    QByteArray result()
    {
        QByteArray bytes(SHA256_DIGEST_SIZE, Qt::Uninitialized);
        sha256_digest(&m_state, SHA256_DIGEST_SIZE, reinterpret_cast<std::uint8_t *>(bytes.data()));
        return bytes;
    }

private:
    sha256_ctx m_state;
};

} // namespace Velmar::Host

#endif // VELMARHOST_SHA256_H
