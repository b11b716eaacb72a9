// Uploads and polls of the HTTP client against a client that does the least with the same Qt
// classes.
//
// Each client is a process of its own, this program once more, so that its peak of memory and its
// CPU time are its own. The service is a sink in this process: it reads, and answers.

#include "pairedrounds.h"

#include "upgradeclientproxy.h"
#include "upgradefileofhttp.h"

#include <QCoreApplication>
#include <QFile>
#include <QHttpMultiPart>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTemporaryDir>
#include <QTimer>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr char Address[] = "127.0.95.1";
constexpr int Port = 8080; // stands in the client's addresses
constexpr double TimeLimit = 1.05;
constexpr double PeakLimit = 1.05;
constexpr int Polls = 5000;

/*! What one client process reports, and what the kernel says of it. */
struct Measured {
    double value = 0; // seconds of an upload, or microseconds of CPU for a poll
    double growth = 0; // KiB of memory over the polls
    double peak = 0; // KiB of memory at most
};

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "bench_httproad: %s\n", what);
    std::exit(EXIT_FAILURE);
}

std::size_t contentLength(const std::string &head)
{
    const std::size_t at = head.find("Content-Length: ");
    return at == std::string::npos ? 0 : std::strtoull(head.c_str() + at + 16, nullptr, 10);
}

/*! Reads requests from \a connection to its end, and answers each. */
void serve(int connection)
{
    const std::string body =
        R"({"result":1,"rate":42,"subSections":{"rate":42},"parts":[)"
        R"({"type":1,"slotId":0,"rate":42,"result":1,"section":[)"
        R"({"code":257,"rate":84,"result":1},{"code":258,"rate":0,"result":0}]}]})";
    const std::string answer =
        "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    std::vector<char> buffer(1 << 18);
    std::string head;
    std::size_t rest = 0; // of the body
    for (ssize_t got = 0; (got = ::recv(connection, buffer.data(), buffer.size(), 0)) > 0;) {
        auto bytes = static_cast<std::size_t>(got);
        if (rest == 0) {
            head.append(buffer.data(), bytes);
            const std::size_t end = head.find("\r\n\r\n");
            if (end == std::string::npos)
                continue;
            rest = contentLength(head);
            bytes = head.size() - end - 4;
            head.clear();
        }
        rest -= std::min(rest, bytes);
        if (rest == 0 && ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL) < 0)
            break;
    }
    ::close(connection);
}

void startSink()
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(Port);
    ::inet_pton(AF_INET, Address, &address.sin_addr);
    if (::bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0
        || ::listen(listener, 16) != 0)
        fail("the port of the service is taken");
    std::thread([listener] {
        for (;;) {
            const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection >= 0)
                std::thread(serve, connection).detach();
        }
    }).detach();
}

/*! This program as a client: \a arguments tell which, \a isBound ties it to one core. */
Measured runClient(std::vector<std::string> arguments, bool isBound)
{
    int ends[2];
    if (::pipe(ends) != 0)
        fail("no pipe");
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        if (isBound) {
            cpu_set_t cores;
            CPU_ZERO(&cores);
            CPU_SET(0, &cores);
            ::sched_setaffinity(0, sizeof(cores), &cores);
        }
        arguments.insert(arguments.begin(), "/proc/self/exe");
        std::vector<char *> words;
        for (std::string &argument : arguments)
            words.push_back(argument.data());
        words.push_back(nullptr);
        ::execv("/proc/self/exe", words.data());
        ::_exit(EXIT_FAILURE);
    }
    ::close(ends[1]);
    char text[128] = {};
    const ssize_t got = ::read(ends[0], text, sizeof(text) - 1);
    ::close(ends[0]);
    int status = 0;
    rusage usage {};
    ::wait4(child, &status, 0, &usage);
    Measured measured;
    if (got <= 0 || status != 0
        || std::sscanf(text, "%lf %lf", &measured.value, &measured.growth) != 2)
        fail("a client failed");
    measured.peak = static_cast<double>(usage.ru_maxrss);
    return measured;
}

void report(double value, double growth)
{
    std::printf("%.9f %.1f\n", value, growth);
}

double elapsedSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int uploadWithClient(const QString &path)
{
    auto *const client = UpgradeClientProxy::getInstance();
    client->setDeviceIp(QString::fromLatin1(Address));
    int result = EXIT_FAILURE;
    QObject::connect(client, &UpgradeClientProxy::signalReplyUploadFinished, [&result](int code) {
        result = code == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
        QCoreApplication::exit(result);
    });
    const auto start = std::chrono::steady_clock::now();
    if (client->uploadFiletoDevice(path, QByteArray("{}")) != 0)
        return EXIT_FAILURE;
    QCoreApplication::exec();
    report(elapsedSince(start), 0);
    return result;
}

