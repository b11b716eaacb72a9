#include "pairedrounds.h"

#include "package/packagecheck.h"
#include "package/packagecopy.h"

#include <tzcryptrc2/convertfile.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

using namespace Velmar::Host;

namespace {

constexpr qint64 TotalBytes = 256 * 1024 * 1024;

[[noreturn]] void fail(const QString &what)
{
    std::fprintf(stderr, "%s\n", qPrintable(what));
    std::exit(EXIT_FAILURE);
}

void write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        fail(file.fileName() + QStringLiteral(": ") + file.errorString());
}

// Bytes that nothing can compress, the same in each run.
QByteArray contentOf(qint64 size)
{
    std::mt19937_64 random(1);
    std::vector<quint64> words(std::size_t(size) / sizeof(quint64));
    for (quint64 &word : words)
        word = random();
    return QByteArray(reinterpret_cast<const char *>(words.data()),
                      int(words.size() * sizeof(quint64)));
}

// A folder with files of equal length, TotalBytes together.
class Package
{
public:
    explicit Package(int count)
    {
        const QByteArray content = contentOf(TotalBytes / count);
        QDir(m_top.path()).mkpath(QStringLiteral("package/unit"));
        for (int i = 0; i < count; ++i) {
            m_files.append(folder() + QStringLiteral("/unit/%1.bin").arg(i));
            write(m_files.last(), content);
        }
    }

    QString folder() const { return m_top.filePath(QStringLiteral("package")); }
    QString other(const QString &name) const { return m_top.filePath(name); }
    const QStringList &files() const { return m_files; }

private:
    QTemporaryDir m_top { QDir::tempPath() + QStringLiteral("/packagecopying-XXXXXX") };
    QStringList m_files;
};

std::unique_ptr<PackageCopy> copyOf(const Package &package)
{
    PackageCopyOptions options;
    options.baseFolder = package.other(QStringLiteral("copies"));
    const std::atomic<bool> isCancelled { false };
    VerdictCode code = VerdictCode::Internal;
    QString errorText;
    auto copy = PackageCopy::make(package.folder(), options, isCancelled, code, errorText);
    if (!copy)
        fail(errorText);
    return copy;
}

void runProgram(const QString &program, const QStringList &arguments)
{
    if (QProcess::execute(program, arguments) != 0)
        fail(program + QStringLiteral(" failed"));
}

// With the removal on both sides: a copy that stays would fill the disk.
void copyWithCp(const Package &package)
{
    const QString target = package.other(QStringLiteral("cp"));
    runProgram(
        QStringLiteral("cp"),
        { QStringLiteral("-r"), QStringLiteral("--reflink=never"), package.folder(), target });
    QDir(target).removeRecursively();
}

// What the upgrade library does before it announces an image, to as many bytes.
void hashAsTheLibrary(const Package &package)
{
    QCryptographicHash sum(QCryptographicHash::Sha256);
    for (const auto &path : package.files()) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
            fail(file.errorString());
        QByteArray block(256 * 1024, Qt::Uninitialized);
        for (qint64 got = 0; (got = file.read(block.data(), block.size())) > 0;)
            sum.addData(block.constData(), int(got));
    }
    benchmark::DoNotOptimize(sum.result());
}

void copyAgainst(benchmark::State &state, int count, double limit,
                 void (*reference)(const Package &))
{
    const Package package(count);
    PairedRounds::run(
        state, limit, [&] { copyOf(package); }, [&] { reference(package); });
    state.SetBytesProcessed(state.iterations() * TotalBytes);
}

// The check of enciphered files against deciphering them, as the upgrade itself will.
void checkAgainstDeciphering(benchmark::State &state)
{
    constexpr int Count = 4;
    const QTemporaryDir top(QDir::tempPath() + QStringLiteral("/packagecopying-XXXXXX"));
    const auto path = [&top](const QString &name) {
        return top.filePath(name);
    };
    QDir(top.path()).mkdir(QStringLiteral("unit"));
    write(path(QStringLiteral("plain")), contentOf(TotalBytes / 16));
    QByteArray unit("<DataPackage>");
    std::vector<PackageFile> files;
    for (int i = 0; i < Count; ++i) {
        const QString name = QStringLiteral("%1.dat").arg(i);
        unit += "<FileInfo FileName='" + name.toUtf8() + "'/>";
        files.push_back({ QStringLiteral("unit/") + name, TotalBytes / 16, {} });
        if (!TZ::encipherFile(path(QStringLiteral("plain")), path(files.back().path))
                 .cause.isEmpty())
            fail(QStringLiteral("cannot encipher"));
    }
    write(path(QStringLiteral("unit/unit.xml")), unit + "</DataPackage>");
    write(path(QStringLiteral("PackageCfg.xml")), "<r><string>unit</string></r>");
    const PackageManifest manifest(files, { QStringLiteral("unit") });
    PairedRounds::run(
        state, 0.3,
        [&] {
            const auto findings = checkPackage(top.path(), manifest);
            if (firstRefusal(findings))
                fail(firstRefusal(findings)->text);
        },
        [&] {
            for (const auto &file : files) {
                if (!TZ::decipherFile(path(file.path), path(QStringLiteral("out"))).cause.isEmpty())
                    fail(QStringLiteral("cannot decipher"));
            }
        });
}

} // namespace

BENCHMARK_CAPTURE(copyAgainst, 8_files_cp, 8, 5, copyWithCp)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(copyAgainst, 20000_files_cp, 20000, 2, copyWithCp)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(copyAgainst, 8_files_Qt_hash, 8, 0.5, hashAsTheLibrary)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(checkAgainstDeciphering)
    ->Iterations(PairedRounds::Count)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
