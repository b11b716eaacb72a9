#include "package/packagecopy.h"

#include "support/packagebuilder.h"
#include "support/unprivileged.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <cerrno>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Velmar::Host;

namespace {

struct Made {
    std::unique_ptr<PackageCopy> copy;
    VerdictCode code = VerdictCode::Internal;
    QString errorText;

    /*! "word: text" of a failure, or "copied". */
    QString outcome() const
    {
        return copy ? QStringLiteral("copied")
                    : verdictWord(code) + QStringLiteral(": ") + errorText;
    }
};

QByteArray nameOf(const QString &path)
{
    return QFile::encodeName(path);
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

mode_t modeOf(const QString &path)
{
    struct stat status = {};
    return ::lstat(nameOf(path).constData(), &status) == 0 ? status.st_mode & 07777 : 0;
}

QStringList entriesOf(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System
                                  | QDir::NoDotAndDotDot);
}

/*! Bytes that this process has got from read() and its relations so far; -1: not told. */
qint64 bytesRead()
{
    const auto lines = contentOf(QStringLiteral("/proc/self/io")).split('\n');
    for (const auto &line : lines) {
        if (line.startsWith("rchar: "))
            return line.mid(7).toLongLong();
    }
    return -1;
}

QStringList pathsIn(const PackageManifest &manifest)
{
    QStringList paths;
    for (const auto &file : manifest.files())
        paths.append(file.path);
    return paths;
}

} // namespace

class tst_PackageCopy : public QObject
{
    Q_OBJECT

    std::unique_ptr<PackageBuilder> m_package;
    std::unique_ptr<QTemporaryDir> m_folder;
    PackageCopyOptions m_options;
    std::atomic<bool> m_isCancelled { false };

    Made make(const QString &path) const
    {
        Made made;
        made.copy = PackageCopy::make(path, m_options, m_isCancelled, made.code, made.errorText);
        return made;
    }
    Made make() const { return make(m_package->path()); }

    QString base() const { return m_options.baseFolder; }

private Q_SLOTS:
    void init()
    {
        m_package = std::make_unique<PackageBuilder>();
        m_folder = std::make_unique<QTemporaryDir>();
        m_options = PackageCopyOptions();
        m_options.baseFolder = m_folder->filePath(QStringLiteral("base"));
        m_isCancelled = false;
    }

