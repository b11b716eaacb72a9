#ifndef VELMARHOST_BLOCKHASHER_H
#define VELMARHOST_BLOCKHASHER_H

#include <QByteArray>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace Velmar::Host {

/*!
    Hashes files (SHA-256) on a thread of its own while its user reads and writes them block by
    block: a file is hashed in about the time that copying it takes.

    The user fetches a block, fills it, submits it and may go on reading what is in it; then fetches
    the next. One thread uses it.
*/
class BlockHasher
{
public:
    static constexpr std::size_t BlockSize = 256 * 1024;

    /*! Called on the hasher's thread with a file's hash, 32 bytes. */
    using Sink = std::function<void(std::size_t file, const QByteArray &sha256)>;

    explicit BlockHasher(Sink sink);

    /*! Waits for what has been submitted. */
    ~BlockHasher();

    /*! BlockSize bytes to fill. Waits while all blocks are in use; the one fetched before is given
        up if it was not submitted. */
    char *fetch();

    /*! Adds the first \a length bytes of the block fetched last to the hash of \a file; \a isLast
        completes that. The files follow each other. */
    void submit(std::size_t length, std::size_t file, bool isLast);

    /*! Waits until all that was submitted is hashed. */
    void finish();

private:
    BlockHasher(const BlockHasher &) = delete;
    BlockHasher &operator=(const BlockHasher &) = delete;

    struct Item {
        const char *data;
        std::size_t length;
        std::size_t file;
        bool isLast;
    };

    void run();

    const Sink m_sink;
    std::vector<QByteArray> m_blocks;
    std::size_t m_fetched = 0; // of the user's thread

    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    std::deque<Item> m_items; // the first is being hashed
    bool m_isEnding = false;

    std::thread m_thread;
};

} // namespace Velmar::Host

#endif // VELMARHOST_BLOCKHASHER_H
