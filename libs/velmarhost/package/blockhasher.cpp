#include "package/blockhasher.h"

#include "package/sha256.h"

#include <utility>

namespace Velmar::Host {

namespace {

// 2 MiB in all: more, or larger ones, measured no better.
constexpr std::size_t BlockCount = 8;

} // namespace

BlockHasher::BlockHasher(Sink sink)
    : m_sink(std::move(sink))
    , m_thread([this] { run(); })
{
}

BlockHasher::~BlockHasher()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

char *BlockHasher::fetch()
{
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_items.size() < BlockCount; });
    }
    if (m_blocks.size() <= m_fetched)
        m_blocks.push_back(QByteArray(int(BlockSize), Qt::Uninitialized));
    return m_blocks[m_fetched].data();
}

void BlockHasher::submit(std::size_t length, std::size_t file, bool isLast)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_items.push_back({ m_blocks[m_fetched].constData(), length, file, isLast });
    }
    m_changed.notify_all();
    m_fetched = (m_fetched + 1) % BlockCount;
}

void BlockHasher::finish()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_items.empty(); });
}

void BlockHasher::run()
{
    Sha256 hash;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return m_isEnding || !m_items.empty(); });
        if (m_items.empty())
            return;
        const Item item = m_items.front();
        lock.unlock();
        hash.add(item.data, item.length);
        if (item.isLast)
            m_sink(item.file, hash.result());
        lock.lock();
        m_items.pop_front();
        m_changed.notify_all();
    }
}

} // namespace Velmar::Host
