#include "pairedrounds.h"

#include "compatibilityupgrade_dat.h"
#include "packageconfig.h"
#include "support/encipheredfile.h"
#include "support/packagebuilder.h"

#include <velmarssproxy/devicechannel.h>
#include <velmarssproxy/devicecommand.h>
#include <velmarssproxy/framecodec.h>
#include <velmarssproxy/linkmessages.h>
#include <velmarssproxy/socketlink.h>

#include <QCoreApplication>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

using namespace Velmar;
using Firmware::CompatibilityUpgradeDat;
using ProtoModel::Auxiliary::s_CardInfoParts;

constexpr int MiB = 1024 * 1024;
constexpr int WriteSize = 4096; // bytes of the file in one write
constexpr unsigned int DataRegister = 0x01001000;
constexpr int TimeoutMs = 10000;

constexpr int ModelId = 0x7701;
constexpr int Decipherments = 3; // of each run: for two lengths and for the data

const QByteArray Commands = "<FileInfo FileName='MCU.dat' FileLabel='MCU'>"
                            "<CommandConfig CmdName='SendCardIndex' Address='0x01000010'/>"
                            "<CommandConfig CmdName='SendDeviceID'/>"
                            "<CommandConfig CmdName='SendSenderFileType' Address='0x01000014'/>"
                            "<CommandConfig CmdName='SendFileLength' Address='0x01000020'/>"
                            "<CommandConfig CmdName='SendFileCount' Address='0x01000030'/>"
                            "<CommandConfig CmdName='SendFileData' Address='0x01001000'/>"
                            "</FileInfo>";

constexpr double ThroughputLimit = 1 / 0.9; // at least 0.9 of the throughput of the bare loop

// Four times the file may take this much more than four times the time; 4 would be quadratic.
constexpr double LinearLimit = 1.2;

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "%s\n", what);
    std::exit(EXIT_FAILURE);
}

/*! A device that accepts whatever it is sent, on loopback and a thread of its own. */
class AcceptingDevice : public QThread
{
public:
    AcceptingDevice()
    {
        if (!m_server.listen(QHostAddress::LocalHost))
            fail("There is no free port.");
        m_port = m_server.serverPort();
        m_server.moveToThread(this);
        start();
    }

    ~AcceptingDevice() override { wait(); } // ends with its connection

    quint16 port() const { return m_port; }

protected:
    void run() override
    {
        if (!m_server.waitForNewConnection(TimeoutMs))
            return;
        const std::unique_ptr<QTcpSocket> socket(m_server.nextPendingConnection());
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        SSProxy::FrameReader frames;
        QCborMap message;
        while (socket->waitForReadyRead(-1)) {
            frames.append(socket->readAll());
            while (frames.next(message) == SSProxy::FrameReader::Status::Message)
                socket->write(answerTo(message));
            socket->flush();
        }
        m_server.close();
    }

private:
    static QByteArray answerTo(const QCborMap &message)
    {
        SSProxy::RequestMessage request;
        QString errorText;
        if (!request.fromCbor(message, errorText))
            fail("The host sent nonsense.");
        SSProxy::AnswerMessage answer;
        answer.label = request.label;
        return SSProxy::encodeFrame(answer.toCbor());
    }

    QTcpServer m_server;
    quint16 m_port = 0;
};

/*! One open channel, a package for it with one file, and both ways to send that. */
class Transfer
{
public:
    explicit Transfer(int size)
        : m_plain(size, '\0')
        , m_link(
              std::make_shared<SSProxy::SocketLink>(QStringLiteral("127.0.0.1"), m_device.port()))
        , m_channel(std::make_shared<SSProxy::DeviceChannel>(m_link))
    {
        for (int i = 0; i < size; ++i)
            m_plain[i] = static_cast<char>(i % 251);
        if (!m_package.index({ QStringLiteral("unit") })
            || !m_package.unit(QStringLiteral("unit"), "ModuleID='7701' Version='3.0'", Commands)
            || !storeEnciphered(path(), m_plain))
            fail("The package cannot be prepared.");
        QString errorText;
        if (!m_link->open(TimeoutMs, errorText))
            fail(qPrintable(errorText));
        QObject::connect(
            &m_upgrade, &CompatibilityUpgradeDat::signalUpdateProcessChanged, &m_upgrade,
            [this] { m_dataTime.noteWrite(); }, Qt::DirectConnection);
        QObject::connect(&m_upgrade, &CompatibilityUpgradeDat::signalUpdateFinished, &m_upgrade,
                         [this](bool isDone) { m_ends.append(isDone); });
    }

