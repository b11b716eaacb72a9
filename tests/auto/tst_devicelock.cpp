#include "device/devicelock.h"

#include "support/unprivileged.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Velmar::Host;

namespace {

DeviceFacts factsOf(quint16 modelId, const char *serial, const char *host = "wall")
{
    DeviceFacts facts;
    facts.address = { QString::fromLatin1(host), 9720 };
    facts.modelId = modelId;
    facts.serial = QString::fromLatin1(serial);
    return facts;
}

mode_t modeOf(const QString &path)
{
    struct stat status = {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777 : 0;
}

} // namespace

class tst_DeviceLock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_root = std::make_unique<QTemporaryDir>();
        QVERIFY(m_root->isValid());
        qputenv("XDG_CACHE_HOME", QFile::encodeName(m_root->filePath(QStringLiteral("cache"))));
        qunsetenv("XDG_RUNTIME_DIR");
    }

    void oneRunHasADevice()
    {
        QString errorText;
        bool isHeld = false;
        auto first = DeviceLock::take(factsOf(0x7701, "S8-0001"), errorText, isHeld);
        QVERIFY2(first, qPrintable(errorText));
        QVERIFY(!isHeld);
        QVERIFY(!DeviceLock::take(factsOf(0x7701, "S8-0001"), errorText, isHeld));
        QVERIFY(isHeld);
        QCOMPARE(errorText, QStringLiteral("Another run on this machine has the device"));
        first.reset();
        QVERIFY(DeviceLock::take(factsOf(0x7701, "S8-0001"), errorText, isHeld));
        QVERIFY(!isHeld);
    }

    void secondDevice_data()
    {
        QTest::addColumn<int>("modelId");
        QTest::addColumn<QByteArray>("serial");
        QTest::addColumn<QByteArray>("host");
        QTest::addColumn<bool>("isHeld");

        QTest::newRow("other address")
            << 0x7701 << QByteArray("S8-0001") << QByteArray("hall") << true;
        QTest::newRow("other serial")
            << 0x7701 << QByteArray("S8-0002") << QByteArray("wall") << false;
        QTest::newRow("other model")
            << 0x7702 << QByteArray("S8-0001") << QByteArray("wall") << false;
        QTest::newRow("serial like a path")
            << 0x7701 << QByteArray("../../S8-0001") << QByteArray("wall") << false;
        QTest::newRow("no serial") << 0x7701 << QByteArray() << QByteArray("wall") << false;
    }
    void secondDevice()
    {
        QFETCH(int, modelId);
        QFETCH(QByteArray, serial);
        QFETCH(QByteArray, host);
        QString errorText;
        bool isHeld = false;
        const auto first = DeviceLock::take(factsOf(0x7701, "S8-0001"), errorText, isHeld);
        const auto second = DeviceLock::take(
            factsOf(static_cast<quint16>(modelId), serial.constData(), host.constData()), errorText,
            isHeld);
        QTEST(isHeld, "isHeld");
        QCOMPARE(second == nullptr, isHeld);
    }

    void devicesWithoutSerialAreToldApartByAddress()
    {
        QString errorText;
        bool isHeld = false;
        const auto first = DeviceLock::take(factsOf(0x7701, "", "wall"), errorText, isHeld);
        QVERIFY(first);
        QVERIFY(DeviceLock::take(factsOf(0x7701, "", "hall"), errorText, isHeld));
        QVERIFY(!DeviceLock::take(factsOf(0x7701, "", "wall"), errorText, isHeld));
        QVERIFY(isHeld);
    }

    void lockLivesInAProcessThatInheritsIt()
    {
        QString errorText;
        bool isHeld = false;
        auto lock = DeviceLock::take(factsOf(0x7701, "S8-0001"), errorText, isHeld);
        QVERIFY(lock);
        int gate[2] = {};
        QCOMPARE(::pipe(gate), 0);
        const auto child = ::fork();
        if (child == 0) { // waits for the end of the pipe, with the descriptor
            ::close(gate[1]);
            char byte = 0;
            ::_exit(::read(gate[0], &byte, 1) == 0 ? 0 : 1);
        }
        QVERIFY(child > 0);
        ::close(gate[0]);
        lock.reset();
        QVERIFY(!DeviceLock::take(factsOf(0x7701, "S8-0001"), errorText, isHeld));
        QVERIFY(isHeld);
        ::close(gate[1]);
        int status = -1;
        QCOMPARE(::waitpid(child, &status, 0), child);
        QCOMPARE(status, 0);
        QVERIFY(DeviceLock::take(factsOf(0x7701, "S8-0001"), errorText, isHeld));
    }

    void descriptorIsClosedOnExec()
    {
        QString errorText;
        bool isHeld = false;
        const auto lock = DeviceLock::take(factsOf(0x7701, "S8-0001"), errorText, isHeld);
        QVERIFY(lock);
        QVERIFY((::fcntl(lock->descriptor(), F_GETFD) & FD_CLOEXEC) != 0);
    }

    void folderIsTheOwnersAlone()
    {
        const auto folder = m_root->filePath(QStringLiteral("cache/velmar-upgrade/locks"));
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(QFile::setPermissions(folder,
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
                                          | QFile::ReadOther | QFile::WriteOther
                                          | QFile::ExeOther));
        QString errorText;
        bool isHeld = false;
        const auto lock = DeviceLock::take(factsOf(0x7701, "S8-0001"), errorText, isHeld);
        QVERIFY2(lock, qPrintable(errorText));
        QCOMPARE(int(modeOf(folder)), 0700);
        const auto files = QDir(folder).entryList(QDir::Files);
        QCOMPARE(files.size(), 1);
        QVERIFY2(QRegularExpression(QStringLiteral("^[0-9a-f]{64}\\.lock$"))
                     .match(files.constFirst())
                     .hasMatch(),
                 qPrintable(files.constFirst()));
        QCOMPARE(int(modeOf(folder + QLatin1Char('/') + files.constFirst())), 0600);
    }

    void placeThatIsNone_data()
    {
        QTest::addColumn<QString>("kind");

        QTest::newRow("folder is a link") << "link";
        QTest::newRow("folder is a file") << "file";
        QTest::newRow("lock file is a link") << "linked lock";
        QTest::newRow("lock file is a folder") << "folder";
    }
    void placeThatIsNone()
    {
        QFETCH(QString, kind);
        const auto folder = m_root->filePath(QStringLiteral("locks"));
        const auto elsewhere = m_root->filePath(QStringLiteral("elsewhere"));
        QVERIFY(QDir().mkpath(elsewhere));
        // The first 8 bytes of the hash of "key" are 2c70e12b7a0646f9.
        const auto lockFile = folder
            + QStringLiteral("/2c70e12b7a0646f92279f427c7b38e7334d8e5389cff167a1dc30e73f826b683"
                             ".lock");
        if (kind == QLatin1String("link")) {
            QVERIFY(QFile::link(elsewhere, folder));
        } else if (kind == QLatin1String("file")) {
            QFile file(folder);
            QVERIFY(file.open(QIODevice::WriteOnly));
        } else if (kind == QLatin1String("linked lock")) {
            QVERIFY(QDir().mkpath(folder));
            QVERIFY(QFile::link(elsewhere + QStringLiteral("/file"), lockFile));
        } else {
            QVERIFY(QDir().mkpath(lockFile));
        }
        QString errorText;
        bool isHeld = true;
        QVERIFY(!DeviceLock::take("key", folder, errorText, isHeld));
        QVERIFY(!isHeld);
        QVERIFY2(
            errorText.startsWith(QStringLiteral("The device cannot be locked in %1: ").arg(folder)),
            qPrintable(errorText));
        QVERIFY(QDir(elsewhere).isEmpty());
    }

    void readOnlyCacheSendsTheLockToTheRuntimeFolder()
    {
        const auto cache = m_root->filePath(QStringLiteral("cache"));
        const auto runtime = m_root->filePath(QStringLiteral("runtime"));
        for (const auto &folder : { m_root->path(), cache, runtime }) {
            QVERIFY(QDir().mkpath(folder));
            QVERIFY(Unprivileged::own(QFile::encodeName(folder)));
        }
        QVERIFY(QFile::setPermissions(cache, QFile::ReadOwner | QFile::ExeOwner));
        const auto seen = Unprivileged::run([&runtime] {
            const auto facts = factsOf(0x7701, "S8-0001");
            QString errorText;
            bool isHeld = false;
            QByteArray steps;
            if (!DeviceLock::take(facts, errorText, isHeld) && !isHeld)
                steps += "no place;";
            qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
            const auto lock = DeviceLock::take(facts, errorText, isHeld);
            if (lock)
                steps += "taken;";
            if (!DeviceLock::take(facts, errorText, isHeld) && isHeld)
                steps += "held;";
            return steps;
        });
        QCOMPARE(seen, QByteArray("no place;taken;held;"));
        const QDir locks(runtime + QStringLiteral("/velmar-upgrade"));
        QCOMPARE(locks.entryList(QDir::Files).size(), 1);
    }

private:
    std::unique_ptr<QTemporaryDir> m_root;
};

QTEST_GUILESS_MAIN(tst_DeviceLock)
#include "tst_devicelock.moc"