int uploadWithLeast(const QString &path)
{
    QNetworkAccessManager manager;
    const auto start = std::chrono::steady_clock::now();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return EXIT_FAILURE;
    QHttpMultiPart parts(QHttpMultiPart::FormDataType);
    QHttpPart filePart;
    filePart.setRawHeader("Content-Disposition", "form-data; name=\"file\"; filename=\"file.jpg\"");
    filePart.setRawHeader("Content-Type", "application/octet-stream");
    filePart.setBodyDevice(&file);
    parts.append(filePart);
    QHttpPart textPart;
    textPart.setRawHeader("Content-Disposition",
                          "form-data; name=\"text\"; filename=\"text.text\"");
    textPart.setRawHeader("Content-Type", "multipart/form-data");
    textPart.setBody("{}");
    parts.append(textPart);
    const QUrl url(
        QStringLiteral("http://%1:%2/uploadUpgrade").arg(QString::fromLatin1(Address)).arg(Port));
    QNetworkReply *const reply = manager.post(QNetworkRequest(url), &parts);
    QObject::connect(reply, &QNetworkReply::finished, [] { QCoreApplication::quit(); });
    QCoreApplication::exec();
    report(elapsedSince(start), 0);
    return reply->error() == QNetworkReply::NoError ? EXIT_SUCCESS : EXIT_FAILURE;
}

double residentKiB()
{
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return static_cast<double>(resident * ::sysconf(_SC_PAGESIZE)) / 1024;
}

double cpuSeconds()
{
    timespec time {};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/*! A poll from the timer's slot to the host's callback, one after the other. */
int pollOften()
{
    Velmar::Firmware::UpgradeFileOfHTTP upgrade;
    auto *const client = UpgradeClientProxy::getInstance();
    client->setDeviceIp(QString::fromLatin1(Address));
    int count = 0;
    double start = 0;
    double before = 0;
    constexpr int WarmUp = 500;
    upgrade.registerUpgradeFinishedCallBack([] { QCoreApplication::exit(EXIT_FAILURE); });
    upgrade.registerRefreshUpgradeProcessCallBack([&](auto &) {
        if (++count == WarmUp) {
            start = cpuSeconds();
            before = residentKiB();
        }
        if (count == WarmUp + Polls) {
            report((cpuSeconds() - start) / Polls * 1e6, residentKiB() - before);
            QCoreApplication::exit(EXIT_SUCCESS);
            return;
        }
        QTimer::singleShot(0, client, &UpgradeClientProxy::slotRunReply);
    });
    client->slotRunReply();
    return QCoreApplication::exec();
}

int runAsClient(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    const std::string what = argv[1];
    if (what == "client")
        return uploadWithClient(QString::fromLocal8Bit(argv[2]));
    if (what == "least")
        return uploadWithLeast(QString::fromLocal8Bit(argv[2]));
    return pollOften();
}

void upload(benchmark::State &state, qint64 mebibytes, bool isBound)
{
    const QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("image")));
    if (!file.open(QIODevice::WriteOnly) || !file.resize(mebibytes << 20))
        fail("no room for the file");
    file.close();
    const std::string path = file.fileName().toStdString();
    double clientPeak = 0;
    double leastPeak = 0;
    PairedRounds::runTimed(
        state, TimeLimit,
        [&] {
            const Measured measured = runClient({ "client", path }, isBound);
            clientPeak = std::max(clientPeak, measured.peak);
            return measured.value;
        },
        [&] {
            const Measured measured = runClient({ "least", path }, isBound);
            leastPeak = std::max(leastPeak, measured.peak);
            return measured.value;
        });
    state.counters["peak_bytes"] = clientPeak * 1024;
    state.counters["limit_bytes"] = leastPeak * 1024 * PeakLimit;
    state.SetBytesProcessed(state.iterations() * (mebibytes << 20));
}

/*! A program of another kind with the same two parts, for the record; with its start. */
void uploadWithCurl(benchmark::State &state)
{
    const QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("image")));
    if (!file.open(QIODevice::WriteOnly) || !file.resize(1 << 30))
        fail("no room for the file");
    file.close();
    const std::string part = "file=@" + file.fileName().toStdString();
    const std::string url = std::string("http://") + Address + ":8080/uploadUpgrade";
    double seconds = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const pid_t child = ::fork();
        if (child == 0) {
            ::execlp("curl", "curl", "-s", "-o", "/dev/null", "-H", "Expect:", "-F", part.c_str(),
                     "-F", "text={}", url.c_str(), nullptr);
            ::_exit(EXIT_FAILURE);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        if (status != 0)
            fail("curl failed");
        seconds = elapsedSince(start);
        state.SetIterationTime(seconds);
    }
    state.counters["subject_ms"] = seconds * 1000;
}

void poll(benchmark::State &state)
{
    Measured last;
    for (auto _ : state) {
        last = runClient({ "polls" }, true);
        state.SetIterationTime(last.value * Polls / 1e6);
    }
    state.counters["subject_ms"] = last.value / 1000; // of CPU, for one poll
    state.counters["growth_KiB"] = last.growth;
}

} // namespace

BENCHMARK_CAPTURE(upload, 16_MiB_one_core, 16, true)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(upload, 16_MiB, 16, false)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(upload, 256_MiB_one_core, 256, true)
    ->Iterations(9)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(upload, 256_MiB, 256, false)
    ->Iterations(9)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(upload, 1_GiB_one_core, 1024, true)
    ->Iterations(9)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(upload, 1_GiB, 1024, false)
    ->Iterations(9)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(uploadWithCurl)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(poll)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    if (argc > 1 && argv[1][0] != '-')
        return runAsClient(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    startSink();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
