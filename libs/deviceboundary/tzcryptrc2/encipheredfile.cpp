#include "encipheredfile.h"

#include <QtEndian>

#include <nettle/hmac.h>
#include <nettle/memops.h>

#include <algorithm>
#include <cstring>

namespace TZ::Internal::EncipheredFile {

namespace {

// The header: magic (4 bytes), version (1), zero (1), effective key bits (2, little-endian) and the
// initial vector.
constexpr char Magic[] = "VRC2";
constexpr char FormatVersion = 1;
constexpr int VersionOffset = 4;
constexpr int ZeroOffset = 5;
constexpr int BitsOffset = 6;
constexpr int VectorOffset = 8;
constexpr int HeaderSize = VectorOffset + Rc2Cbc::BlockSize;
constexpr int CodeSize = SHA256_DIGEST_SIZE;
constexpr int MaxEffectiveBits = 1024;

constexpr int ChunkSize = 64 * 1024;

using Header = std::array<char, HeaderSize>;
using Code = std::array<std::uint8_t, CodeSize>;

const std::uint8_t *bytes(const char *data)
{
    return reinterpret_cast<const std::uint8_t *>(data);
}

/*! The running authentication code. Its key is derived, so that RC2's is used for RC2 only. */
class Authenticator
{
public:
    explicit Authenticator(const CryptKey &key)
    {
        constexpr char Label[] = "velmar enciphered file 1: authentication";
        Code derived;
        hmac_sha256_set_key(&m_state, std::size_t(key.bytes.size()), bytes(key.bytes.constData()));
        hmac_sha256_update(&m_state, sizeof Label - 1, bytes(Label));
        hmac_sha256_digest(&m_state, derived.size(), derived.data());
        hmac_sha256_set_key(&m_state, derived.size(), derived.data());
    }

    void add(const char *data, std::size_t length)
    {
        hmac_sha256_update(&m_state, length, bytes(data));
    }

