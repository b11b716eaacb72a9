#include <velmarssproxy/framecodec.h>

#include <QCborValue>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace Velmar::SSProxy {

namespace {

constexpr int FrameHeaderSize = 4;

/*
    Walks over the items of one CBOR message (RFC 8949) without making anything of them.

    Qt's reader sets memory aside by the lengths that a message claims; behind this check they are
    true.
*/
class MessageCheck
{
public:
    explicit MessageCheck(const QByteArray &bytes)
        : m_next(reinterpret_cast<const uchar *>(bytes.constData()))
        , m_end(m_next + bytes.size())
    {
    }

    bool run();
    QString errorText() const { return QLatin1String(m_error); }

private:
    enum MajorType { Unsigned, Negative, Bytes, Text, Array, Map, Tag, Simple };

    struct Container {
        quint64 itemsLeft; // of a map, keys and values
        bool isMap;
        std::size_t firstKey; // in m_keys, of a map
    };

    quint64 bytesLeft() const { return quint64(m_end - m_next); }
    bool fail(const char *error);
    bool readHead(MajorType &type, quint64 &value);
    bool enter(MajorType type, quint64 count);
    bool leaveFinished();

    const uchar *m_next;
    const uchar *const m_end;
    std::array<Container, MaxMessageDepth> m_open {};
    int m_depth = 0;
    std::vector<std::string_view> m_keys; // of all open maps, those of the innermost last
    const char *m_error = "";
};

bool MessageCheck::fail(const char *error)
{
    m_error = error;
    return false;
}

bool MessageCheck::readHead(MajorType &type, quint64 &value)
{
    if (m_next == m_end)
        return fail("the message is cut off");
    const uchar first = *m_next++;
    type = MajorType(first >> 5);
    const int info = first & 0x1F;
    if (info < 24) {
        value = quint64(info);
        return true;
    }
    if (info > 27)
        return fail("the message has an item of indefinite length or of an unknown kind");
    const int width = 1 << (info - 24);
    if (bytesLeft() < quint64(width))
        return fail("the message is cut off");
    value = 0;
    for (int i = 0; i < width; ++i)
        value = value << 8 | *m_next++;
    return true;
}

bool MessageCheck::enter(MajorType type, quint64 count)
{
    // An item takes a byte at least, so that a larger count cannot be true.
    if (count > bytesLeft())
        return fail("the message is cut off");
    if (m_depth == MaxMessageDepth)
        return fail("the message is nested too deep");
    m_open[std::size_t(m_depth++)] = { type == Map ? count * 2 : count, type == Map,
                                       m_keys.size() };
    return true;
}

/*! Leaves all containers of which every item was seen. */
bool MessageCheck::leaveFinished()
{
    for (; m_depth > 0; --m_depth) {
        const Container &innermost = m_open[std::size_t(m_depth - 1)];
        if (innermost.itemsLeft > 0)
            return true;
        if (!innermost.isMap)
            continue;
        // Sorted: a host cannot choose keys that make this slow, as it could those of a hash.
        const auto firstKey = m_keys.begin() + std::ptrdiff_t(innermost.firstKey);
        std::sort(firstKey, m_keys.end());
        if (std::adjacent_find(firstKey, m_keys.end()) != m_keys.end())
            return fail("the message has a map with a key twice");
        m_keys.erase(firstKey, m_keys.end());
    }
    return true;
}

bool MessageCheck::run()
{
    int items = 0;
    do {
        if (++items > MaxMessageItems)
            return fail("the message has too many items");
        bool isKey = false;
        if (m_depth > 0) {
            Container &around = m_open[std::size_t(m_depth - 1)];
            isKey = around.isMap && around.itemsLeft % 2 == 0;
            --around.itemsLeft;
        }
        MajorType type = Simple;
        quint64 value = 0;
        if (!readHead(type, value))
            return false;
        if (items == 1 && type != Map)
            return fail("the message is no map");
        if (isKey && type != Text)
            return fail("the message has a key that is no text");
        switch (type) {
        case Unsigned:
        case Negative:
        case Simple:
            break;
        case Bytes:
        case Text:
            if (value > bytesLeft())
                return fail("the message is cut off");
            if (isKey)
                m_keys.emplace_back(reinterpret_cast<const char *>(m_next), std::size_t(value));
            m_next += value;
            break;
        case Array:
        case Map:
            if (!enter(type, value))
                return false;
            break;
        case Tag:
            return fail("the message has a tag");
        }
        if (!leaveFinished())
            return false;
    } while (m_depth > 0);
    return m_next == m_end || fail("there are bytes behind the message");
}

} // namespace

bool decodeMessage(const QByteArray &bytes, QCborMap &message, QString &errorText)
{
    MessageCheck check(bytes);
    if (!check.run()) {
        errorText = check.errorText();
        return false;
    }
    QCborParserError error;
    const QCborValue value = QCborValue::fromCbor(bytes, &error);
    if (error.error != QCborError::NoError) {
        errorText = error.errorString();
        return false;
    }
    message = value.toMap();
    return true;
}

QByteArray encodeFrame(const QCborMap &message)
{
    QByteArray frame = message.toCborValue().toCbor();
    if (frame.size() > MaxMessageSize || !MessageCheck(frame).run())
        return QByteArray();
    std::array<char, FrameHeaderSize> header;
    qToBigEndian(quint32(frame.size()), header.data());
    frame.prepend(header.data(), FrameHeaderSize);
    return frame;
}

void FrameReader::append(const QByteArray &bytes)
{
    m_bytes.remove(0, m_offset);
    m_offset = 0;
    m_bytes.append(bytes);
}

FrameReader::Status FrameReader::next(QCborMap &message)
{
    if (!m_errorText.isEmpty())
        return Status::Broken;
    const int available = m_bytes.size() - m_offset;
    if (available < FrameHeaderSize)
        return Status::Incomplete;

    const char *const frame = m_bytes.constData() + m_offset;
    const quint32 size = qFromBigEndian<quint32>(frame);
    if (size == 0 || size > quint32(MaxMessageSize)) {
        m_errorText = QStringLiteral("a frame of %1 bytes").arg(size);
        return Status::Broken;
    }
    if (quint32(available - FrameHeaderSize) < size)
        return Status::Incomplete;

    const auto body = QByteArray::fromRawData(frame + FrameHeaderSize, int(size));
    if (!decodeMessage(body, message, m_errorText))
        return Status::Broken;
    m_offset += FrameHeaderSize + int(size);
    return Status::Message;
}

QString FrameReader::errorText() const
{
    return m_errorText;
}

} // namespace Velmar::SSProxy
