// From the start of a process to the first byte of firmware that reaches the device: velmar-upgrade,
// which copies, checks, plans and upgrades in a second process, against a program that uses the
// library and nothing else.
//
// The device is in this process. It refuses the first bytes, so that both programs end by themselves.

#include "pairedrounds.h"

#include <tzcryptrc2/cryptrc2.h>
#include <velmarssproxy/framecodec.h>
#include <velmarssproxy/linkmessages.h>

#include <QCborArray>
#include <QCborMap>
#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

namespace {

using namespace Velmar;

constexpr double TimeLimit = 1.3;
constexpr int Rounds = 9;
constexpr int ModelId = 0x7702;
constexpr int MiB = 1024 * 1024;
constexpr int FileSize = 64 * MiB;
constexpr qint64 PackageSize = 4LL * FileSize;
constexpr int ReadLimit = 8 * MiB; // of libraries, descriptions, the device's answers

const QStringList Sections { QStringLiteral("MCU"), QStringLiteral("FPGA"),
                             QStringLiteral("Kernel"), QStringLiteral("RootFS") };

[[noreturn]] void fail(const QString &what)
{
    std::fprintf(stderr, "bench_firstbyte: %s\n", qPrintable(what));
    std::exit(EXIT_FAILURE);
}

void store(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        fail(file.errorString());
}

/*! A device of four sections that takes no firmware, and notes when the first comes. */
class RefusingDevice : public QObject
{
public:
    using Clock = std::chrono::steady_clock;

    RefusingDevice()
    {
        if (!m_server.listen(QHostAddress::LocalHost))
            fail(m_server.errorString());
        connect(&m_server, &QTcpServer::newConnection, this, &RefusingDevice::take);
    }

    QString address() const { return QStringLiteral("127.0.0.1:%1").arg(m_server.serverPort()); }

    /*! Calls \a atFirstByte when the first firmware comes, before it is refused. */
    void await(std::function<void()> atFirstByte) { m_atFirstByte = std::move(atFirstByte); }

private:
    void take()
    {
        auto *const socket = m_server.nextPendingConnection();
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        const auto frames = std::make_shared<SSProxy::FrameReader>();
        connect(socket, &QTcpSocket::readyRead, this, [this, socket, frames] {
            frames->append(socket->readAll());
            QCborMap message;
            while (frames->next(message) == SSProxy::FrameReader::Status::Message)
                socket->write(answerTo(message));
        });
    }

    QByteArray answerTo(const QCborMap &message)
    {
        SSProxy::RequestMessage request;
        QString errorText;
        if (!request.fromCbor(message, errorText))
            fail(errorText);
        SSProxy::AnswerMessage answer;
        answer.label = request.label;
        if (request.operation == QLatin1String("hello")) {
            answer.values = { { QLatin1String("protocol"), 1 },
                              { QLatin1String("modelId"), ModelId },
                              { QLatin1String("serial"), QLatin1String("B-1") },
                              { QLatin1String("name"), QLatin1String("bench") },
                              { QLatin1String("cards"), QCborArray() } };
        } else if (request.operation == QLatin1String("version.read")) {
            answer.values = { { QLatin1String("version"), QLatin1String("1.0.0.0") } };
        } else if (request.operation == QLatin1String("file.data")) {
            if (m_atFirstByte)
                std::exchange(m_atFirstByte, {})();
            answer.ack = static_cast<quint16>(SSProxy::LinkAck::Refused);
            answer.errorText = QStringLiteral("enough");
        }
        return SSProxy::encodeFrame(answer.toCbor());
    }

    QTcpServer m_server;
    std::function<void()> m_atFirstByte;
};

/*! A package of 256 MiB with four files, and the folders of a user of velmar-upgrade. */
class Bench
{
public:
    explicit Bench(bool isEnciphered)
        : m_isEnciphered(isEnciphered)
    {
        const QString ending = QLatin1String(isEnciphered ? ".dat" : ".bin");
        QByteArray description = "<DataPackage ModuleID='7702' StepType='0' Version='2.0'>";
        QByteArray paths = "<Velmar>";
        if (!QDir(m_folder.path()).mkpath(QStringLiteral("package/main")))
            fail(QStringLiteral("there is no room for a package"));
        for (const auto &section : Sections) {
            const QString name = section + ending;
            storeFirmware(package() + QLatin1String("/main/") + name, isEnciphered);
            description += QStringLiteral("<FileInfo FileName='%1' FileLabel='%2' Version='2.0'/>")
                               .arg(name, section)
                               .toUtf8();
            paths +=
                QStringLiteral("<File><SrcPath>main/%1</SrcPath><DestPath>/firmware/%2</DestPath>"
                               "</File>")
                    .arg(name, section)
                    .toUtf8();
        }
        store(package() + QLatin1String("/main/unit.xml"), description + "</DataPackage>");
        store(package() + QLatin1String("/DataFilPathCfg.xml"), paths + "</Velmar>");
        store(package() + QLatin1String("/PackageCfg.xml"),
              "<Package><string>main</string></Package>");
    }