    Code code()
    {
        Code result;
        hmac_sha256_digest(&m_state, result.size(), result.data());
        return result;
    }

private:
    hmac_sha256_ctx m_state;
};

// Short only at the end of the source or if it fails.
qint64 readFully(QIODevice &source, char *data, qint64 length)
{
    qint64 filled = 0;
    while (filled < length) {
        const qint64 got = source.read(data + filled, length - filled);
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        filled += got;
    }
    return filled;
}

bool readExactly(QIODevice &source, char *data, qint64 length, QString &cause)
{
    const qint64 got = readFully(source, data, length);
    if (got == length)
        return true;
    cause = got < 0 ? source.errorString() : QStringLiteral("The file became shorter.");
    return false;
}

bool writeExactly(QIODevice &target, const char *data, qint64 length, QString &cause)
{
    const qint64 written = target.write(data, length);
    if (written == length)
        return true;
    cause = written < 0 ? target.errorString() : QStringLiteral("The disk is full.");
    return false;
}

Header makeHeader(int effectiveBits, const Rc2Cbc::Block &initialVector)
{
    Header header {};
    std::memcpy(header.data(), Magic, VersionOffset);
    header[VersionOffset] = FormatVersion;
    qToLittleEndian(quint16(effectiveBits), header.data() + BitsOffset);
    std::copy(initialVector.begin(), initialVector.end(), header.begin() + VectorOffset);
    return header;
}

bool readHeader(const Header &header, CryptKey &key, Rc2Cbc::Block &initialVector, QString &cause)
{
    if (std::memcmp(header.data(), Magic, VersionOffset) != 0) {
        cause = QStringLiteral("The file is not enciphered.");
        return false;
    }
    if (header[VersionOffset] != FormatVersion || header[ZeroOffset] != 0) {
        cause = QStringLiteral("The file is of an unknown version, %1.")
                    .arg(int(quint8(header[VersionOffset])));
        return false;
    }
    key.effectiveBits = qFromLittleEndian<quint16>(header.data() + BitsOffset);
    if (key.effectiveBits < 1 || key.effectiveBits > MaxEffectiveBits) {
        cause =
            QStringLiteral("The file is damaged: %1 effective key bits.").arg(key.effectiveBits);
        return false;
    }
    std::copy_n(bytes(header.data()) + VectorOffset, initialVector.size(), initialVector.begin());
    return true;
}

// The number of padding bytes behind the last block's plain text; 0 if they are malformed.
int paddingOf(const char *end)
{
    const int count = quint8(end[-1]);
    if (count < 1 || count > Rc2Cbc::BlockSize)
        return 0;
    return std::all_of(end - count, end, [count](char c) { return quint8(c) == count; }) ? count
                                                                                         : 0;
}

// Reads the header of a file and the length of its body, which ends in front of the code. The key
// gets the effective bits of the file.
Result openFile(QIODevice &source, Header &header, CryptKey &key, Rc2Cbc::Block &initialVector,
                qint64 &bodySize, QString &cause)
{
    bodySize = source.size() - HeaderSize - CodeSize;
    if (bodySize < Rc2Cbc::BlockSize || bodySize % Rc2Cbc::BlockSize != 0) {
        cause = QStringLiteral("The file is cut off or not enciphered.");
        return Result::SourceUnsound;
    }
    if (!readExactly(source, header.data(), HeaderSize, cause))
        return Result::Failed;
    return readHeader(header, key, initialVector, cause) ? Result::Done : Result::SourceUnsound;
}

// Behind the body: is the code that of the file, and is there a padding?
Result closeFile(QIODevice &source, Authenticator &authenticator, int padding, QString &cause)
{
    Code stored;
    if (!readExactly(source, reinterpret_cast<char *>(stored.data()), CodeSize, cause))
        return Result::Failed;
    const Code code = authenticator.code();
    if (memeql_sec(stored.data(), code.data(), CodeSize) && padding != 0)
        return Result::Done;
    cause = QStringLiteral("The file is damaged, or enciphered with another key.");
    return Result::SourceUnsound;
}

bool isInterrupted(const std::function<bool()> &mayGoOn, QString &cause)
{
    if (!mayGoOn || mayGoOn())
        return false;
    cause = QStringLiteral("Interrupted.");
    return true;
}

} // namespace

Result encipher(QIODevice &source, QIODevice &target, const CryptKey &key,
                const Rc2Cbc::Block &initialVector, const std::function<bool()> &mayGoOn,
                QString &cause)
{
    Rc2Cbc cipher(key, initialVector);
    Authenticator authenticator(key);
    const Header header = makeHeader(key.effectiveBits, initialVector);
    authenticator.add(header.data(), header.size());
    if (!writeExactly(target, header.data(), HeaderSize, cause))
        return Result::Failed;

    QByteArray plain(ChunkSize + Rc2Cbc::BlockSize, Qt::Uninitialized);
    QByteArray enciphered(plain.size(), Qt::Uninitialized);
    bool isLast = false;
    while (!isLast) {
        if (isInterrupted(mayGoOn, cause))
            return Result::Interrupted;
        qint64 length = readFully(source, plain.data(), ChunkSize);
        if (length < 0) {
            cause = source.errorString();
            return Result::Failed;
        }
        isLast = length < ChunkSize;
        if (isLast) {
            const int padding = Rc2Cbc::BlockSize - int(length % Rc2Cbc::BlockSize);
            std::memset(plain.data() + length, padding, std::size_t(padding));
            length += padding;
        }
        cipher.encrypt(plain.constData(), enciphered.data(), std::size_t(length));
        authenticator.add(enciphered.constData(), std::size_t(length));
        if (!writeExactly(target, enciphered.constData(), length, cause))
            return Result::Failed;
    }
    const Code code = authenticator.code();
    return writeExactly(target, reinterpret_cast<const char *>(code.data()), CodeSize, cause)
        ? Result::Done
        : Result::Failed;
}

Result decipher(QIODevice &source, QIODevice &target, const CryptKey &key,
                const std::function<bool()> &mayGoOn, QString &cause)
{
    qint64 left = 0;
    Header header;
    CryptKey fileKey = key;
    Rc2Cbc::Block initialVector;
    const Result opened = openFile(source, header, fileKey, initialVector, left, cause);
    if (opened != Result::Done)
        return opened;
    Rc2Cbc cipher(fileKey, initialVector);
    Authenticator authenticator(fileKey);
    authenticator.add(header.data(), header.size());

    QByteArray enciphered(ChunkSize, Qt::Uninitialized);
    QByteArray plain(ChunkSize, Qt::Uninitialized);
    while (left > ChunkSize) {
        if (isInterrupted(mayGoOn, cause))
            return Result::Interrupted;
        if (!readExactly(source, enciphered.data(), ChunkSize, cause))
            return Result::Failed;
        authenticator.add(enciphered.constData(), ChunkSize);
        cipher.decrypt(enciphered.constData(), plain.data(), ChunkSize);
        if (!writeExactly(target, plain.constData(), ChunkSize, cause))
            return Result::Failed;
        left -= ChunkSize;
    }
    if (!readExactly(source, enciphered.data(), left, cause))
        return Result::Failed;
    authenticator.add(enciphered.constData(), std::size_t(left));
    cipher.decrypt(enciphered.constData(), plain.data(), std::size_t(left));

    const int padding = paddingOf(plain.constData() + left);
    const Result ended = closeFile(source, authenticator, padding, cause);
    if (ended != Result::Done)
        return ended;
    return writeExactly(target, plain.constData(), left - padding, cause) ? Result::Done
                                                                          : Result::Failed;
}

Result check(QIODevice &source, const CryptKey &key, const std::function<bool()> &mayGoOn,
             QString &cause)
{
    qint64 left = 0;
    Header header;
    CryptKey fileKey = key;
    Rc2Cbc::Block chain; // the block in front of the next one
    const Result opened = openFile(source, header, fileKey, chain, left, cause);
    if (opened != Result::Done)
        return opened;
    Authenticator authenticator(fileKey);
    authenticator.add(header.data(), header.size());

    QByteArray enciphered(ChunkSize, Qt::Uninitialized);
    while (left > Rc2Cbc::BlockSize) {
        if (isInterrupted(mayGoOn, cause))
            return Result::Interrupted;
        const qint64 length = std::min<qint64>(left - Rc2Cbc::BlockSize, ChunkSize);
        if (!readExactly(source, enciphered.data(), length, cause))
            return Result::Failed;
        authenticator.add(enciphered.constData(), std::size_t(length));
        std::copy_n(bytes(enciphered.constData()) + length - Rc2Cbc::BlockSize, chain.size(),
                    chain.begin());
        left -= length;
    }
    // The last block holds the padding; its chain is the block in front of it.
    std::array<char, Rc2Cbc::BlockSize> last;
    std::array<char, Rc2Cbc::BlockSize> plain;
    if (!readExactly(source, last.data(), Rc2Cbc::BlockSize, cause))
        return Result::Failed;
    authenticator.add(last.data(), last.size());
    Rc2Cbc(fileKey, chain).decrypt(last.data(), plain.data(), last.size());
    return closeFile(source, authenticator, paddingOf(plain.data() + plain.size()), cause);
}

} // namespace TZ::Internal::EncipheredFile
