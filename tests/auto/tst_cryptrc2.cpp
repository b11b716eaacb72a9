#include "pendingfile.h"
#include "rc2cbc.h"
#include "support/unprivileged.h"

#include <tzcryptrc2/convertfile.h>
#include <tzcryptrc2/cryptkey.h>
#include <tzcryptrc2/cryptrc2.h>

#include <QtTest>

#include <QFile>
#include <QTemporaryDir>

#include <csignal>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using Result = TZ::ConvertOutcome::Result;
using TZ::Internal::PendingFile;
using TZ::Internal::Rc2Cbc;

// "The quick brown fox jumps over the lazy dog" under the demonstration key, made with OpenSSL's
// rc2-cbc and its HMAC.
const char EncipheredPangram[] = "5652433201008000" // magic, version, 128 bits
                                 "0102030405060708" // initial vector
                                 "3234f6e505d0cd3381c2c3dd1c1dbbded5ed72c5177b3c55"
                                 "4fa5a8ecf790e417e683bec59401dcc7027aa14aaf1d621b"
                                 "212f34a90ef20e384fb813d4375cb9feee212422abcc35cb6b1df34645e68b9f";
const char Pangram[] = "The quick brown fox jumps over the lazy dog";

QByteArray hex(const char *digits)
{
    return QByteArray::fromHex(digits);
}

// Bytes of every value in an order that no block repeats.
QByteArray firmware(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = 0x2545F491;
    for (char &byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = char(state >> 24);
    }
    return bytes;
}

/*! While it lives, a file of this process cannot grow beyond the limit, as on a full disk. */
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        m_formerHandler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_former);
        const rlimit limit { bytes, m_former.rlim_max };
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_former);
        std::signal(SIGXFSZ, m_formerHandler);
    }
    Q_DISABLE_COPY(FileSizeLimit)

private:
    rlimit m_former {};
    void (*m_formerHandler)(int) = SIG_DFL;
};

} // namespace

