#include "process/privatefolder.h"

#include "support/unprivileged.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Velmar::Host;

namespace {

std::unique_ptr<PrivateFolder> makeFolder(const QString &base)
{
    int errorNumber = 0;
    QString errorText;
    auto folder = PrivateFolder::make(base, errorNumber, errorText);
    if (!folder)
        qWarning().noquote() << errorText;
    return folder;
}

mode_t modeOf(const QString &path)
{
    struct stat status = {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777 : 0;
}

bool write(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write("content") == 7;
}

/*! A process that makes a folder in a base, with a file and a folder in it, and is killed. */
bool leaveBehind(const QString &base)
{
    const pid_t child = ::fork();
    if (child == 0) {
        const auto folder = makeFolder(base);
        const bool isFilled = folder && QDir(folder->path()).mkpath(QStringLiteral("package/unit"))
            && write(folder->path() + QStringLiteral("/package/unit/file"));
        ::kill(::getpid(), isFilled ? SIGKILL : SIGTERM);
    }
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFSIGNALED(status)
        && WTERMSIG(status) == SIGKILL;
}

} // namespace

class tst_PrivateFolder : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_top;
    QString m_base;

    QStringList inBase() const
    {
        return QDir(m_base).entryList(QDir::AllEntries | QDir::Hidden | QDir::System
                                      | QDir::NoDotAndDotDot);
    }

private Q_SLOTS:
    void init()
    {
        m_top = std::make_unique<QTemporaryDir>();
        m_base = m_top->filePath(QStringLiteral("cache/program/base"));
    }

    void onlyTheOwnerMayEnter()
    {
        const auto folder = makeFolder(m_base);
        QVERIFY(folder);
        QCOMPARE(modeOf(folder->path()), mode_t(0700));
        QCOMPARE(modeOf(m_base), mode_t(0700));
        QCOMPARE(modeOf(m_top->filePath(QStringLiteral("cache"))), mode_t(0700));
        QCOMPARE(QFileInfo(folder->path()).path(), m_base);
        struct stat byPath = {};
        struct stat byDescriptor = {};
        QCOMPARE(::stat(QFile::encodeName(folder->path()).constData(), &byPath), 0);
        QCOMPARE(::fstat(folder->descriptor(), &byDescriptor), 0);
        QCOMPARE(byPath.st_ino, byDescriptor.st_ino);
    }

    void openBaseIsClosedToOthers()
    {
        QVERIFY(QDir().mkpath(m_base));
        QCOMPARE(::chmod(QFile::encodeName(m_base).constData(), 0755), 0);
        QVERIFY(makeFolder(m_base));
        QCOMPARE(modeOf(m_base), mode_t(0700));
    }

    void goesWithTheObject()
    {
        auto folder = makeFolder(m_base);
        QVERIFY(folder);
        QVERIFY(QDir(folder->path()).mkpath(QStringLiteral("a/b/c")));
        QVERIFY(write(folder->path() + QStringLiteral("/a/b/file")));
        QVERIFY(write(folder->path() + QStringLiteral("/.hidden")));
        folder.reset();
        QCOMPARE(inBase(), QStringList());
    }

    void removalFollowsNoLink()
    {
        QVERIFY(QDir(m_top->path()).mkdir(QStringLiteral("other")));
        const QString other = m_top->filePath(QStringLiteral("other"));
        QVERIFY(write(other + QStringLiteral("/file")));
        auto folder = makeFolder(m_base);
        QVERIFY(folder);
        QVERIFY(QFile::link(other, folder->path() + QStringLiteral("/folder")));
        QVERIFY(
            QFile::link(other + QStringLiteral("/file"), folder->path() + QStringLiteral("/file")));
        folder.reset();
        QCOMPARE(inBase(), QStringList());
        QVERIFY(QFile::exists(other + QStringLiteral("/file")));
    }

    // What took the folder's place while it was in use is not the folder.
    void removalFollowsNoLinkInPlaceOfTheFolder()
    {
        QVERIFY(QDir(m_top->path()).mkdir(QStringLiteral("other")));
        const QString other = m_top->filePath(QStringLiteral("other"));
        QVERIFY(write(other + QStringLiteral("/file")));
        auto folder = makeFolder(m_base);
        QVERIFY(folder);
        QVERIFY(QDir().rmdir(folder->path()));
        QVERIFY(QFile::link(other, folder->path()));
        folder.reset();
        QVERIFY(QFile::exists(other + QStringLiteral("/file")));
    }

    void sweepLeavesLiveFolders()
    {
        const auto first = makeFolder(m_base);
        const auto second = makeFolder(m_base);
        QVERIFY(first && second);
        QVERIFY(first->path() != second->path());
        QCOMPARE(PrivateFolder::sweep(m_base), 0);
        QVERIFY(QDir(first->path()).exists());
        QVERIFY(QDir(second->path()).exists());
    }