    /*! A whole run of the library: three decipherments, seven writes, then those of the data.
        Returns the seconds from the answer to the first of these to that to the last. */
    double run()
    {
        QString errorText;
        s_CardInfoParts part;
        part.type = 1;
        part.modelId = ModelId;
        m_dataTime = {};
        m_ends.clear();
        if (!Firmware::PackageConfig::instance()->readConfig(m_package.path(), errorText)
            || !m_upgrade.update({ part }, m_channel))
            fail("The run cannot be started.");
        while (m_ends.isEmpty())
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        if (!m_ends.first())
            fail("The run has failed.");
        return m_dataTime.seconds();
    }

    /*! The writes of the data and nothing else. Returns the seconds as run() does. */
    double sendBare()
    {
        m_dataTime = {};
        for (int offset = 0; offset < m_plain.size(); offset += WriteSize) {
            const int size = std::min(WriteSize, m_plain.size() - offset);
            const auto request = std::make_shared<SSProxy::DeviceRequestCommand>();
            request->setTimeout(TimeoutMs);
            request->writeFlag = 1;
            request->address = DataRegister;
            request->dataLength = static_cast<std::uint16_t>(size);
            request->setBody(std::string(m_plain.constData() + offset, std::size_t(size)));
            const auto answer = m_channel->sendSyncRequest(request);
            if (!answer || answer->ack != 0)
                fail("A write was not accepted.");
            m_dataTime.noteWrite();
        }
        return m_dataTime.seconds();
    }

    void decipher() const
    {
        const QString plain = path() + QStringLiteral("_dn");
        if (!CryptRc2().ReadFileToEncryptOrDecrypt(path(), plain, CRYPTSTYLE_FILE,
                                                   CRYPTTYPE_DECRYPT)
            || !QFile::remove(plain))
            fail("The file cannot be deciphered.");
    }

private:
    using Clock = std::chrono::steady_clock;

    struct DataTime {
        Clock::time_point first;
        Clock::time_point last;
        bool hasBegun = false;

        void noteWrite()
        {
            last = Clock::now();
            if (!hasBegun)
                first = last;
            hasBegun = true;
        }
        double seconds() const { return std::chrono::duration<double>(last - first).count(); }
    };

    QString path() const { return m_package.path(QStringLiteral("unit/MCU.dat")); }

    PackageBuilder m_package;
    QByteArray m_plain;
    AcceptingDevice m_device;
    const std::shared_ptr<SSProxy::SocketLink> m_link;
    const std::shared_ptr<SSProxy::DeviceChannel> m_channel;
    CompatibilityUpgradeDat m_upgrade;
    DataTime m_dataTime; // of the run or the bare loop that is going on
    QVector<bool> m_ends;
};

void dataOf32MiB(benchmark::State &state)
{
    Transfer transfer(32 * MiB);
    PairedRounds::runTimed(
        state, ThroughputLimit, [&transfer] { return transfer.run(); },
        [&transfer] { return transfer.sendBare(); });
    state.SetBytesProcessed(state.iterations() * 32 * MiB);
}

void wholeRunOf32MiB(benchmark::State &state)
{
    Transfer transfer(32 * MiB);
    PairedRounds::run(
        state, ThroughputLimit, [&transfer] { transfer.run(); },
        [&transfer] {
            for (int i = 0; i < Decipherments; ++i)
                transfer.decipher();
            transfer.sendBare();
        });
    state.SetBytesProcessed(state.iterations() * 32 * MiB);
}

void fourTimesTheFile(benchmark::State &state)
{
    Transfer large(32 * MiB);
    Transfer small(8 * MiB);
    PairedRounds::run(
        state, LinearLimit, [&large] { large.run(); },
        [&small] {
            for (int i = 0; i < 4; ++i)
                small.run();
        });
}

} // namespace

BENCHMARK(dataOf32MiB)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(wholeRunOf32MiB)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(fourTimesTheFile)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