class tst_CryptRc2 : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_folder.reset(new QTemporaryDir);
        QVERIFY(m_folder->isValid());
        QVERIFY(TZ::setCryptKey(TZ::demonstrationCryptKey()));
    }

    // The test vectors of RFC 2268, section 5: one block under an initial vector of zeros.
    void blockCipher_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<int>("effectiveBits");
        QTest::addColumn<QByteArray>("plain");
        QTest::addColumn<QByteArray>("cipher");

        QTest::newRow("8 bytes, 63 bits")
            << hex("0000000000000000") << 63 << hex("0000000000000000") << hex("ebb773f993278eff");
        QTest::newRow("8 bytes, 64 bits, ones")
            << hex("ffffffffffffffff") << 64 << hex("ffffffffffffffff") << hex("278b27e42e2f0d49");
        QTest::newRow("8 bytes, 64 bits")
            << hex("3000000000000000") << 64 << hex("1000000000000001") << hex("30649edf9be7d2c2");
        QTest::newRow("1 byte, 64 bits")
            << hex("88") << 64 << hex("0000000000000000") << hex("61a8a244adacccf0");
        QTest::newRow("7 bytes, 64 bits")
            << hex("88bca90e90875a") << 64 << hex("0000000000000000") << hex("6ccf4308974c267f");
        QTest::newRow("16 bytes, 64 bits") << hex("88bca90e90875a7f0f79c384627bafb2") << 64
                                           << hex("0000000000000000") << hex("1a807d272bbe5db1");
        QTest::newRow("16 bytes, 128 bits") << hex("88bca90e90875a7f0f79c384627bafb2") << 128
                                            << hex("0000000000000000") << hex("2269552ab0f85ca6");
        QTest::newRow("33 bytes, 129 bits")
            << hex("88bca90e90875a7f0f79c384627bafb216f80a6f85920584c42fceb0be255daf1e") << 129
            << hex("0000000000000000") << hex("5b78d3a43dfff1f1");
    }
    void blockCipher()
    {
        QFETCH(QByteArray, key);
        QFETCH(int, effectiveBits);
        QFETCH(QByteArray, plain);
        QFETCH(QByteArray, cipher);
        QByteArray result(plain.size(), '\0');

        Rc2Cbc({ key, effectiveBits }, {}).encrypt(plain.constData(), result.data(), 8);
        QCOMPARE(result, cipher);
        Rc2Cbc({ key, effectiveBits }, {}).decrypt(cipher.constData(), result.data(), 8);
        QCOMPARE(result, plain);
    }

    void chainGoesOnFromCallToCall()
    {
        const QByteArray body = hex(EncipheredPangram).mid(16, 48);
        Rc2Cbc cipher(TZ::demonstrationCryptKey(), { 1, 2, 3, 4, 5, 6, 7, 8 });
        QByteArray plain(48, '\0');

        cipher.decrypt(body.constData(), plain.data(), 8);
        cipher.decrypt(body.constData() + 8, plain.data() + 8, 32);
        cipher.decrypt(body.constData() + 40, plain.data() + 40, 8);

        QCOMPARE(plain, QByteArray(Pangram) + QByteArray(5, '\5'));
    }

    void deciphersAFileMadeElsewhere()
    {
        write(hex(EncipheredPangram), "in");

        QVERIFY(decipher("in", "out"));

        QCOMPARE(read("out"), QByteArray(Pangram));
        QCOMPARE(read("in"), hex(EncipheredPangram));
    }

    void thereAndBack_data()
    {
        QTest::addColumn<int>("plainSize");
        QTest::addColumn<int>("encipheredSize");

        QTest::newRow("empty") << 0 << 56;
        QTest::newRow("one byte") << 1 << 56;
        QTest::newRow("one byte below a block") << 7 << 56;
        QTest::newRow("a block") << 8 << 64;
        QTest::newRow("one byte above a block") << 9 << 64;
        QTest::newRow("a block below a buffer") << 65528 << 65584;
        QTest::newRow("a byte below a buffer") << 65535 << 65584;
        QTest::newRow("a buffer") << 65536 << 65592;
        QTest::newRow("a byte above a buffer") << 65537 << 65592;
        QTest::newRow("two buffers") << 131072 << 131128;
        QTest::newRow("many buffers") << 1000000 << 1000056;
    }
    void thereAndBack()
    {
        QFETCH(int, plainSize);
        const QByteArray plain = firmware(plainSize);
        write(plain, "in");

        QVERIFY(encipher("in", "enciphered"));
        QVERIFY(decipher("enciphered", "out"));
        QCOMPARE(checkOf("enciphered"), QString());

        const QByteArray enciphered = read("enciphered");
        QTEST(enciphered.size(), "encipheredSize");
        if (plainSize >= 8)
            QVERIFY(!enciphered.contains(plain.right(8)));
        QCOMPARE(read("out"), plain);
    }

    void samePlainFileNeverLooksTheSame()
    {
        write(firmware(100), "in");
        QVERIFY(encipher("in", "first"));
        QVERIFY(encipher("in", "second"));

        QVERIFY(read("first").mid(8, 8) != read("second").mid(8, 8));
        QVERIFY(read("first").mid(16, 8) != read("second").mid(16, 8));
    }

    void everyBitCounts()
    {
        const QByteArray good = hex(EncipheredPangram);
        for (int bit = 0; bit < 8 * good.size(); ++bit) {
            QByteArray damaged = good;
            damaged[bit / 8] = char(damaged[bit / 8] ^ (1 << bit % 8));
            write(damaged, "in");
            ignoreFailure();

            QVERIFY2(!decipher("in", "out"), qPrintable(QString::number(bit)));
            QVERIFY2(!exists("out"), qPrintable(QString::number(bit)));
            QVERIFY2(!checkOf("in").isEmpty(), qPrintable(QString::number(bit)));
        }
    }

    void everyLengthCounts()
    {
        const QByteArray good = hex(EncipheredPangram);
        for (int length = 0; length < good.size(); ++length) {
            write(good.left(length), "in");
            ignoreFailure();

            QVERIFY2(!decipher("in", "out"), qPrintable(QString::number(length)));
            QVERIFY2(!exists("out"), qPrintable(QString::number(length)));
            QVERIFY2(!checkOf("in").isEmpty(), qPrintable(QString::number(length)));
        }
    }

    void damaged_data()
    {
        QTest::addColumn<int>("offset"); // from the end if negative
        QTest::addColumn<QByteArray>("bytes");

        QTest::newRow("first buffer") << 1000 << QByteArray("damage");
        QTest::newRow("second buffer") << 70000 << QByteArray("damage");
        QTest::newRow("last block") << -40 << QByteArray("damage");
        QTest::newRow("code") << -1 << QByteArray("\x7f");
        QTest::newRow("a block of zeros behind it") << 200056 << QByteArray(8, '\0');
        QTest::newRow("a byte behind it") << 200056 << QByteArray(1, '\0');
    }
    void damaged()
    {
        QFETCH(int, offset);
        QFETCH(QByteArray, bytes);
        write(firmware(200000), "in");
        QVERIFY(encipher("in", "enciphered"));
        QByteArray enciphered = read("enciphered");
        QCOMPARE(enciphered.size(), 200056);
        enciphered.replace(offset < 0 ? enciphered.size() + offset : offset, bytes.size(), bytes);
        write(enciphered, "enciphered");
        ignoreFailure();

        QVERIFY(!decipher("enciphered", "out"));

        QVERIFY(!exists("out"));
        QVERIFY(!checkOf("enciphered").isEmpty());
    }

    void blocksOfOneFileCannotBeMoved()
    {
        write(firmware(64), "in");
        QVERIFY(encipher("in", "enciphered"));
        QByteArray enciphered = read("enciphered");
        enciphered = enciphered.left(16) + enciphered.mid(24, 8) + enciphered.mid(16, 8)
            + enciphered.mid(32);
        write(enciphered, "enciphered");
        ignoreFailure();

        QVERIFY(!decipher("enciphered", "out"));
        QVERIFY(!exists("out"));
    }

    void causes_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("cause");

        const QByteArray good = hex(EncipheredPangram);
        QTest::newRow("empty file")
            << QByteArray() << QStringLiteral("The file is cut off or not enciphered.");
        QTest::newRow("plain firmware")
            << firmware(4096) << QStringLiteral("The file is not enciphered.");
        QTest::newRow("a later version") << QByteArray(good).replace(4, 1, "\2")
                                         << QStringLiteral("The file is of an unknown version, 2.");
        QTest::newRow("no effective bits")
            << QByteArray(good).replace(6, 2, QByteArray(2, '\0'))
            << QStringLiteral("The file is damaged: 0 effective key bits.");
        QTest::newRow("too many effective bits")
            << QByteArray(good).replace(6, 2, "\1\4")
            << QStringLiteral("The file is damaged: 1025 effective key bits.");
        QTest::newRow("other effective bits")
            << QByteArray(good).replace(6, 1, "\x40")
            << QStringLiteral("The file is damaged, or enciphered with another key.");
    }
    void causes()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QString, cause);
        write(contents, "in");
        ignoreMessage(QStringLiteral("Failed to decipher %1: %2").arg(path("in"), cause));

        QVERIFY(!decipher("in", "out"));

        QVERIFY(!exists("out"));
        QCOMPARE(checkOf("in"), cause);
    }

    void fullDisk_data()
    {
        QTest::addColumn<bool>("enciphers");
        QTest::addColumn<int>("room");

        // An enciphered file of 200,000 plain bytes has 200,056.
        QTest::newRow("enciphering, nothing fits") << true << 0;
        QTest::newRow("enciphering, half the header fits") << true << 8;
        QTest::newRow("enciphering, a part of a buffer fits") << true << 100000;
        QTest::newRow("enciphering, all but the code fits") << true << 200024;
        QTest::newRow("enciphering, all but a byte fits") << true << 200055;
        QTest::newRow("deciphering, nothing fits") << false << 0;
        QTest::newRow("deciphering, a part of a buffer fits") << false << 100000;
        QTest::newRow("deciphering, all but a byte fits") << false << 199999;
    }
    void fullDisk()
    {
        QFETCH(bool, enciphers);
        QFETCH(int, room);
        write(firmware(200000), "in");
        QVERIFY(encipher("in", "enciphered"));
        ignoreFailure();

        bool ok = true;
        {
            const FileSizeLimit limit { rlim_t(room) };
            ok = enciphers ? encipher("in", "out") : decipher("enciphered", "out");
        }

        QVERIFY(!ok);
        QVERIFY(!exists("out"));
    }

    void enoughRoom()
    {
        write(firmware(200000), "in");
        const FileSizeLimit limit { 200056 };

        QVERIFY(encipher("in", "enciphered"));
        QVERIFY(decipher("enciphered", "out"));
    }

    void formerTarget_data()
    {
        QTest::addColumn<QByteArray>("enciphered");
        QTest::addColumn<bool>("succeeds");

        QTest::newRow("is replaced") << hex(EncipheredPangram) << true;
        QTest::newRow("is gone if the source is damaged")
            << hex(EncipheredPangram).replace(20, 1, "x") << false;
        QTest::newRow("is gone if there is no source") << QByteArray() << false;
    }
    void formerTarget()
    {
        QFETCH(QByteArray, enciphered);
        QFETCH(bool, succeeds);
        if (!enciphered.isEmpty())
            write(enciphered, "in");
        write(firmware(5000), "out");
        if (!succeeds)
            ignoreFailure();

        QCOMPARE(decipher("in", "out"), succeeds);

        QCOMPARE(exists("out"), succeeds);
        if (succeeds)
            QCOMPARE(read("out"), QByteArray(Pangram));
    }

    void linkAtTheTarget_data()
    {
        QTest::addColumn<QString>("leadsTo");

        QTest::newRow("to a file") << QStringLiteral("elsewhere");
        QTest::newRow("to nothing") << QStringLiteral("nothing");
        QTest::newRow("to a folder") << QStringLiteral(".");
    }
    void linkAtTheTarget()
    {
        QFETCH(QString, leadsTo);
        write(hex(EncipheredPangram), "in");
        write("precious", "elsewhere");
        QVERIFY(QFile::link(path(leadsTo), path("out")));

        QVERIFY(decipher("in", "out"));

        QVERIFY(!QFileInfo(path("out")).isSymLink());
        QCOMPARE(read("out"), QByteArray(Pangram));
        QCOMPARE(read("elsewhere"), QByteArray("precious"));
        QVERIFY(!exists("nothing"));
    }

    void refusedTarget_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("cause");

        const QString same = QStringLiteral("Source and target are the same file.");
        QTest::newRow("the source itself") << QStringLiteral("in") << same;
        QTest::newRow("the source by another path") << QStringLiteral("./folder/../in") << same;
        QTest::newRow("a link to the source") << QStringLiteral("link") << same;
        QTest::newRow("a folder") << QStringLiteral("folder")
                                  << QStringLiteral("The target is there and not a file.");
        QTest::newRow("a pipe") << QStringLiteral("pipe")
                                << QStringLiteral("The target is there and not a file.");
    }
    void refusedTarget()
    {
        QFETCH(QString, target);
        QFETCH(QString, cause);
        write(hex(EncipheredPangram), "in");
        QVERIFY(QFile::link(path("in"), path("link")));
        QVERIFY(QDir().mkdir(path("folder")));
        QCOMPARE(mkfifo(qPrintable(path("pipe")), 0600), 0);
        ignoreMessage(QStringLiteral("Failed to decipher %1: %2").arg(path("in"), cause));

        QVERIFY(!decipher("in", qPrintable(target)));

        QCOMPARE(read("in"), hex(EncipheredPangram));
        QVERIFY(exists(qPrintable(target)));
    }

    void refusedSource_data()
    {
        QTest::addColumn<QString>("source");

        QTest::newRow("missing") << QStringLiteral("none");
        QTest::newRow("folder") << QStringLiteral(".");
        QTest::newRow("pipe that nobody writes to") << QStringLiteral("pipe");
    }
    void refusedSource()
    {
        QFETCH(QString, source);
        QCOMPARE(mkfifo(qPrintable(path("pipe")), 0600), 0);

        ignoreMessage(
            QStringLiteral("Failed to decipher %1: There is no such file.").arg(path(source)));
        QVERIFY(!decipher(qPrintable(source), "out"));
        ignoreMessage(
            QStringLiteral("Failed to encipher %1: There is no such file.").arg(path(source)));
        QVERIFY(!encipher(qPrintable(source), "out"));

        QVERIFY(!exists("out"));
    }

    void permissions_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("target");
        QTest::addColumn<bool>("succeeds");

        const QString in = QStringLiteral("in");
        QTest::newRow("all granted") << in << QStringLiteral("own/out") << true;
        QTest::newRow("read-only file in the way") << in << QStringLiteral("own/former") << true;
        QTest::newRow("source that may not be read")
            << QStringLiteral("secret") << QStringLiteral("own/out") << false;
        QTest::newRow("folder that may not be written")
            << in << QStringLiteral("foreign/out") << false;
        QTest::newRow("former target that may not be removed")
            << in << QStringLiteral("foreign/former") << false;
    }
    void permissions()
    {
        QFETCH(QString, source);
        QFETCH(QString, target);
        QFETCH(bool, succeeds);
        write(hex(EncipheredPangram), "in");
        write(hex(EncipheredPangram), "secret");
        QCOMPARE(chmod(qPrintable(path("secret")), 0), 0);
        QVERIFY(Unprivileged::own(QFile::encodeName(m_folder->path())));
        for (const char *name : { "own", "foreign" }) {
            QVERIFY(QDir().mkdir(path(name)));
            QVERIFY(Unprivileged::own(QFile::encodeName(path(name))));
            write("former", qPrintable(QString::fromLatin1(name) + "/former"));
        }
        QCOMPARE(chmod(qPrintable(path("own/former")), 0444), 0);
        QCOMPARE(chmod(qPrintable(path("foreign")), 0555), 0);

        const QByteArray outcome = Unprivileged::run([&] {
            if (!succeeds)
                ignoreFailure();
            return QByteArray(decipher(qPrintable(source), qPrintable(target)) ? "done" : "failed");
        });

        QCOMPARE(outcome, QByteArray(succeeds ? "done" : "failed"));
        QCOMPARE(exists("own/out"), succeeds && target == QLatin1String("own/out"));
        QCOMPARE(read("foreign/former"), QByteArray("former"));
        QCOMPARE(chmod(qPrintable(path("foreign")), 0755), 0); // or it could not be cleared away
    }

    void targetInAMissingFolder()
    {
        write("plain", "in");
        ignoreFailure();

        QVERIFY(!encipher("in", "none/out"));
    }

    void outcomes_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("target");
        QTest::addColumn<int>("result");

        const auto row = [](const char *name, const char *source, const char *target,
                            Result result) {
            QTest::newRow(name) << source << target << int(result);
        };
        row("done", "in", "out", Result::Done);
        row("former file replaced", "in", "former", Result::Done);
        row("missing source", "none", "former", Result::SourceRefused);
        row("folder as source", "folder", "former", Result::SourceRefused);
        row("damaged source", "damaged", "former", Result::SourceUnsound);
        row("plain source", "former", "out", Result::SourceUnsound);
        row("missing folder", "in", "none/out", Result::TargetRefused);
        row("file as a folder", "in", "former/out", Result::TargetRefused);
        row("folder as target", "in", "folder", Result::TargetRefused);
        row("no name", "in", "", Result::TargetRefused);
        row("source as target", "in", "in", Result::TargetRefused);
    }
    void outcomes()
    {
        QFETCH(QString, source);
        QFETCH(QString, target);
        QFETCH(int, result);
        write(hex(EncipheredPangram), "in");
        write(hex(EncipheredPangram).replace(20, 1, "x"), "damaged");
        write("former", "former");
        QVERIFY(QDir().mkdir(path("folder")));
        const QStringList before = names();

        const TZ::ConvertOutcome checked = TZ::checkEncipheredFile(path(source));
        QCOMPARE(names(), before);
        const TZ::ConvertOutcome outcome =
            TZ::decipherFile(path(source), target.isEmpty() ? QString() : path(target));

        QCOMPARE(int(outcome.result), result);
        QCOMPARE(outcome.cause.isEmpty(), Result(result) == Result::Done);
        if (Result(result) != Result::TargetRefused) {
            QCOMPARE(checked.result, outcome.result);
            QCOMPARE(checked.cause, outcome.cause);
        }
        if (Result(result) == Result::Done) {
            QCOMPARE(read(qPrintable(target)), QByteArray(Pangram));
        } else {
            QCOMPARE(names(), before);
            QCOMPARE(read("former"), QByteArray("former"));
            QCOMPARE(read("in"), hex(EncipheredPangram));
        }
    }

    void nameThatIsTooLong()
    {
        write("plain", "in");

        const TZ::ConvertOutcome outcome = TZ::encipherFile(path("in"), path(QString(256, 'n')));

        QCOMPARE(int(outcome.result), int(Result::TargetRefused));
        QCOMPARE(names(), QStringList("in"));
        QCOMPARE(int(TZ::encipherFile(path("in"), path(QString(255, 'n'))).result),
                 int(Result::Done));
    }

    void fullDiskAsAnOutcome()
    {
        write(firmware(200000), "in");
        QVERIFY(encipher("in", "enciphered"));
        write("former", "out");
        const FileSizeLimit limit { 100000 };

        QCOMPARE(int(TZ::decipherFile(path("enciphered"), path("out")).result),
                 int(Result::Failed));
        QCOMPARE(int(TZ::encipherFile(path("in"), path("out")).result), int(Result::Failed));

        QCOMPARE(read("out"), QByteArray("former"));
    }

    void nothingIsSeenOfAnUnfinishedFile()
    {
        write(firmware(200000), "in");
        QStringList seen;

        const TZ::ConvertOutcome outcome = TZ::encipherFile(path("in"), path("out"), [&] {
            seen.append(names().join(' '));
            return true;
        });

        QCOMPARE(int(outcome.result), int(Result::Done));
        QCOMPARE(seen, QStringList({ "in", "in", "in", "in" }));
        QCOMPARE(names(), QStringList({ "in", "out" }));
    }

    void interrupted()
    {
        write(firmware(200000), "in");
        QVERIFY(encipher("in", "enciphered"));
        int pieces = 0;
        const auto onePiece = [&pieces] {
            return pieces++ == 0;
        };

        const TZ::ConvertOutcome outcome = TZ::encipherFile(path("in"), path("out"), onePiece);
        QCOMPARE(int(outcome.result), int(Result::Interrupted));
        QCOMPARE(outcome.cause, QString("Interrupted."));
        QCOMPARE(pieces, 2);
        pieces = 0;
        QCOMPARE(int(TZ::decipherFile(path("enciphered"), path("out"), onePiece).result),
                 int(Result::Interrupted));
        pieces = 0;
        QCOMPARE(int(TZ::checkEncipheredFile(path("enciphered"), onePiece).result),
                 int(Result::Interrupted));
        QCOMPARE(pieces, 2);

        QCOMPARE(names(), QStringList({ "enciphered", "in" }));
    }

    // Some file systems have no files without a name.
    void hiddenFile()
    {
        write("former", "out");
        QString cause;
        {
            PendingFile dropped(path("out"));
            QCOMPARE(int(dropped.open(cause, PendingFile::Naming::Hidden)),
                     int(PendingFile::Result::Done));
            QCOMPARE(names().size(), 2);
            QVERIFY(names().first().startsWith(".velmar-"));
        }
        QCOMPARE(names(), QStringList("out"));
        PendingFile kept(path("out"));
        QCOMPARE(int(kept.open(cause, PendingFile::Naming::Hidden)),
                 int(PendingFile::Result::Done));
        QCOMPARE(kept.device().write("new"), 3);
        QCOMPARE(read("out"), QByteArray("former"));

        QCOMPARE(int(kept.commit(cause)), int(PendingFile::Result::Done));

        QCOMPARE(read("out"), QByteArray("new"));
        QCOMPARE(names(), QStringList("out"));
    }

    void unknownNumbers_data()
    {
        QTest::addColumn<int>("style");
        QTest::addColumn<int>("type");

        QTest::newRow("style 0") << 0 << 2;
        QTest::newRow("style 2") << 2 << 2;
        QTest::newRow("type 0") << 1 << 0;
        QTest::newRow("type 3") << 1 << 3;
    }
    void unknownNumbers()
    {
        QFETCH(int, style);
        QFETCH(int, type);
        write(hex(EncipheredPangram), "in");
        write("former", "out");
        ignoreMessage(QStringLiteral("Failed to decipher %1: Unknown style %2 or type %3.")
                          .arg(path("in"))
                          .arg(style)
                          .arg(type));

        QVERIFY(!CryptRc2().ReadFileToEncryptOrDecrypt(path("in"), path("out"), CRYPTSTYLE(style),
                                                       CRYPTTYPE(type)));

        QCOMPARE(read("out"), QByteArray("former"));
    }

    void numbersOfTheInterface()
    {
        QCOMPARE(int(CRYPTSTYLE_FILE), 1);
        QCOMPARE(int(CRYPTTYPE_DECRYPT), 2);
        write(hex(EncipheredPangram), "in");

        QVERIFY(CryptRc2().ReadFileToEncryptOrDecrypt(path("in"), path("out"), CRYPTSTYLE(1),
                                                      CRYPTTYPE(2)));

        QCOMPARE(read("out"), QByteArray(Pangram));
    }

    void anotherKey()
    {
        write("secret", "in");
        QVERIFY(TZ::setCryptKey({ hex("00112233445566778899aabbccddeeff0102"), 100 }));
        QVERIFY(encipher("in", "enciphered"));
        QVERIFY(decipher("enciphered", "out"));
        QCOMPARE(read("out"), QByteArray("secret"));
        QCOMPARE(read("enciphered").mid(6, 2), hex("6400"));

        QVERIFY(TZ::setCryptKey(TZ::demonstrationCryptKey()));
        ignoreMessage(QStringLiteral("Failed to decipher %1: The file is damaged, or enciphered "
                                     "with another key.")
                          .arg(path("enciphered")));
        QVERIFY(!decipher("enciphered", "out"));
        QVERIFY(!exists("out"));
    }

    // The file says how many bits of the key count, so that one key reads files of both kinds.
    void effectiveBitsAreThoseOfTheFile()
    {
        write("secret", "in");
        const QByteArray key = hex("00112233445566778899aabbccddeeff");
        QVERIFY(TZ::setCryptKey({ key, 40 }));
        QVERIFY(encipher("in", "enciphered"));
        QVERIFY(TZ::setCryptKey({ key, 128 }));

        QVERIFY(decipher("enciphered", "out"));

        QCOMPARE(read("out"), QByteArray("secret"));
    }

    void invalidKey_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("effectiveBits");

        QTest::newRow("no bytes") << QByteArray() << 128;
        QTest::newRow("129 bytes") << QByteArray(129, 'k') << 128;
        QTest::newRow("no bits") << QByteArray(16, 'k') << 0;
        QTest::newRow("negative bits") << QByteArray(16, 'k') << -1;
        QTest::newRow("1025 bits") << QByteArray(128, 'k') << 1025;
    }
    void invalidKey()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, effectiveBits);

        QVERIFY(!TZ::setCryptKey({ bytes, effectiveBits }));

        QCOMPARE(TZ::cryptKey().bytes, QByteArray("velmar demo key!"));
        QCOMPARE(TZ::cryptKey().effectiveBits, 128);
    }

    void keyIsSetAndReadWhole()
    {
        const TZ::CryptKey shortKey { QByteArray(8, 's'), 64 };
        const TZ::CryptKey longKey { QByteArray(128, 'l'), 1024 };
        QVERIFY(TZ::setCryptKey(shortKey));
        std::thread writer([&] {
            for (int i = 0; i < 2000; ++i)
                TZ::setCryptKey(i % 2 == 0 ? longKey : shortKey);
        });
        int torn = 0;
        for (int i = 0; i < 2000; ++i) {
            const TZ::CryptKey key = TZ::cryptKey();
            if (key.effectiveBits != 8 * key.bytes.size())
                ++torn;
        }
        writer.join();

        QCOMPARE(torn, 0);
    }

    void manyThreads()
    {
        write(firmware(100000), "in");
        QVERIFY(encipher("in", "enciphered"));
        std::vector<std::thread> threads;
        QVector<int> results(4, 0);
        int *const result = results.data();
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([this, i, result] {
                result[i] = decipher("enciphered", qPrintable(QStringLiteral("out%1").arg(i)));
            });
        for (std::thread &thread : threads)
            thread.join();

        QCOMPARE(results, QVector<int>({ 1, 1, 1, 1 }));
        for (int i = 0; i < 4; ++i)
            QCOMPARE(read(qPrintable(QStringLiteral("out%1").arg(i))), firmware(100000));
    }

    void keyFile_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("effectiveBits");

        QTest::newRow("key alone: all its bits count")
            << QByteArray("key = 00aaBB\n") << hex("00aabb") << 24;
        QTest::newRow("key and bits")
            << QByteArray("key = 00aabb\neffective-bits = 40\n") << hex("00aabb") << 40;
        QTest::newRow("the other way round, without blanks and last line end")
            << QByteArray("effective-bits=40\nkey=00aabb") << hex("00aabb") << 40;
        QTest::newRow("comments, empty lines, line ends of Windows")
            << QByteArray("# ours\r\n\r\n  key = 00aabb  \r\n#key = ff\r\n") << hex("00aabb") << 24;
        QTest::newRow("longest key, most bits")
            << "key = " + QByteArray(256, 'f') << QByteArray(128, '\xff') << 1024;
    }
    void keyFile()
    {
        QFETCH(QByteArray, text);
        write(text, "key");
        TZ::CryptKey key;
        QString errorText;

        QVERIFY(TZ::readCryptKeyFile(path("key"), key, errorText));

        QTEST(key.bytes, "bytes");
        QTEST(key.effectiveBits, "effectiveBits");
        QVERIFY(errorText.isEmpty());
    }

    void badKeyFile_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("error");

        const QString digits =
            QStringLiteral("a key is 1 to 128 bytes, each of two hexadecimal digits");
        const QString bits = QStringLiteral("the effective bits are a number from 1 to 1024");
        QTest::newRow("empty") << QByteArray() << QStringLiteral(": there is no key in it");
        QTest::newRow("bits alone")
            << QByteArray("effective-bits = 40") << QStringLiteral(": there is no key in it");
        QTest::newRow("no digits") << QByteArray("\nkey =\n") << ", line 2: " + digits;
        QTest::newRow("odd number of digits") << QByteArray("key = abc") << ", line 1: " + digits;
        QTest::newRow("no hexadecimal digits") << QByteArray("key = 0g") << ", line 1: " + digits;
        QTest::newRow("blank between") << QByteArray("key = 00 11") << ", line 1: " + digits;
        QTest::newRow("too long") << "key = " + QByteArray(258, 'f') << ", line 1: " + digits;
        QTest::newRow("two keys") << QByteArray("key = 00\nkey = 00")
                                  << QStringLiteral(", line 2: the key is given twice");
        QTest::newRow("bits 0") << QByteArray("key = 00\neffective-bits = 0")
                                << ", line 2: " + bits;
        QTest::newRow("bits 1025")
            << QByteArray("key = 00\neffective-bits = 1025") << ", line 2: " + bits;
        QTest::newRow("bits in letters")
            << QByteArray("key = 00\neffective-bits = all") << ", line 2: " + bits;
        QTest::newRow("bits with a sign")
            << QByteArray("key = 00\neffective-bits = +64") << ", line 2: " + bits;
        QTest::newRow("bits beyond all numbers")
            << QByteArray("key = 00\neffective-bits = 4294967360") << ", line 2: " + bits;
        QTest::newRow("bits twice")
            << QByteArray("effective-bits = 8\neffective-bits = 8")
            << QStringLiteral(", line 2: the effective bits are given twice");
        QTest::newRow("another word")
            << QByteArray("secret = 00")
            << QStringLiteral(
                   ", line 1: only \"key = ...\" and \"effective-bits = ...\" are known");
        QTest::newRow("digits alone")
            << QByteArray("0011")
            << QStringLiteral(
                   ", line 1: only \"key = ...\" and \"effective-bits = ...\" are known");
        QTest::newRow("far too long")
            << QByteArray(4097, '\n') << QStringLiteral(": longer than 4096 bytes, so no key file");
    }
    void badKeyFile()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, error);
        write(text, "key");
        TZ::CryptKey key { "former", 48 };
        QString errorText;

        QVERIFY(!TZ::readCryptKeyFile(path("key"), key, errorText));

        QCOMPARE(errorText, path("key") + error);
        QCOMPARE(key.bytes, QByteArray("former"));
        QCOMPARE(key.effectiveBits, 48);
    }

    void missingKeyFile()
    {
        TZ::CryptKey key;
        QString errorText;

        QVERIFY(!TZ::readCryptKeyFile(path("none"), key, errorText));

        QCOMPARE(errorText, path("none") + ": No such file or directory");
    }