    double runHost()
    {
        const double seconds = run(QStringLiteral(VELMAR_UPGRADE), hostWords());
        // The copy reads a file once, and the check an enciphered one again.
        if (m_readBytes > (m_isEnciphered ? 2 : 1) * PackageSize + ReadLimit)
            fail(QStringLiteral("the host has read %1 bytes").arg(m_readBytes));
        return seconds;
    }

    double runLibrary()
    {
        const double seconds =
            run(QStringLiteral(VELMAR_LIBRARY_EXAMPLE), { package(), m_device.address() });
        QFile::remove(package() + QLatin1String("/upgrade")); // the image, which nobody has sent
        return seconds;
    }

private:
    QString package() const { return m_folder.filePath(QStringLiteral("package")); }

    QStringList hostWords() const
    {
        return { QStringLiteral("run"),      package(),
                 QStringLiteral("--device"), m_device.address(),
                 QStringLiteral("--yes"),    QStringLiteral("--quiet") };
    }

    static void storeFirmware(const QString &path, bool isEnciphered)
    {
        QByteArray plain(FileSize, Qt::Uninitialized);
        quint32 state = 1; // bytes without a pattern that anything could make use of
        for (auto &byte : plain)
            byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
        if (!isEnciphered) {
            store(path, plain);
            return;
        }
        const QString plainPath = path + QLatin1String(".plain");
        store(plainPath, plain);
        if (!CryptRc2().ReadFileToEncryptOrDecrypt(plainPath, path, CRYPTSTYLE_FILE,
                                                   CRYPTTYPE_ENCRYPT)
            || !QFile::remove(plainPath))
            fail(QStringLiteral("a file cannot be enciphered"));
    }

    double run(const QString &program, const QStringList &words)
    {
        QProcess process;
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_CACHE_HOME"), m_folder.filePath("cache"));
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_folder.filePath("config"));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_folder.filePath("runtime"));
        environment.insert(QStringLiteral("XDG_STATE_HOME"), m_folder.filePath("state"));
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::MergedChannels);
        QEventLoop loop;
        QObject::connect(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), &loop,
                         &QEventLoop::quit);
        std::optional<RefusingDevice::Clock::time_point> firstByte;
        m_device.await([this, &firstByte, &process] {
            firstByte = RefusingDevice::Clock::now();
            noteReading(process.processId());
        });
        const auto start = RefusingDevice::Clock::now();
        process.start(program, words);
        if (!process.waitForStarted())
            fail(process.errorString());
        loop.exec();
        if (!firstByte)
            fail(QStringLiteral("%1 sent nothing: %2")
                     .arg(program, QString::fromLocal8Bit(process.readAll())));
        return std::chrono::duration<double>(*firstByte - start).count();
    }

    void noteReading(qint64 process)
    {
        QFile file(QStringLiteral("/proc/%1/io").arg(process));
        if (!file.open(QIODevice::ReadOnly))
            fail(file.errorString());
        const auto lines = file.readAll().split('\n');
        for (const auto &line : lines) {
            if (line.startsWith("rchar: "))
                m_readBytes = line.mid(7).toLongLong();
        }
    }

    const QTemporaryDir m_folder;
    const bool m_isEnciphered;
    RefusingDevice m_device;
    qint64 m_readBytes = 0; // by the host's first process, up to the first byte of firmware
};

void firstByte(benchmark::State &state, bool isEnciphered)
{
    Bench bench(isEnciphered);
    PairedRounds::runTimed(
        state, TimeLimit, [&bench] { return bench.runHost(); },
        [&bench] { return bench.runLibrary(); });
}

} // namespace

BENCHMARK_CAPTURE(firstByte, plain_files, false)
    ->Iterations(Rounds)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(firstByte, enciphered_files, true)
    ->Iterations(Rounds)
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
