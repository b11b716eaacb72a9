#include "deviceimage.h"
#include "devicestate.h"
#include "filereceiver.h"
#include "statefolder.h"
#include "support/imagebuilder.h"
#include "support/unprivileged.h"

#include <QCryptographicHash>
#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

using namespace Velmar::Simulator;

namespace {

QByteArray sha256(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
}

QByteArray image(const QByteArray &body, quint32 version = 0x01020304)
{
    ImageBuilder builder;
    builder.version = version;
    builder.files = { { "mcu.bin", body } };
    return builder.build();
}

} // namespace

/*! How the simulated device takes files from hosts. */
class tst_DeviceTransfer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QString errorText;
        m_root = std::make_unique<QTemporaryDir>();
        m_folder = StateFolder::open(m_root->path(), errorText);
        QVERIFY2(m_folder, qPrintable(errorText));
        m_state = DeviceState::load(*m_folder, 0x7701, errorText);
        QVERIFY2(m_state, qPrintable(errorText));
        m_receiver = std::make_unique<FileReceiver>(*m_folder, *m_state);
    }
    void cleanup()
    {
        m_receiver.reset();
        m_state.reset();
        m_folder.reset();
        m_root.reset();
    }

    void imageIsKept()
    {
        const QByteArray bytes = image("firmware");
        QVERIFY(send(bytes).isAccepted());
        QCOMPARE(m_state->record().image->version, QString("1.2.3.4"));
        QFile kept(m_folder->images() + '/' + m_state->record().image->fileName);
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll(), bytes);
        QCOMPARE(incoming(), QStringList());
    }

    void laterImageTakesTheEarlierOnesPlace()
    {
        QVERIFY(send(image("first")).isAccepted());
        QVERIFY(send(image("second", 0xFF000001)).isAccepted());
        QCOMPARE(m_state->record().image->version, QString("255.0.0.1"));
        QCOMPARE(images().size(), 1);
    }

    void sameImageAgain()
    {
        QVERIFY(send(image("first")).isAccepted());
        QVERIFY(send(image("first")).isAccepted());
        QCOMPARE(images(), QStringList { m_state->record().image->fileName });
    }

    void refusedImageLeavesTheEarlierOne()
    {
        QVERIFY(send(image("first")).isAccepted());
        QCOMPARE(send(image("second").left(400)).ack, LinkAck::WrongContents);
        QCOMPARE(m_state->record().image->version, QString("1.2.3.4"));
        QCOMPARE(images(), QStringList { m_state->record().image->fileName });
    }

    void announcementReplacesTheOneBefore()
    {
        QVERIFY(m_receiver->announce({ { 5, 13, 100 } }).isAccepted());
        QVERIFY(m_receiver->announce({ { 6, 13, 100 }, { 7, 13, 100 } }).isAccepted());
        QCOMPARE(m_receiver->open(5, 13, 100, QByteArray(32, 'x')).errorText,
                 QString("file 5 is not announced"));
        QVERIFY(m_receiver->open(7, 13, 100, QByteArray(32, 'x')).isAccepted());
        QVERIFY(m_receiver->announce({ { 5, 13, 100 } }).isAccepted());
        QCOMPARE(m_receiver->append(7, 0, "x").errorText, QString("no transfer of file 7 is open"));
        QCOMPARE(incoming(), QStringList());
    }

    void openIsStrict_data()
    {
        QTest::addColumn<int>("fileType");
        QTest::addColumn<quint64>("size");
        QTest::addColumn<QByteArray>("hash");
        QTest::addColumn<int>("ack");
        QTest::addColumn<QString>("error");

        const QByteArray hash(32, 'h');
        QTest::newRow("as announced") << 13 << quint64(600) << hash << 0 << "";
        QTest::newRow("of another type")
            << 12 << quint64(600) << hash << 1 << "file 0 is not the one announced";
        QTest::newRow("longer") << 13 << quint64(601) << hash << 1
                                << "file 0 is not the one announced";
        QTest::newRow("longer by what an announcement cannot tell")
            << 13 << (quint64(1) << 32) + 600 << hash << 0 << "";
        QTest::newRow("hash of 31 bytes")
            << 13 << quint64(600) << hash.left(31) << 3 << "the hash is not of 32 bytes";
    }
    void openIsStrict()
    {
        QFETCH(int, fileType);
        QFETCH(quint64, size);
        QFETCH(QByteArray, hash);
        QVERIFY(m_receiver->announce({ { 0, 13, 600 } }).isAccepted());
        const Outcome outcome = m_receiver->open(0, fileType, size, hash);
        QTEST(int(outcome.ack), "ack");
        QTEST(outcome.errorText, "error");
    }

    void sizeBeyondAnnouncedNumbers()
    {
        // Hosts cut a size to 32 bits with a sign.
        QVERIFY(m_receiver->announce({ { 0, 13, -1 } }).isAccepted());
        QVERIFY(m_receiver->open(0, 13, 4294967295u, QByteArray(32, 'h')).isAccepted());
    }

    void dataIsStrict_data()
    {
        QTest::addColumn<quint64>("offset");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("ack");
        QTest::addColumn<QString>("error");

        QTest::newRow("next bytes") << quint64(100) << QByteArray(500, 'b') << 0 << "";
        QTest::newRow("bytes again")
            << quint64(0) << QByteArray(100, 'b') << 4 << "byte 100 comes next, not 0";
        QTest::newRow("bytes left out")
            << quint64(101) << QByteArray(1, 'b') << 4 << "byte 100 comes next, not 101";
        QTest::newRow("a byte too many")
            << quint64(100) << QByteArray(501, 'b') << 4 << "the file has 600 bytes, not more";
        QTest::newRow("no bytes") << quint64(100) << QByteArray() << 3
                                  << "a chunk has 1 to 65536 bytes";
        QTest::newRow("more than a chunk")
            << quint64(100) << QByteArray(65537, 'b') << 3 << "a chunk has 1 to 65536 bytes";
    }
    void dataIsStrict()
    {
        QFETCH(quint64, offset);
        QFETCH(QByteArray, bytes);
        QVERIFY(m_receiver->announce({ { 0, 13, 600 } }).isAccepted());
        QVERIFY(m_receiver->open(0, 13, 600, QByteArray(32, 'h')).isAccepted());
        QVERIFY(m_receiver->append(0, 0, QByteArray(100, 'a')).isAccepted());
        const Outcome outcome = m_receiver->append(0, offset, bytes);
        QTEST(int(outcome.ack), "ack");
        QTEST(outcome.errorText, "error");
        QCOMPARE(m_receiver->received(0), quint64(outcome.isAccepted() ? 600 : 100));
        QCOMPARE(m_receiver->percentReceived(0), outcome.isAccepted() ? 100 : 16);
    }

    void closeIsStrict_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<QByteArray>("hash");
        QTest::addColumn<QString>("error");

        const QByteArray bytes = image("firmware"); // 530 bytes
        QTest::newRow("a byte missing") << 529 << sha256(bytes) << "529 of 530 bytes have arrived";
        QTest::newRow("other hash") << 530 << QByteArray(32, 'h') << "the hash is wrong";
    }
    void closeIsStrict()
    {
        QFETCH(int, length);
        QFETCH(QByteArray, hash);
        const QByteArray bytes = image("firmware");
        QVERIFY(m_receiver->announce({ { 0, 13, bytes.size() } }).isAccepted());
        QVERIFY(m_receiver->open(0, 13, quint64(bytes.size()), hash).isAccepted());
        QVERIFY(m_receiver->append(0, 0, bytes.left(length)).isAccepted());
        const Outcome outcome = m_receiver->close(0);
        QCOMPARE(outcome.ack, LinkAck::WrongContents);
        QTEST(outcome.errorText, "error");
        QCOMPARE(m_receiver->close(0).ack, LinkAck::NotNow); // the transfer is over
        QCOMPARE(incoming(), QStringList());
        QVERIFY(!m_state->record().image);
    }

    void transferStartsAnew()
    {
        const QByteArray bytes = image("firmware");
        QVERIFY(m_receiver->announce({ { 0, 13, bytes.size() } }).isAccepted());
        QVERIFY(m_receiver->open(0, 13, quint64(bytes.size()), sha256(bytes)).isAccepted());
        QVERIFY(m_receiver->append(0, 0, "rubbish").isAccepted());
        QVERIFY(m_receiver->open(0, 13, quint64(bytes.size()), sha256(bytes)).isAccepted());
        QCOMPARE(m_receiver->received(0), quint64(0));
        QVERIFY(m_receiver->append(0, 0, bytes).isAccepted());
        QVERIFY(m_receiver->close(0).isAccepted());
    }

    void twoTransfersAtATime()
    {
        const QByteArray first = image("first");
        const QByteArray second = image("second");
        QVERIFY(m_receiver->announce({ { 1, 13, first.size() }, { 2, 13, second.size() } })
                    .isAccepted());
        QVERIFY(m_receiver->open(1, 13, quint64(first.size()), sha256(first)).isAccepted());
        QVERIFY(m_receiver->open(2, 13, quint64(second.size()), sha256(second)).isAccepted());
        QVERIFY(m_receiver->append(1, 0, first).isAccepted());
        QVERIFY(m_receiver->append(2, 0, second).isAccepted());
        QVERIFY(m_receiver->close(2).isAccepted());
        QVERIFY(m_receiver->close(1).isAccepted());
        QCOMPARE(m_state->record().image->fileName, QString::fromLatin1(sha256(first).toHex()));
        QCOMPARE(images().size(), 1);
    }

    void diskThatDoesNotTakeTheFile()
    {
        const QByteArray bytes = image("firmware");
        QVERIFY(QFile::setPermissions(m_folder->incoming(),
                                      QFile::ReadOther | QFile::ReadOwner | QFile::ExeOther
                                          | QFile::ExeOwner));
        QVERIFY(Unprivileged::own(m_root->path().toUtf8()));
        const QByteArray outcome = Unprivileged::run([&] {
            m_receiver->announce({ { 0, 13, bytes.size() } });
            return m_receiver->open(0, 13, quint64(bytes.size()), sha256(bytes)).errorText.toUtf8();
        });
        QCOMPARE(outcome, QByteArray("the file cannot be stored: Permission denied"));
        QVERIFY(QFile::setPermissions(m_folder->incoming(),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }

    void diskThatTakesAPart()
    {
        for (const QString &folder : { m_root->path(), m_folder->incoming() })
            QVERIFY(Unprivileged::own(QFile::encodeName(folder)));
        const QByteArray outcome = Unprivileged::run([this] {
            ::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit { 100000, 100000 };
            if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
                return QByteArray("no limit");
            m_receiver->announce({ { 0, 13, 200000 } });
            m_receiver->open(0, 13, 200000, QByteArray(32, 'h'));
            const QByteArray chunk(65536, 'x');
            const Outcome first = m_receiver->append(0, 0, chunk);
            const Outcome second = m_receiver->append(0, 65536, chunk);
            return (first.errorText + '|' + second.errorText).toUtf8();
        });
        QCOMPARE(outcome,
                 QByteArray("|the file cannot be stored: the disk has no room for all of it"));
    }

    void imageContents_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("fault");

        const auto withFiles = [](const QVector<QPair<QByteArray, QByteArray>> &files) {
            ImageBuilder builder;
            builder.files = files;
            return builder.build();
        };
        const QByteArray good = withFiles({ { "a", "one" }, { "b/c", "two" } });
        const auto with = [&good](int offset, char byte) {
            QByteArray bytes = good;
            bytes[offset] = byte;
            return bytes;
        };
        QTest::newRow("good") << good << "";
        QTest::newRow("no bytes") << QByteArray() << "the file has 0 bytes, an image at least 258";
        QTest::newRow("other constant")
            << with(8, 0) << "byte 8 of the header is 0x00 instead of 0xa8";
        QTest::newRow("data length") << with(0, 0)
                                     << "the data length is 512, but the file has "
                                        "room for 534";
        QTest::newRow("count") << with(9, 3)
                               << "a table of 3 records does not fit into the data "
                                  "length 534";
        QTest::newRow("model") << with(11, 2)
                               << "the image is for model 0x7702, this device is a 0x7701";
        QTest::newRow("body offset")
            << with(256 + 256, 17) << "record 0: its body is at offset 529 instead of 528";
        QTest::newRow("body length")
            << with(256 + 260, 2) << "record 1: its body is at offset 531 instead of 530";
        QTest::newRow("no files") << withFiles({}) << "the image has no files";
        QTest::newRow("path that names no file")
            << withFiles({ { "a", "x" }, { "//", "y" } }) << "record 1: its path names no file";
        QTest::newRow("file as a folder") << withFiles({ { "a/b", "x" }, { "a", "y" } })
                                          << "\"a\" is both a file and a folder of the image";
        QTest::newRow("file as a folder's folder")
            << withFiles({ { "/a", "x" }, { "q/b", "y" }, { "a/b/c", "y" } })
            << "\"a\" is both a file and a folder of the image";
        QTest::newRow("two files of one path") << withFiles({ { "a", "x" }, { "/a", "y" } }) << "";
        QTest::newRow("folders side by side")
            << withFiles({ { "a/b/c", "x" }, { "a/b/d", "y" }, { "a/bc", "z" } }) << "";
    }
    void imageContents()
    {
        QFETCH(QByteArray, bytes);
        const QString path = m_root->filePath("image");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        file.close();
        QString errorText;
        const auto image = readDeviceImage(path, 0x7701, errorText);
        QTEST(errorText, "fault");
        QCOMPARE(bool(image), errorText.isEmpty());
    }

    void filesOfAnImage()
    {
        ImageBuilder builder;
        builder.version = 0xFF00100A;
        builder.files = { { "/app/a", "one" }, { "b", "three" } };
        const QString path = m_root->filePath("image");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(builder.build());
        file.close();
        QString errorText;
        const auto image = readDeviceImage(path, 0x7701, errorText);
        QVERIFY2(image, qPrintable(errorText));
        QCOMPARE(image->version, QString("255.0.16.10"));
        QCOMPARE(image->files.size(), std::size_t(2));
        QCOMPARE(image->files[0].installedPath, QString("app/a"));
        QCOMPARE(image->files[0].offset, qint64(784));
        QCOMPARE(image->files[0].length, qint64(3));
        QCOMPARE(image->files[1].installedPath, QString("b"));
        QCOMPARE(image->files[1].offset, qint64(787));
        QCOMPARE(image->files[1].length, qint64(5));
    }

    void missingImage()
    {
        QString errorText;
        QVERIFY(!readDeviceImage("/nowhere/image", 0x7701, errorText));
        QCOMPARE(errorText,
                 QString("\"/nowhere/image\" cannot be read: No such file or directory"));
    }

private:
    Outcome send(const QByteArray &bytes)
    {
        Outcome outcome = m_receiver->announce({ { 0, 13, bytes.size() } });
        if (outcome.isAccepted())
            outcome = m_receiver->open(0, 13, quint64(bytes.size()), sha256(bytes));
        if (outcome.isAccepted())
            outcome = m_receiver->append(0, 0, bytes);
        return outcome.isAccepted() ? m_receiver->close(0) : outcome;
    }

    QStringList incoming() const { return QDir(m_folder->incoming()).entryList(QDir::Files); }
    QStringList images() const { return QDir(m_folder->images()).entryList(QDir::Files); }

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<StateFolder> m_folder;
    std::unique_ptr<DeviceState> m_state;
    std::unique_ptr<FileReceiver> m_receiver;
};

QTEST_GUILESS_MAIN(tst_DeviceTransfer)
#include "tst_devicetransfer.moc"
