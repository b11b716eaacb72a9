#include "pairedrounds.h"

#include "upgradefile.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

using FilePaths = QVector<QPair<QString, QString>>;

constexpr qint64 TotalBytes = 256 * 1024 * 1024;
constexpr double MemoryBase = 20.0 * 1024 * 1024; // bytes
constexpr double MemoryOfOneFile = 600; // bytes

[[noreturn]] void fail(const std::string &what)
{
    std::fprintf(stderr, "%s: %s\n", what.c_str(), std::strerror(errno));
    std::exit(EXIT_FAILURE);
}

QPair<QString, QString> filePath(const QString &folder, int number)
{
    return { folder + QStringLiteral("/section%1.bin").arg(number),
             QStringLiteral("/firmware/section%1").arg(number) };
}

// A folder with files of equal length, TotalBytes together, that nothing can compress.
class Package
{
public:
    explicit Package(int count)
    {
        std::mt19937_64 random(1); // the same bytes in each run
        std::vector<quint64> words(static_cast<std::size_t>(TotalBytes / count) / sizeof(quint64));
        const auto bytes = static_cast<qint64>(words.size() * sizeof(quint64));
        for (int i = 0; i < count; ++i) {
            for (quint64 &word : words)
                word = random();
            m_files.append(filePath(folder(), i));
            QFile file(m_files.last().first);
            if (!file.open(QIODevice::WriteOnly)
                || file.write(reinterpret_cast<const char *>(words.data()), bytes) != bytes)
                fail("cannot write " + file.fileName().toStdString());
        }
    }

    QString folder() const { return m_folder.path(); }
    const FilePaths &files() const { return m_files; }

private:
    QTemporaryDir m_folder { QDir::tempPath() + QStringLiteral("/imagebuilding-XXXXXX") };
    FilePaths m_files;
};

std::vector<std::string> sourcePaths(const FilePaths &files)
{
    std::vector<std::string> paths;
    for (const QPair<QString, QString> &file : files)
        paths.push_back(file.first.toStdString());
    return paths;
}

void buildImage(const FilePaths &files, const QString &folder)
{
    Velmar::Firmware::UpgradeFile upgradeFile(nullptr);
    if (upgradeFile.makeUpgradeFile(files, folder, 0x7701, QStringLiteral("1.2.3.4")).isEmpty())
        fail("cannot build the image");
}

int openTarget(const std::string &path)
{
    ::unlink(path.c_str());
    const int target = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0644);
    if (target < 0)
        fail("cannot create " + path);
    return target;
}

// The least that can be done: read a file, add its bytes up, write them.
void readSumWrite(const std::vector<std::string> &paths, const std::string &targetPath)
{
    const int target = openTarget(targetPath);
    std::vector<unsigned char> buffer(256 * 1024);
    unsigned short sum = 0x5555;
    for (const std::string &path : paths) {
        const int source = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (source < 0)
            fail("cannot open " + path);
        for (ssize_t got = 0; (got = ::read(source, buffer.data(), buffer.size())) > 0;) {
            for (ssize_t i = 0; i < got; ++i)
                sum = static_cast<unsigned short>(sum + buffer[static_cast<std::size_t>(i)]);
            if (::write(target, buffer.data(), static_cast<std::size_t>(got)) != got)
                fail("cannot write " + targetPath);
        }
        ::close(source);
    }
    benchmark::DoNotOptimize(sum);
    ::close(target);
}

void cat(const std::vector<std::string> &paths, const std::string &targetPath)
{
    std::string program("cat");
    std::vector<std::string> texts = paths;
    std::vector<char *> arguments { program.data() };
    for (std::string &text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);

    const int target = openTarget(targetPath);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, target, STDOUT_FILENO);
    pid_t child = 0;
    if (::posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments.data(), environ) != 0)
        fail("cannot start cat");
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(target);
    int status = 0;
    if (::waitpid(child, &status, 0) != child || status != 0)
        fail("cat failed");
}

// The most memory that this process has had so far, in bytes.
double peakMemory()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, 6, "VmHWM:") == 0)
            return std::stod(line.substr(6)) * 1024;
    }
    fail("cannot read the peak memory");
}

// In a process of its own: builds the image of a folder's files once, and tells its peak.
int tellPeakMemory(const QString &folder, int count)
{
    FilePaths files;
    for (int i = 0; i < count; ++i)
        files.append(filePath(folder, i));
    buildImage(files, folder);
    std::printf("%.0f\n", peakMemory());
    return EXIT_SUCCESS;
}

double peakMemoryOfOneImage(const Package &package)
{
    const std::string command = "/proc/" + std::to_string(::getpid()) + "/exe --peak-memory "
        + package.folder().toStdString() + ' ' + std::to_string(package.files().size());
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> output(::popen(command.c_str(), "r"),
                                                                  ::pclose);
    double bytes = 0;
    if (!output || std::fscanf(output.get(), "%lf", &bytes) != 1)
        fail("cannot measure the peak memory");
    return bytes;
}

void imageAgainst(benchmark::State &state, int count, double limit,
                  void (*reference)(const std::vector<std::string> &, const std::string &))
{
    const Package package(count);
    const std::vector<std::string> paths = sourcePaths(package.files());
    const std::string target = package.folder().toStdString() + "/reference";
    PairedRounds::run(
        state, limit, [&] { buildImage(package.files(), package.folder()); },
        [&] { reference(paths, target); });
    state.SetBytesProcessed(state.iterations() * TotalBytes);
}

void imageMemory(benchmark::State &state)
{
    const int count = static_cast<int>(state.range(0));
    const Package package(count);
    double bytes = 0;
    for (auto _ : state)
        bytes = peakMemoryOfOneImage(package);
    state.counters["peak_bytes"] = bytes;
    state.counters["limit_bytes"] = MemoryBase + MemoryOfOneFile * count;
}

} // namespace

BENCHMARK_CAPTURE(imageAgainst, 8_files_cat, 8, 1.10, cat)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(imageAgainst, 20000_files_read_sum_write, 20000, 1.15, readSumWrite)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(imageMemory)->Arg(8)->Arg(20000)->Iterations(1)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    if (argc == 4 && std::string(argv[1]) == "--peak-memory")
        return tellPeakMemory(QFile::decodeName(argv[2]), std::atoi(argv[3]));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return EXIT_FAILURE;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