    void sweepRemovesWhatKilledProcessesLeft()
    {
        QVERIFY(leaveBehind(m_base));
        QVERIFY(leaveBehind(m_base));
        const auto live = makeFolder(m_base);
        QVERIFY(live);
        QCOMPARE(inBase().size(), 6); // three folders and their locks
        QCOMPARE(PrivateFolder::sweep(m_base), 2);
        QCOMPARE(inBase().size(), 2);
        QVERIFY(QDir(live->path()).exists());
        QCOMPARE(PrivateFolder::sweep(m_base), 0);
    }

    void sweepRemovesALockWithoutFolder()
    {
        QVERIFY(QDir().mkpath(m_base));
        QVERIFY(write(m_base + QStringLiteral("/0123456789abcdef0123456789abcdef.lock")));
        QCOMPARE(PrivateFolder::sweep(m_base), 1);
        QCOMPARE(inBase(), QStringList());
    }

    void sweepLeavesOtherThings_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("isFolder");

        QTest::newRow("file") << "notes.lock" << false;
        QTest::newRow("folder without lock") << "0123456789abcdef0123456789abcdef" << true;
        QTest::newRow("folder with a lock's name")
            << "0123456789abcdef0123456789abcdef.lock" << true;
        QTest::newRow("capital digits") << "0123456789ABCDEF0123456789ABCDEF.lock" << false;
        QTest::newRow("no digits") << "0123456789abcdef0123456789abcdeg.lock" << false;
        QTest::newRow("digit too many") << "0123456789abcdef0123456789abcdef0.lock" << false;
    }
    void sweepLeavesOtherThings()
    {
        QFETCH(QString, name);
        QFETCH(bool, isFolder);
        QVERIFY(QDir().mkpath(m_base));
        const QString path = m_base + QLatin1Char('/') + name;
        QVERIFY(isFolder ? QDir().mkdir(path) : write(path));
        QCOMPARE(PrivateFolder::sweep(m_base), 0);
        QCOMPARE(inBase(), QStringList(name));
    }

    void sweepFollowsNoLink()
    {
        QVERIFY(QDir().mkpath(m_base));
        QVERIFY(QDir(m_top->path()).mkdir(QStringLiteral("other")));
        const QString other = m_top->filePath(QStringLiteral("other"));
        QVERIFY(write(other + QStringLiteral("/file")));
        const QString name = m_base + QStringLiteral("/0123456789abcdef0123456789abcdef");
        QVERIFY(write(name + QStringLiteral(".lock")));
        QVERIFY(QFile::link(other, name));
        QCOMPARE(PrivateFolder::sweep(m_base), 1);
        QVERIFY(QFile::exists(other + QStringLiteral("/file")));
        QVERIFY(QFile::link(other + QStringLiteral("/file"), name + QStringLiteral(".lock")));
        QVERIFY(QDir().mkdir(name));
        QCOMPARE(PrivateFolder::sweep(m_base), 0);
        QVERIFY(QDir(name).exists());
        QVERIFY(QFile::exists(other + QStringLiteral("/file")));
    }

    void sweepOfAPipeDoesNotWait()
    {
        QVERIFY(QDir().mkpath(m_base));
        const QString path = m_base + QStringLiteral("/0123456789abcdef0123456789abcdef.lock");
        QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        QCOMPARE(PrivateFolder::sweep(m_base), 1);
        QVERIFY(!QFile::exists(path));
    }

    void sweepOfNoBase()
    {
        QCOMPARE(PrivateFolder::sweep(m_base), 0);
        QVERIFY(!QFile::exists(m_top->filePath(QStringLiteral("cache"))));
    }

    // As a worker does that goes on without the host.
    void whoInheritsTheLockKeepsTheFolder()
    {
        auto folder = makeFolder(m_base);
        QVERIFY(folder);
        const QString path = folder->path();
        const int inherited = ::dup(folder->lockDescriptor());
        QVERIFY(inherited >= 0);
        folder->leave();
        folder.reset();
        QCOMPARE(PrivateFolder::sweep(m_base), 0);
        QVERIFY(QDir(path).exists());
        ::close(inherited);
        QCOMPARE(PrivateFolder::sweep(m_base), 1);
        QVERIFY(!QDir(path).exists());
    }

    void descriptorsAreClosedOnExec()
    {
        const auto folder = makeFolder(m_base);
        QVERIFY(folder);
        QVERIFY(::fcntl(folder->descriptor(), F_GETFD) & FD_CLOEXEC);
        QVERIFY(::fcntl(folder->lockDescriptor(), F_GETFD) & FD_CLOEXEC);
    }

    void theWayMayLeadOverLinks()
    {
        QVERIFY(QDir(m_top->path()).mkdir(QStringLiteral("disk")));
        QVERIFY(QFile::link(m_top->filePath(QStringLiteral("disk")),
                            m_top->filePath(QStringLiteral("cache"))));
        const auto folder = makeFolder(m_base);
        QVERIFY(folder);
        QVERIFY(QFile::exists(m_top->filePath(QStringLiteral("disk/program/base"))));
    }

    void basesThatCannotBeUsed_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("expected");

        QTest::newRow("link") << "link" << ENOTDIR;
        QTest::newRow("file") << "file" << ENOTDIR;
        QTest::newRow("file on the way") << "file on the way" << ENOTDIR;
        QTest::newRow("loop on the way") << "loop" << ELOOP;
    }
    void basesThatCannotBeUsed()
    {
        QFETCH(QString, kind);
        QFETCH(int, expected);
        const QString cache = m_top->filePath(QStringLiteral("cache"));
        if (kind == QLatin1String("link")) {
            QVERIFY(QDir(m_top->path()).mkpath(QStringLiteral("cache/program/other")));
            QVERIFY(QFile::link(QStringLiteral("other"), m_base));
        } else if (kind == QLatin1String("file")) {
            QVERIFY(QDir(m_top->path()).mkpath(QStringLiteral("cache/program")));
            QVERIFY(write(m_base));
        } else if (kind == QLatin1String("loop")) {
            QVERIFY(QFile::link(QStringLiteral("cache"), cache));
        } else {
            QVERIFY(write(cache));
        }
        int errorNumber = 0;
        QString errorText;
        QVERIFY(!PrivateFolder::make(m_base, errorNumber, errorText));
        QCOMPARE(errorNumber, expected);
        QCOMPARE(errorText,
                 QStringLiteral("The folder %1 cannot be used: %2.")
                     .arg(m_base, qt_error_string(expected)));
        QCOMPARE(PrivateFolder::sweep(m_base), 0);
    }

    void anothersBase()
    {
        if (::geteuid() != 0)
            QSKIP("Only root can make another user's folder.");
        QVERIFY(QDir().mkpath(m_base));
        QVERIFY(Unprivileged::own(QFile::encodeName(m_base)));
        QVERIFY(write(m_base + QStringLiteral("/0123456789abcdef0123456789abcdef.lock")));
        int errorNumber = 0;
        QString errorText;
        QVERIFY(!PrivateFolder::make(m_base, errorNumber, errorText));
        QCOMPARE(errorNumber, EPERM);
        QCOMPARE(PrivateFolder::sweep(m_base), 0);
        QCOMPARE(inBase().size(), 1);
    }

    void readOnlyParent()
    {
        QVERIFY(Unprivileged::own(QFile::encodeName(m_top->path())));
        QCOMPARE(::chmod(QFile::encodeName(m_top->path()).constData(), 0500), 0);
        const QByteArray told = Unprivileged::run([this] {
            int errorNumber = 0;
            QString errorText;
            PrivateFolder::make(m_base, errorNumber, errorText);
            return QByteArray::number(errorNumber);
        });
        QCOMPARE(told, QByteArray::number(EACCES));
    }

    void cacheFolders_data()
    {
        QTest::addColumn<QByteArray>("cacheHome");
        QTest::addColumn<QString>("folder");

        QTest::newRow("set") << QByteArray("/var/cache/me")
                             << "/var/cache/me/velmar-upgrade/packages";
        QTest::newRow("not set") << QByteArray() << "/home/me/.cache/velmar-upgrade/packages";
        QTest::newRow("relative") << QByteArray("cache")
                                  << "/home/me/.cache/velmar-upgrade/packages";
    }
    void cacheFolders()
    {
        QFETCH(QByteArray, cacheHome);
        QFETCH(QString, folder);
        qputenv("HOME", "/home/me");
        qputenv("XDG_CACHE_HOME", cacheHome);
        QCOMPARE(cacheFolder(QStringLiteral("packages")), folder);
    }

    // Makers and sweepers at once: no live folder is ever swept, and nothing is left at the end.
    void makersAndSweepersAtOnce()
    {
        QVERIFY(makeFolder(m_base));
        std::vector<pid_t> children;
        for (int i = 0; i < 4; ++i) {
            const pid_t child = ::fork();
            if (child == 0) {
                bool isGood = true;
                for (int round = 0; round < 200 && isGood; ++round) {
                    const auto folder = makeFolder(m_base);
                    PrivateFolder::sweep(m_base);
                    isGood = folder && write(folder->path() + QStringLiteral("/file"));
                }
                ::_exit(isGood ? 0 : 1);
            }
            children.push_back(child);
        }
        for (const pid_t child : children) {
            int status = -1;
            QCOMPARE(::waitpid(child, &status, 0), child);
            QCOMPARE(status, 0);
        }
        PrivateFolder::sweep(m_base);
        QCOMPARE(inBase(), QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_PrivateFolder)
#include "tst_privatefolder.moc"