    void allOfThePackage()
    {
        QVERIFY(m_package->file("PackageCfg.xml", "index"));
        QVERIFY(m_package->file("unit/sub/file.bin", "abc"));
        QVERIFY(m_package->file("unit/.hidden", ""));
        QVERIFY(m_package->file(QStringLiteral("unit/gr\u00fc\u00df.bin"), "umlauts"));
        QVERIFY(QDir(m_package->path()).mkpath("empty/inner"));
        auto made = make();
        QCOMPARE(made.outcome(), QStringLiteral("copied"));

        const QString path = made.copy->path();
        QCOMPARE(contentOf(path + "/PackageCfg.xml"), QByteArray("index"));
        QCOMPARE(contentOf(path + "/unit/sub/file.bin"), QByteArray("abc"));
        QCOMPARE(contentOf(path + "/unit/.hidden"), QByteArray());
        QVERIFY(QDir(path + "/empty/inner").exists());
        const auto &manifest = made.copy->manifest();
        QCOMPARE(pathsIn(manifest),
                 QStringList({ "PackageCfg.xml", "unit/.hidden",
                               QStringLiteral("unit/gr\u00fc\u00df.bin"), "unit/sub/file.bin" }));
        QCOMPARE(manifest.folders(), QStringList({ "empty", "empty/inner", "unit", "unit/sub" }));
        QCOMPARE(manifest.totalSize(), qint64(15));
        const auto *file = manifest.find(QStringLiteral("unit/sub/file.bin"));
        QVERIFY(file);
        QCOMPARE(file->size, qint64(3));
        // As FIPS 180 has it for "abc", and for nothing.
        QCOMPARE(file->sha256.toHex(),
                 QByteArray("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
        QCOMPARE(manifest.find(QStringLiteral("unit/.hidden"))->sha256.toHex(),
                 QByteArray("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"));
        QVERIFY(!manifest.find(QStringLiteral("unit/sub")));

        made.copy.reset();
        QCOMPARE(entriesOf(base()), QStringList());
    }

    // The hash of a million times "a" is that of FIPS 180; the others are sha256sum's.
    void hashesAtTheEdgesOfBlocks_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<QByteArray>("sha256");

        QTest::newRow("a million")
            << 1'000'000
            << QByteArray("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
        QTest::newRow("small")
            << 65'536
            << QByteArray("bf718b6f653bebc184e1479f1935b8da974d701b893afcf49e701f3e2f9f9c5a");
        QTest::newRow("no longer small")
            << 65'537
            << QByteArray("008ffc88d3c96a9f307524eb361e47c5222a887fc45fa0c1fb8d429c5c23b430");
        QTest::newRow("a block")
            << 262'144
            << QByteArray("dd3dde87623d9a6b354c68c943d189c89c63652d945e7bbdf0986cae91a49521");
        QTest::newRow("a byte more")
            << 262'145
            << QByteArray("c592f4a6b099700b5050ce8bc67367f0c8f44810203124e86405c3e7b6f1a2ba");
        QTest::newRow("more blocks than are in use")
            << 10'485'760
            << QByteArray("b5eec3f68ef64d15e82dad91ff908582c5f081e61a62e22427af9bec2cd35f8d");
    }
    void hashesAtTheEdgesOfBlocks()
    {
        QFETCH(int, size);
        QFETCH(QByteArray, sha256);
        QVERIFY(m_package->file("file", QByteArray(size, 'a')));
        const auto made = make();
        QCOMPARE(made.outcome(), QStringLiteral("copied"));
        QCOMPARE(made.copy->manifest().files().at(0).sha256.toHex(), sha256);
        QVERIFY(contentOf(made.copy->path() + "/file") == QByteArray(size, 'a'));
    }

    void onlyTheOwnerMayReadTheCopy()
    {
        QVERIFY(m_package->file("unit/file"));
        QCOMPARE(::chmod(nameOf(m_package->path("unit/file")).constData(), 0444), 0);
        QCOMPARE(::chmod(nameOf(m_package->path("unit")).constData(), 0755), 0);
        const auto made = make();
        QCOMPARE(made.outcome(), QStringLiteral("copied"));
        QCOMPARE(modeOf(made.copy->path()), mode_t(0700));
        QCOMPARE(modeOf(made.copy->path() + "/unit"), mode_t(0700));
        QCOMPARE(modeOf(made.copy->path() + "/unit/file"), mode_t(0600));
    }

    void readOnlyPackageOfAnother()
    {
        QVERIFY(m_package->file("unit/file", "abc"));
        QCOMPARE(::chmod(nameOf(m_package->path("unit/file")).constData(), 0444), 0);
        QCOMPARE(::chmod(nameOf(m_package->path("unit")).constData(), 0555), 0);
        QCOMPARE(::chmod(nameOf(m_package->path()).constData(), 0555), 0);
        QVERIFY(Unprivileged::own(nameOf(m_folder->path())));
        const QByteArray outcome = Unprivileged::run([this] {
            const auto made = make();
            return made.copy ? contentOf(made.copy->path() + "/unit/file")
                             : made.outcome().toUtf8();
        });
        QCOMPARE(outcome, QByteArray("abc"));
        QCOMPARE(::chmod(nameOf(m_package->path()).constData(), 0755), 0);
        QCOMPARE(::chmod(nameOf(m_package->path("unit")).constData(), 0755), 0);
    }

    void thePackagesPathMayBeALink()
    {
        QVERIFY(m_package->file("file", "abc"));
        const QString link = m_folder->filePath(QStringLiteral("link"));
        QVERIFY(QFile::link(m_package->path(), link));
        const auto made = make(link);
        QCOMPARE(made.outcome(), QStringLiteral("copied"));
        QCOMPARE(contentOf(made.copy->path() + "/file"), QByteArray("abc"));
        QCOMPARE(make(link + QLatin1Char('/')).outcome(), QStringLiteral("copied"));
    }

    void noPackage_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("outcome"); // %1: the path

        QTest::newRow("nothing") << "nothing"
                                 << "no-package: There is no package at \"%1\".";
        QTest::newRow("no path") << "no path"
                                 << "no-package: There is no package at \"\".";
        QTest::newRow("image configuration file")
            << "file"
            << "no-package: %1 is a file. An upgrade takes the folder of a package; an image "
               "configuration file holds no firmware.";
        QTest::newRow("below a file") << "below a file"
                                      << "no-package: There is no package at \"%1\".";
        QTest::newRow("pipe") << "pipe"
                              << "no-package: %1 is no folder, as a package is.";
        QTest::newRow("device") << "device"
                                << "no-package: /dev/null is no folder, as a package is.";
        QTest::newRow("dangling link") << "dangling"
                                       << "no-package: There is no package at \"%1\".";
        QTest::newRow("loop") << "loop"
                              << "copy-failed: The package %1 cannot be read: "
                + qt_error_string(ELOOP) + ".";
    }
    void noPackage()
    {
        QFETCH(QString, kind);
        QFETCH(QString, outcome);
        QString path = m_package->path(QStringLiteral("package"));
        if (kind == QLatin1String("file")) {
            QVERIFY(m_package->file("package"));
        } else if (kind == QLatin1String("below a file")) {
            QVERIFY(m_package->file("package"));
            path += QStringLiteral("/inner");
        } else if (kind == QLatin1String("pipe")) {
            QCOMPARE(::mkfifo(nameOf(path).constData(), 0600), 0);
        } else if (kind == QLatin1String("device")) {
            path = QStringLiteral("/dev/null");
        } else if (kind == QLatin1String("dangling")) {
            QVERIFY(QFile::link(QStringLiteral("nowhere"), path));
        } else if (kind == QLatin1String("loop")) {
            QVERIFY(QFile::link(QStringLiteral("package"), path));
        } else if (kind == QLatin1String("no path")) {
            path.clear();
        }
        QCOMPARE(make(path).outcome(), outcome.contains("%1") ? outcome.arg(path) : outcome);
        QCOMPARE(entriesOf(base()), QStringList());
    }

    void onlyFilesAndFolders_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("words");

        QTest::newRow("link to a file") << "link to a file"
                                        << "a link";
        QTest::newRow("link to a folder") << "link to a folder"
                                          << "a link";
        QTest::newRow("link to its own folder") << "loop"
                                                << "a link";
        QTest::newRow("dangling link") << "dangling"
                                       << "a link";
        QTest::newRow("pipe") << "pipe"
                              << "a pipe";
        QTest::newRow("socket") << "socket"
                                << "a socket";
        QTest::newRow("device") << "device"
                                << "a device";
    }
    void onlyFilesAndFolders()
    {
        QFETCH(QString, kind);
        QFETCH(QString, words);
        QVERIFY(m_package->file("unit/a"));
        const QString path = m_package->path(QStringLiteral("unit/odd"));
        if (kind == QLatin1String("link to a file")) {
            QVERIFY(QFile::link(QStringLiteral("a"), path));
        } else if (kind == QLatin1String("link to a folder")) {
            QVERIFY(QFile::link(m_folder->path(), path));
        } else if (kind == QLatin1String("loop")) {
            QVERIFY(QFile::link(QStringLiteral("."), path));
        } else if (kind == QLatin1String("dangling")) {
            QVERIFY(QFile::link(QStringLiteral("nowhere"), path));
        } else if (kind == QLatin1String("pipe")) {
            QCOMPARE(::mkfifo(nameOf(path).constData(), 0600), 0);
        } else if (kind == QLatin1String("socket")) {
            const int end = ::socket(AF_UNIX, SOCK_STREAM, 0);
            sockaddr_un address = {};
            address.sun_family = AF_UNIX;
            qstrncpy(address.sun_path, nameOf(path).constData(), sizeof(address.sun_path));
            QCOMPARE(::bind(end, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
            ::close(end);
        } else if (::mknod(nameOf(path).constData(), S_IFCHR | 0600, ::makedev(1, 3)) != 0) {
            QSKIP("This user may not make devices.");
        }
        QCOMPARE(make().outcome(),
                 QStringLiteral("package-refused: unit/odd in the package is %1; only files and "
                                "folders are copied.")
                     .arg(words));
        QCOMPARE(entriesOf(base()), QStringList());
    }

    void namesThatAreNotInUtf8()
    {
        const QByteArray name = nameOf(m_package->path()) + "/bad\xff";
        const int file = ::open(name.constData(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        if (file < 0)
            QSKIP("This file system takes names in UTF-8 only.");
        ::close(file);
        const auto made = make();
        ::unlink(name.constData());
        QCOMPARE(made.outcome(),
                 QStringLiteral("package-refused: The name of bad\uFFFD in the package is not in "
                                "UTF-8."));
    }

    void unreadable_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("outcome");

        const QString cause = qt_error_string(EACCES);
        QTest::newRow("file") << "unit/file"
                              << "copy-failed: unit/file in the package cannot be read: " + cause
                + '.';
        QTest::newRow("folder") << "unit"
                                << "copy-failed: unit in the package cannot be read: " + cause
                + '.';
        QTest::newRow("package") << ""
                                 << "copy-failed: The package %1 cannot be read: " + cause + '.';
    }
    void unreadable()
    {
        QFETCH(QString, path);
        QFETCH(QString, outcome);
        QVERIFY(m_package->file("unit/file"));
        const QByteArray closed = nameOf(m_package->path(path));
        QCOMPARE(::chmod(nameOf(m_package->path()).constData(), 0755), 0);
        QCOMPARE(::chmod(closed.constData(), 0), 0);
        QVERIFY(Unprivileged::own(nameOf(m_folder->path())));
        const QByteArray told = Unprivileged::run([this] {
            const auto made = make();
            return (made.outcome() + entriesOf(base()).join(' ')).toUtf8();
        });
        QCOMPARE(::chmod(closed.constData(), 0755), 0);
        QCOMPARE(QString::fromUtf8(told),
                 outcome.contains("%1") ? outcome.arg(m_package->path()) : outcome);
    }

    void limits_data()
    {
        QTest::addColumn<QString>("limit");
        QTest::addColumn<QString>("refusal");

        QTest::newRow("count") << "count"
                               << "The package holds more than 3 files and folders.";
        QTest::newRow("depth") << "depth"
                               << "The folders of the package are nested more than 1 deep, at a/b.";
        QTest::newRow("path") << "path"
                              << "The path of a/b/file in the package is longer than 7 bytes.";
        QTest::newRow("size") << "size"
                              << "The files of the package have more than 8 bytes.";
    }
    void limits()
    {
        QFETCH(QString, limit);
        QFETCH(QString, refusal);
        QVERIFY(m_package->file("a/b/file", "1234"));
        QVERIFY(m_package->file("z", "12345"));
        m_options.limits = { 4, 2, 8, 9 };
        QCOMPARE(make().outcome(), QStringLiteral("copied"));
        if (limit == QLatin1String("count"))
            m_options.limits.fileCount = 3;
        else if (limit == QLatin1String("depth"))
            m_options.limits.depth = 1;
        else if (limit == QLatin1String("path"))
            m_options.limits.pathLength = 7;
        else
            m_options.limits.totalSize = 8;
        QCOMPARE(make().outcome(), QStringLiteral("package-refused: ") + refusal);
        QCOMPARE(entriesOf(base()), QStringList());
    }

    // Its hole makes it many times larger than the disk.
    void hugeSparseFile()
    {
        QVERIFY(m_package->file("file", ""));
        if (::truncate(nameOf(m_package->path("file")).constData(), off_t(1) << 40) != 0)
            QSKIP("This file system has no files of 1 TiB.");
        QCOMPARE(make().outcome(),
                 QStringLiteral("package-refused: The files of the package have more than "
                                "17179869184 bytes."));
    }

    void manyFiles()
    {
        // In memory where that can be: a busy disk takes seconds for so many names.
        const QTemporaryDir inMemory(QStringLiteral("/dev/shm/tst_packagecopy-XXXXXX"));
        const QTemporaryDir &top = inMemory.isValid() ? inMemory : *m_folder;
        const QString package = top.filePath(QStringLiteral("package"));
        m_options.baseFolder = top.filePath(QStringLiteral("base"));
        constexpr int Count = 20'000;
        for (int folder = 0; folder < Count / 1000; ++folder) {
            const QString path = QStringLiteral("%1/%2").arg(package).arg(folder);
            QVERIFY(QDir().mkpath(path));
            for (int i = 0; i < 1000; ++i) {
                const QByteArray name = nameOf(QStringLiteral("%1/%2").arg(path).arg(i));
                const int file = ::open(name.constData(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
                QVERIFY(file >= 0 && ::write(file, "x", 1) == 1 && ::close(file) == 0);
            }
        }
        auto made = make(package);
        QCOMPARE(made.outcome(), QStringLiteral("copied"));
        QCOMPARE(made.copy->manifest().files().size(), std::size_t(Count));
        QCOMPARE(made.copy->manifest().totalSize(), qint64(Count));
        QCOMPARE(contentOf(made.copy->path() + "/19/999"), QByteArray("x"));
        made.copy.reset();
        QCOMPARE(entriesOf(base()), QStringList());
    }

    void roomIsLookedAtFirst_data()
    {
        QTest::addColumn<qint64>("missing");
        QTest::addColumn<QString>("outcome"); // %1: the base

        QTest::newRow("just enough") << qint64(0) << "copied";
        QTest::newRow("a byte short")
            << qint64(1)
            << "disk-full: There is not enough room in %1: the upgrade needs 21.0 MiB, and 21.0 "
               "MiB are free.";
        QTest::newRow("nothing")
            << qint64(22'069'248)
            << "disk-full: There is not enough room in %1: the upgrade needs 21.0 MiB, and 0 bytes "
               "are free.";
        QTest::newRow("not known") << qint64(22'069'249) << "copied";
    }
    void roomIsLookedAtFirst()
    {
        QFETCH(qint64, missing);
        QFETCH(QString, outcome);
        QVERIFY(m_package->file("unit/a.dat", QByteArray(1024 * 1024, 'a')));
        QVERIFY(m_package->file("unit/b.dat", QByteArray(1024 * 512, 'b')));
        QVERIFY(m_package->file("unit/c.bin", QByteArray(1024 * 512, 'b')));
        // The package and its image, 4 MiB; the larger plain file; five entries; the margin.
        constexpr qint64 Needed = 4'194'304 + 1'048'576 + 5 * 4096 + 16'777'216 + 28'672;
        m_options.extraSpace += 28'672;
        QString asked;
        m_options.freeSpace = [&asked, missing](const QString &folder) {
            asked = folder;
            return Needed - missing;
        };
        const auto made = make();
        QVERIFY(asked.startsWith(base() + QLatin1Char('/')));
        QCOMPARE(made.outcome(), outcome.contains("%1") ? outcome.arg(base()) : outcome);
        QCOMPARE(entriesOf(base()).isEmpty(), !made.copy);
    }

    // The room that was there may be gone when it is needed.
    void fullDisk()
    {
        if (::geteuid() != 0)
            QSKIP("Only root can mount a small disk.");
        QVERIFY(m_package->file("unit/file", QByteArray(4 * 1024 * 1024, 'a')));
        QVERIFY(QDir().mkdir(base()));
        m_options.freeSpace = [](const QString &) {
            return -1;
        };
        const pid_t child = ::fork();
        if (child == 0) {
            const QByteArray path = nameOf(base());
            if (::unshare(CLONE_NEWNS) != 0
                || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
                || ::mount("small", path.constData(), "tmpfs", 0, "size=2m") != 0)
                ::_exit(2);
            const auto made = make();
            const bool isGood = made.outcome()
                    == QStringLiteral("disk-full: The package's copy cannot be written, at "
                                      "unit/file: %1.")
                           .arg(qt_error_string(ENOSPC))
                && entriesOf(base()).isEmpty();
            ::_exit(isGood ? 0 : 1);
        }
        int status = -1;
        QCOMPARE(::waitpid(child, &status, 0), child);
        if (WIFEXITED(status) && WEXITSTATUS(status) == 2)
            QSKIP("No disk can be mounted here.");
        QCOMPARE(status, 0);
    }

    void limitOfTheProcess()
    {
        QVERIFY(m_package->file("unit/file", QByteArray(2 * 1024 * 1024, 'a')));
        m_options.freeSpace = [](const QString &) {
            return -1;
        };
        const pid_t child = ::fork();
        if (child == 0) {
            const rlimit limit { 1024 * 1024, 1024 * 1024 };
            ::signal(SIGXFSZ, SIG_IGN);
            ::setrlimit(RLIMIT_FSIZE, &limit);
            const auto made = make();
            const bool isGood = made.outcome()
                    == QStringLiteral("disk-full: The package's copy cannot be written, at "
                                      "unit/file: %1.")
                           .arg(qt_error_string(EFBIG))
                && entriesOf(base()).isEmpty();
            ::_exit(isGood ? 0 : 1);
        }
        int status = -1;
        QCOMPARE(::waitpid(child, &status, 0), child);
        QCOMPARE(status, 0);
    }

    void baseThatCannotBeUsed()
    {
        QVERIFY(m_package->file("file"));
        m_options.baseFolder = m_package->path("file");
        QCOMPARE(make().outcome(),
                 QStringLiteral("copy-failed: The folder %1 cannot be used: %2.")
                     .arg(base(), qt_error_string(ENOTDIR)));
    }

    void cancelledBefore()
    {
        QVERIFY(m_package->file("file"));
        m_isCancelled = true;
        QCOMPARE(make().outcome(),
                 QStringLiteral("interrupted: The copy of the package was interrupted."));
        QCOMPARE(entriesOf(base()), QStringList());
    }

    void cancelledWhileCopying()
    {
        QVERIFY(m_package->file("file", QByteArray(8 * 1024 * 1024, 'a')));
        qint64 last = 0;
        m_options.progress = [this, &last](qint64 done, qint64) {
            last = done;
            m_isCancelled = done >= 2 * 1024 * 1024;
        };
        QCOMPARE(make().outcome(),
                 QStringLiteral("interrupted: The copy of the package was interrupted."));
        QCOMPARE(last, qint64(2 * 1024 * 1024));
        QCOMPARE(entriesOf(base()), QStringList());
    }

    // With shared blocks or without: what is copied is hashed on its way, and not read again for it.
    void eachFileIsReadOnce()
    {
        constexpr int Size = 5 * 1024 * 1024 + 1;
        QVERIFY(m_package->file("one.bin", QByteArray(Size, '1')));
        QVERIFY(m_package->file("two.bin", QByteArray(Size, '2')));
        const qint64 before = bytesRead();
        if (before < 0)
            QSKIP("The system does not tell how much a process reads.");

        const auto made = make();

        const qint64 read = bytesRead() - before;
        QCOMPARE(made.outcome(), QStringLiteral("copied"));
        QVERIFY2(read >= 2 * Size && read < 2 * Size + 64 * 1024,
                 qPrintable(QString::number(read)));
    }

    void progressGrowsToTheWhole()
    {
        QVERIFY(m_package->file("a", QByteArray(3 * 1024 * 1024, 'a')));
        QVERIFY(m_package->file("b", "123"));
        QVector<QPair<qint64, qint64>> told;
        m_options.progress = [&told](qint64 done, qint64 total) {
            told.append(qMakePair(done, total));
        };
        QCOMPARE(make().outcome(), QStringLiteral("copied"));
        constexpr qint64 Total = 3 * 1024 * 1024 + 3;
        const QVector<QPair<qint64, qint64>> expected {
            { 1'048'576, Total }, { 2'097'152, Total }, { 3'145'728, Total }, { Total, Total }
        };
        QCOMPARE(told, expected);
    }

    void changedWhileCopied_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("path");

        QTest::newRow("written") << "written"
                                 << "a";
        QTest::newRow("longer") << "longer"
                                << "a";
        QTest::newRow("shorter") << "shorter"
                                 << "a";
        QTest::newRow("next one replaced") << "replaced"
                                           << "b";
        QTest::newRow("next one removed") << "removed"
                                          << "b";
        QTest::newRow("next one is a link now") << "link"
                                                << "b";
        QTest::newRow("next one is a pipe now") << "pipe"
                                                << "b";
        QTest::newRow("next one is a folder now") << "folder"
                                                  << "b";
    }
    void changedWhileCopied()
    {
        QFETCH(QString, change);
        QFETCH(QString, path);
        QVERIFY(m_package->file("a", QByteArray(3 * 1024 * 1024, 'a')));
        QVERIFY(m_package->file("b", "1234"));
        QVERIFY(m_package->file("other", "1234"));
        const QString a = m_package->path("a");
        const QString b = m_package->path("b");
        bool isChanged = false;
        bool isDone = false;
        m_options.progress = [&](qint64, qint64) {
            if (std::exchange(isDone, true))
                return;
            if (change == QLatin1String("written")) {
                // Another time, whatever the clock of the file system has passed since.
                const timespec times[2] = { { 1, 0 }, { 1, 0 } };
                isChanged = ::utimensat(AT_FDCWD, nameOf(a).constData(), times, 0) == 0;
            } else if (change == QLatin1String("longer")) {
                isChanged = QFile::resize(a, 3 * 1024 * 1024 + 1);
            } else if (change == QLatin1String("shorter")) {
                isChanged = QFile::resize(a, 2 * 1024 * 1024);
            } else if (change == QLatin1String("replaced")) {
                isChanged =
                    ::rename(nameOf(m_package->path("other")).constData(), nameOf(b).constData())
                    == 0;
            } else if (QFile::remove(b)) {
                isChanged = change == QLatin1String("removed")
                    || (change == QLatin1String("link") && QFile::link("other", b))
                    || (change == QLatin1String("pipe")
                        && ::mkfifo(nameOf(b).constData(), 0600) == 0)
                    || (change == QLatin1String("folder") && QDir().mkdir(b));
            }
        };
        const auto made = make();
        QVERIFY(isChanged);
        QCOMPARE(made.outcome(),
                 QStringLiteral("copy-failed: %1 in the package has changed while it was copied.")
                     .arg(path));
        QCOMPARE(entriesOf(base()), QStringList());
    }

    // A folder that becomes a link to another would bring in other files of the user.
    void folderReplacedByALink()
    {
        QVERIFY(m_package->file("a", QByteArray(2 * 1024 * 1024, 'a')));
        QVERIFY(m_package->file("unit/file", "1234"));
        bool isChanged = false;
        m_options.progress = [&](qint64, qint64) {
            isChanged = isChanged
                || (QDir().rename(m_package->path("unit"), m_folder->filePath("moved"))
                    && QFile::link(m_folder->filePath("moved"), m_package->path("unit")));
        };
        QCOMPARE(make().outcome(),
                 QStringLiteral("copy-failed: The folder unit of the package cannot be read any "
                                "more: %1.")
                     .arg(qt_error_string(ENOTDIR)));
        QVERIFY(isChanged);
    }

    void leftoversAreSwept()
    {
        QVERIFY(m_package->file("file"));
        const pid_t child = ::fork();
        if (child == 0) {
            const auto made = make();
            ::kill(::getpid(), made.copy ? SIGKILL : SIGTERM);
        }
        int status = 0;
        QCOMPARE(::waitpid(child, &status, 0), child);
        QVERIFY(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
        QCOMPARE(entriesOf(base()).size(), 2);
        auto made = make();
        QCOMPARE(made.outcome(), QStringLiteral("copied"));
        QCOMPARE(entriesOf(base()).size(), 2);
        made.copy.reset();
        QCOMPARE(entriesOf(base()), QStringList());
    }

    void twoCopiesAtOnce()
    {
        QVERIFY(m_package->file("file"));
        auto first = make();
        const auto second = make();
        QCOMPARE(first.outcome(), QStringLiteral("copied"));
        QCOMPARE(second.outcome(), QStringLiteral("copied"));
        first.copy.reset();
        QCOMPARE(contentOf(second.copy->path() + "/file"), QByteArray("content"));
    }

    void leftToAWorker()
    {
        QVERIFY(m_package->file("file"));
        auto made = make();
        QCOMPARE(made.outcome(), QStringLiteral("copied"));
        const int inherited = ::dup(made.copy->lockDescriptor());
        const QString path = made.copy->path();
        made.copy->leave();
        made.copy.reset();
        QCOMPARE(make().outcome(), QStringLiteral("copied"));
        QCOMPARE(contentOf(path + "/file"), QByteArray("content"));
        ::close(inherited);
        QCOMPARE(make().outcome(), QStringLiteral("copied"));
        QCOMPARE(entriesOf(base()), QStringList());
    }

    void digestTellsPackagesApart()
    {
        const QByteArray hash(32, 'h');
        const std::vector<PackageFile> files { { "b", 2, hash }, { "a", 1, hash } };
        const PackageManifest manifest(files, { "x" });
        QCOMPARE(manifest.digest().toHex(),
                 QByteArray("8deaf5d06efe8a71aa0d92e57bf37ef55571899dbcda23e3118ae73cf1296fb8"));
        QCOMPARE(PackageManifest({ files[1], files[0] }, { "x" }).digest(), manifest.digest());
        QVERIFY(PackageManifest(files, {}).digest() != manifest.digest());
        QVERIFY(PackageManifest({ files[0] }, { "x" }).digest() != manifest.digest());
        QVERIFY(PackageManifest({ { "b", 3, hash }, files[1] }, { "x" }).digest()
                != manifest.digest());
        QVERIFY(PackageManifest({ { "b", 2, QByteArray(32, 'i') }, files[1] }, { "x" }).digest()
                != manifest.digest());
    }

    // UTF-16 would have the last before the one in front of it.
    void manifestIsSortedByBytes()
    {
        const PackageManifest manifest({ { QString::fromUtf8("\xF0\x90\x80\x80"), 0, {} },
                                         { QString::fromUtf8("\xEF\xBF\xBD"), 0, {} },
                                         { "a/b", 0, {} },
                                         { "a.b", 0, {} } },
                                       {});
        QCOMPARE(pathsIn(manifest),
                 QStringList({ "a.b", "a/b", QString::fromUtf8("\xEF\xBF\xBD"),
                               QString::fromUtf8("\xF0\x90\x80\x80") }));
        QCOMPARE(manifest.find("a/b"), &manifest.files().at(1));
    }
};

QTEST_GUILESS_MAIN(tst_PackageCopy)
#include "tst_packagecopy.moc"
