#ifndef VELMARHOST_WORKERVOICE_H
#define VELMARHOST_WORKERVOICE_H

#include "worker/workermain.h"
#include "worker/workermessage.h"

#include <QByteArray>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace Velmar::Host {

/*!
    Tells a worker's messages to its host, on a thread of its own.

    An upgrade does not wait for whoever listens: a host may be stopped in the middle of an
    installation. Messages that the next one of their kind replaces, and log lines, are left out
    while too much waits to be read; the others never, nor the last word about the traffic, by which a
    host knows whether the device may be at work. Behind the end of the host nothing is told any more.
    Any thread may call.
*/
class WorkerVoice
{
public:
    /*! Writes to \a descriptor, which stays the caller's and blocks. */
    explicit WorkerVoice(int descriptor);

    /*! Waits until everything is told. */
    ~WorkerVoice();

    void tell(const WorkerMessage &message);

    /*! Waits until everything so far is told or cannot be told, for \a limit at most. */
    void flush(std::chrono::milliseconds limit);

    /*! The same without a limit. */
    void flush();

private:
    Q_DISABLE_COPY_MOVE(WorkerVoice)

    void writeAll();
    void add(const QByteArray &line);
    void addHeldTraffic();
    bool write(const QByteArray &line) const;
    bool isSilent() const;

    const int m_descriptor;
    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    std::deque<QByteArray> m_lines;
    QByteArray m_heldTraffic; // the last that was left out, if none has followed
    int m_waitingBytes = 0; // of the lines, and of the one that is being written
    bool m_isEnding = false;
    bool m_isBroken = false; // nobody reads any more
    std::thread m_writer; // last: it uses the others
};

/*! Tells the \a last message, and ends the process with \a code, without a look at its other
    threads: a run that was given up has some, and they still use what a normal end would destroy. */
[[noreturn]] void leaveWorker(WorkerVoice &voice, WorkerExit code, const WorkerMessage &last);

} // namespace Velmar::Host

#endif // VELMARHOST_WORKERVOICE_H