private:
    QString path(const QString &name) const { return m_folder->filePath(name); }
    QString path(const char *name) const { return path(QString::fromUtf8(name)); }
    bool exists(const char *name) const { return QFileInfo::exists(path(name)); }

    QStringList names() const
    {
        return QDir(m_folder->path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    }

    // Why the file cannot be deciphered; empty if it can.
    QString checkOf(const char *name) const { return TZ::checkEncipheredFile(path(name)).cause; }

    void write(const QByteArray &contents, const char *name)
    {
        // A file that is truncated and written again is flushed to disk by some file systems.
        QFile::remove(path(name));
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(contents), qint64(contents.size()));
    }

    QByteArray read(const char *name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be opened)");
    }

    bool encipher(const char *source, const char *target)
    {
        return CryptRc2().ReadFileToEncryptOrDecrypt(path(source), path(target), CRYPTSTYLE_FILE,
                                                     CRYPTTYPE_ENCRYPT);
    }

    bool decipher(const char *source, const char *target)
    {
        return CryptRc2().ReadFileToEncryptOrDecrypt(path(source), path(target), CRYPTSTYLE_FILE,
                                                     CRYPTTYPE_DECRYPT);
    }

    static void ignoreMessage(const QString &text)
    {
        QTest::ignoreMessage(QtWarningMsg, qPrintable(text));
    }

    // Exactly one line with the cause is expected.
    static void ignoreFailure()
    {
        QTest::ignoreMessage(
            QtWarningMsg, QRegularExpression(QStringLiteral("^Failed to (en|de)cipher .+: .+$")));
    }

    QScopedPointer<QTemporaryDir> m_folder;
};

QTEST_GUILESS_MAIN(tst_CryptRc2)

#include "tst_cryptrc2.moc"
