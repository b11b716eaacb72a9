#include "worker/workervoice.h"

#include <QtTest>

#include <chrono>
#include <csignal>
#include <future>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

using namespace Velmar::Host;

namespace {

/*! A pipe to a host. */
class Pipe
{
public:
    Pipe()
    {
        if (pipe2(m_ends, O_CLOEXEC) != 0)
            qFatal("There is no pipe to test with");
    }
    ~Pipe()
    {
        closeReader();
        closeWriter();
    }

    int writer() const { return m_ends[1]; }

    void closeReader() { close(m_ends[0]); }
    void closeWriter() { close(m_ends[1]); }

    /*! Reads until the other end is closed. */
    QByteArray readAll() const
    {
        QByteArray all;
        QByteArray some(65536, '\0');
        while (true) {
            const auto count = read(m_ends[0], some.data(), std::size_t(some.size()));
            if (count <= 0)
                return all;
            all.append(some.constData(), int(count));
        }
    }

private:
    Q_DISABLE_COPY_MOVE(Pipe)

    static void close(int &end)
    {
        if (end >= 0)
            ::close(end);
        end = -1;
    }

    int m_ends[2] = { -1, -1 };
};

} // namespace

class tst_WorkerVoice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { std::signal(SIGPIPE, SIG_IGN); }

    void tellsInOrder()
    {
        Pipe pipe;
        {
            WorkerVoice voice(pipe.writer());
            voice.tell(HelloTell { 1 });
            voice.tell(PhaseTell { Phase::Planning });
            voice.flush();
            voice.tell(EndTell { true, QString() });
        }
        pipe.closeWriter();
        QCOMPARE(pipe.readAll(),
                 QByteArray("{\"protocol\":1,\"tell\":\"hello\"}\n"
                            "{\"phase\":\"plan\",\"tell\":\"phase\"}\n"
                            "{\"result\":true,\"tell\":\"end\",\"text\":\"\"}\n"));
    }

    // The host is stopped: the upgrade goes on, and what the host has to know is kept for it.
    void nobodyReads()
    {
        Pipe pipe;
        auto voice = std::make_unique<WorkerVoice>(pipe.writer());
        const QString text(10000, 'x');
        for (int i = 0; i < 1000; ++i)
            voice->tell(LogTell { QtDebugMsg, text });
        voice->tell(StatusTell { QStringLiteral("lost") });
        voice->tell(TrafficTell {});
        LinkTraffic traffic;
        traffic.isOrdered = true;
        voice->tell(TrafficTell { traffic });
        voice->tell(PhaseTell { Phase::Restarting });
        voice->tell(EndTell { true, QStringLiteral("done") });
        voice->flush(std::chrono::milliseconds(1)); // comes back
        auto told = std::async(std::launch::async, [&pipe] { return pipe.readAll(); });
        voice.reset();
        pipe.closeWriter();
        const auto lines = told.get().split('\n');
        // A quarter of a MiB and the pipe's own 64 KiB, in lines of some 10,000 bytes.
        QVERIFY2(lines.size() > 20 && lines.size() < 60,
                 QByteArray::number(lines.size()).constData());
        // The device may be at work: nothing that the host knew before is as important.
        QVERIFY(!lines.at(lines.size() - 5).contains("traffic"));
        QVERIFY2(lines.at(lines.size() - 4).contains("\"isOrdered\":true"),
                 lines.at(lines.size() - 4).constData());
        QCOMPARE(lines.at(lines.size() - 3),
                 QByteArray("{\"phase\":\"restart\",\"tell\":\"phase\"}"));
        QCOMPARE(lines.at(lines.size() - 2),
                 QByteArray("{\"result\":true,\"tell\":\"end\",\"text\":\"done\"}"));
        QCOMPARE(lines.constLast(), QByteArray()); // all lines are whole
    }

    void lastTrafficWithoutAnythingBehindIt()
    {
        Pipe pipe;
        WorkerVoice voice(pipe.writer());
        for (int i = 0; i < 40; ++i)
            voice.tell(LogTell { QtDebugMsg, QString(10000, 'x') });
        voice.tell(TrafficTell {});
        auto told = std::async(std::launch::async, [&pipe] { return pipe.readAll(); });
        voice.flush();
        pipe.closeWriter();
        const auto lines = told.get().split('\n');
        QVERIFY2(lines.at(lines.size() - 2).contains("\"tell\":\"traffic\""),
                 lines.at(lines.size() - 2).constData());
    }

    void hostIsGone()
    {
        Pipe pipe;
        pipe.closeReader();
        WorkerVoice voice(pipe.writer());
        for (int i = 0; i < 100; ++i)
            voice.tell(EndTell { true, QString(10000, 'x') });
        voice.flush(); // does not wait for ever
    }

    void goneWhileItIsTold()
    {
        Pipe pipe;
        WorkerVoice voice(pipe.writer());
        for (int i = 0; i < 100; ++i)
            voice.tell(EndTell { true, QString(10000, 'x') });
        pipe.closeReader();
        voice.flush();
    }
};

QTEST_GUILESS_MAIN(tst_WorkerVoice)
#include "tst_workervoice.moc"
