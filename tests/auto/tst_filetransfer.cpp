#include "support/fakedevice.h"
#include "support/imagebuilder.h"
#include "support/logrecorder.h"

#include <velmarmodelcontrol/file.h>
#include <velmarmodelcontrol/linkpolicy.h>

#include <QCborValue>
#include <QCryptographicHash>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <type_traits>

#include <sys/stat.h>

using Velmar::BizModel::LinkAnswer;
using Velmar::BizModel::LinkRequest;
using Velmar::ModelControl::File;
using Velmar::ModelControl::LinkPolicy;
using Velmar::ProtoModel::File::s_FileInfo;
using FileType = Velmar::BizModel::Enum::File::FileType;
using Outcome = Velmar::BizModel::LinkAnswer::Outcome;

// Whoever derives from it may delete by the base.
static_assert(std::has_virtual_destructor_v<File>);

namespace {

constexpr int FileId = 3;

// Takes a file as a device does, and answers as one that checks what it got.
class FileTaker
{
public:
    explicit FileTaker(ScriptedLink &link)
    {
        link.answer("file.announce", ScriptedLink::accepted());
        link.handle("file.open", [this](const LinkRequest &request) {
            opening = request.arguments;
            contents.clear();
            return ScriptedLink::accepted();
        });
        link.handle("file.data", [this](const LinkRequest &request) {
            if (request.arguments.value("offset").toInteger() != contents.size())
                return ScriptedLink::refused(3, "not the next bytes");
            chunkSizes.append(request.arguments.value("bytes").toByteArray().size());
            contents += request.arguments.value("bytes").toByteArray();
            if (onChunk)
                onChunk();
            return ScriptedLink::accepted({ { "received", contents.size() } });
        });
        link.handle("file.close", [this](const LinkRequest &) {
            const QByteArray sum = QCryptographicHash::hash(contents, QCryptographicHash::Sha256);
            return opening.value("sha256").toByteArray() == sum
                ? ScriptedLink::accepted()
                : ScriptedLink::refused(5, "another hash");
        });
    }

    QCborMap opening;
    QVector<int> chunkSizes;
    QByteArray contents;
    std::function<void()> onChunk; // behind each
};

// Bytes that differ from place to place.
QByteArray someBytes(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = 1;
    for (char &byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = char(state >> 24);
    }
    return bytes;
}

QByteArray smallImage()
{
    ImageBuilder image;
    image.files = { { "/app/main.bin", someBytes(100000) }, { "/app/table.json", "{}" } };
    return image.build();
}

} // namespace

class tst_FileTransfer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void announces();
    void announcesFurtherFields();
    void announcementRefused_data();
    void announcementRefused();
    void announcementIsRepeatedIfNotDelivered();

    void wholeFile_data();
    void wholeFile();
    void operationsInOrder();
    void percentages_data();
    void percentages();
    void percentagesComeFromTheCaller();
    void withoutCallback();

    void failingStep_data();
    void failingStep();
    void chunkIsRepeatedIfNotDelivered();
    void wrongCountOfReceivedBytes_data();
    void wrongCountOfReceivedBytes();

    void sizeDiffersFromTheAnnouncedOne_data();
    void sizeDiffersFromTheAnnouncedOne();
    void fileChangesWhileItIsSent_data();
    void fileChangesWhileItIsSent();
    void fileThatCannotBeRead_data();
    void fileThatCannotBeRead();
    void unsoundImage_data();
    void unsoundImage();
    void expiredDevice();

private:
    QString write(const QByteArray &contents);
    bool send(const QString &path, FileType type = FileType::Unknown, bool verify = false);
    QString warning() const;

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<FakeDevice> m_device;
    std::unique_ptr<FileTaker> m_taker;
    std::unique_ptr<LogRecorder> m_log;
    QVector<int> m_percentages;
};

void tst_FileTransfer::init()
{
    LinkPolicy policy;
    policy.repeatPause = 0;
    Velmar::ModelControl::setLinkPolicy(policy);
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
    m_device = std::make_unique<FakeDevice>(Velmar::BizModel::s_DeviceConfig());
    m_taker = std::make_unique<FileTaker>(m_device->link());
    m_log = std::make_unique<LogRecorder>();
    m_percentages.clear();
}

void tst_FileTransfer::cleanup()
{
    m_log.reset();
    Velmar::ModelControl::setLinkPolicy(LinkPolicy());
}

QString tst_FileTransfer::write(const QByteArray &contents)
{
    const QString path = m_folder->filePath("upgrade");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size())
        qFatal("Cannot write the file to send");
    return path;
}

bool tst_FileTransfer::send(const QString &path, FileType type, bool verify)
{
    const auto callback = [this](bool isUsed, int percentage, const QString &text) {
        QVERIFY(isUsed);
        QCOMPARE(text, QString());
        m_percentages.append(percentage);
    };
    return File(m_device->handle()).writeFileBinary(path, type, FileId, callback, verify);
}

// The one line that a failed transfer logs, without its beginning.
QString tst_FileTransfer::warning() const
{
    const QStringList warnings = m_log->texts(QtWarningMsg);
    const QString start = "Cannot send file " + m_folder->filePath("upgrade") + " : ";
    if (warnings.size() != 1 || !warnings.first().startsWith(start))
        return warnings.join("\n");
    return warnings.first().mid(start.size());
}

void tst_FileTransfer::announces()
{
    s_FileInfo image;
    image.fileType = 13;
    image.fileName.clear();
    image.fileSize = 1234;
    s_FileInfo other;
    other.fileId = 1;
    other.fileSize = -1;
    QString errorText;

    QVERIFY(File(m_device->handle()).importFile({ image, other }, errorText));

    QCOMPARE(errorText, QString());
    QCOMPARE(m_device->link().operations(), QStringList("file.announce"));
    QCOMPARE(m_device->link().requests().first().timeout, 10000);
    QCOMPARE(QCborValue(m_device->link().requests().first().arguments).toDiagnosticNotation(),
             QString("{\"files\": ["
                     "{\"fileId\": 0, \"fileType\": 13, \"fileName\": \"\", \"fileSize\": 1234}, "
                     "{\"fileId\": 1, \"fileType\": 0, \"fileName\": \"N/A\", \"fileSize\": -1}"
                     "]}"));
}

void tst_FileTransfer::announcesFurtherFields()
{
    s_FileInfo image;
    image.fileVersion = -2;
    image.checksum = 0xFFFFFFFF;
    QString errorText;

    QVERIFY(File(m_device->handle()).importFile({ image }, errorText));

    QCOMPARE(QCborValue(m_device->link().requests().first().arguments).toDiagnosticNotation(),
             QString("{\"files\": ["
                     "{\"fileId\": 0, \"fileType\": 0, \"fileName\": \"N/A\", \"fileSize\": 0, "
                     "\"fileVersion\": -2, \"checksum\": 4294967295}"
                     "]}"));
}

void tst_FileTransfer::announcementRefused_data()
{
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QString>("text");

    QTest::newRow("refused") << int(Outcome::Answered)
                             << "the device refused file.announce with 1: scripted failure";
    QTest::newRow("timed out") << int(Outcome::TimedOut)
                               << "no answer to file.announce: scripted failure";
    QTest::newRow("lost") << int(Outcome::Lost)
                          << "connection lost during file.announce: scripted failure";
}

void tst_FileTransfer::announcementRefused()
{
    QFETCH(int, outcome);
    QFETCH(QString, text);
    LinkAnswer answer = ScriptedLink::failed(Outcome(outcome));
    answer.ack = 1;
    m_device->link().answer("file.announce", answer);
    QString errorText;

    QVERIFY(!File(m_device->handle()).importFile({ s_FileInfo() }, errorText));
    QCOMPARE(errorText, text);
    QCOMPARE(m_device->link().requests().size(), 1);
}

void tst_FileTransfer::announcementIsRepeatedIfNotDelivered()
{
    m_device->link().queue("file.announce", ScriptedLink::failed(Outcome::NotDelivered));
    QString errorText;
    QVERIFY(File(m_device->handle()).importFile({ s_FileInfo() }, errorText));
    QCOMPARE(m_device->link().requests().size(), 2);
}

void tst_FileTransfer::wholeFile_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QVector<int>>("chunkSizes");

    QTest::newRow("empty") << 0 << QVector<int>();
    QTest::newRow("one byte") << 1 << QVector<int> { 1 };
    QTest::newRow("a byte less than a chunk") << 65535 << QVector<int> { 65535 };
    QTest::newRow("a chunk") << 65536 << QVector<int> { 65536 };
    QTest::newRow("a byte more than a chunk") << 65537 << QVector<int> { 65536, 1 };
    QTest::newRow("several chunks") << 200000 << QVector<int> { 65536, 65536, 65536, 3392 };
}

void tst_FileTransfer::wholeFile()
{
    QFETCH(int, size);
    QFETCH(QVector<int>, chunkSizes);
    const QByteArray contents = someBytes(size);

    QVERIFY2(send(write(contents)), qPrintable(warning()));

    QCOMPARE(m_taker->contents, contents);
    QCOMPARE(m_taker->chunkSizes, chunkSizes);
    QCOMPARE(m_taker->opening.value("size").toInteger(), qint64(size));
    QCOMPARE(m_taker->opening.value("fileType").toInteger(), 0);
    QVERIFY(m_log->lines().isEmpty());
}

void tst_FileTransfer::operationsInOrder()
{
    QVERIFY(send(write("abc"), FileType::Upgrade));

    const auto requests = m_device->link().requests();
    QCOMPARE(m_device->link().operations(),
             QStringList({ "file.open", "file.data", "file.close" }));
    QCOMPARE(QCborValue(requests.at(0).arguments).toDiagnosticNotation(),
             QString("{\"fileType\": 13, \"size\": 3, \"sha256\": "
                     "h'ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad', "
                     "\"fileId\": 3}"));
    QCOMPARE(QCborValue(requests.at(1).arguments).toDiagnosticNotation(),
             QString("{\"offset\": 0, \"bytes\": h'616263', \"fileId\": 3}"));
    QCOMPARE(QCborValue(requests.at(2).arguments).toDiagnosticNotation(),
             QString("{\"fileId\": 3}"));
    QCOMPARE(requests.at(0).timeout, 10000);
    QCOMPARE(requests.at(1).timeout, 30000);
    QCOMPARE(requests.at(2).timeout, 120000);
}

void tst_FileTransfer::percentages_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QVector<int>>("percentages");

    QTest::newRow("empty") << 0 << QVector<int>();
    QTest::newRow("one byte") << 1 << QVector<int> { 100 };
    QTest::newRow("a byte more than a chunk") << 65537 << QVector<int> { 99, 100 };
    QTest::newRow("four chunks") << 262144 << QVector<int> { 25, 50, 75, 100 };
    QVector<int> all;
    for (int percentage = 0; percentage <= 100; ++percentage)
        all.append(percentage);
    QTest::newRow("more chunks than percentages") << 65536 * 205 << all;
}

void tst_FileTransfer::percentages()
{
    QFETCH(int, size);
    QFETCH(QVector<int>, percentages);
    QVERIFY(send(write(QByteArray(size, 'x'))));
    QCOMPARE(m_percentages, percentages);
}

void tst_FileTransfer::percentagesComeFromTheCaller()
{
    const QString path = write(someBytes(300000));
    QVector<QThread *> threads;
    bool hasReturned = false;
    bool wasLate = false;
    const auto callback = [&](bool, int, const QString &) {
        threads.append(QThread::currentThread());
        wasLate = hasReturned;
    };
    QVERIFY(
        File(m_device->handle()).writeFileBinary(path, FileType::Unknown, FileId, callback, false));
    hasReturned = true;
    QCoreApplication::processEvents();
    QCOMPARE(threads, QVector<QThread *>(5, QThread::currentThread()));
    QVERIFY(!wasLate);
}

void tst_FileTransfer::withoutCallback()
{
    QVERIFY(File(m_device->handle())
                .writeFileBinary(write("abc"), FileType::Unknown, FileId, nullptr, false));
    QCOMPARE(m_taker->contents, QByteArray("abc"));
}

void tst_FileTransfer::failingStep_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("operations");

    struct Step {
        const char *operation;
        QStringList operations;
    };
    const QVector<Step> steps {
        { "file.open", { "file.open" } },
        { "file.data", { "file.open", "file.data" } },
        { "file.close", { "file.open", "file.data", "file.close" } },
    };
    for (const Step &step : steps) {
        const auto row = [&step](const char *name, Outcome outcome, const char *text) {
            QTest::addRow("%s %s", step.operation, name)
                << QString(step.operation) << int(outcome) << QString(text).arg(step.operation)
                << step.operations;
        };
        row("refused", Outcome::Answered, "the device refused %1 with 5: scripted failure");
        row("timed out", Outcome::TimedOut, "no answer to %1: scripted failure");
        row("lost", Outcome::Lost, "connection lost during %1: scripted failure");
    }
}

void tst_FileTransfer::failingStep()
{
    QFETCH(QString, operation);
    QFETCH(int, outcome);
    QFETCH(QString, text);
    QFETCH(QStringList, operations);
    LinkAnswer answer = ScriptedLink::failed(Outcome(outcome));
    answer.ack = 5;
    m_device->link().queue(operation, answer);

    QVERIFY(!send(write("abc")));
    QCOMPARE(warning(), text);
    QCOMPARE(m_device->link().operations(), operations);
    QCOMPARE(m_percentages, operation == "file.close" ? QVector<int> { 100 } : QVector<int>());
}

void tst_FileTransfer::chunkIsRepeatedIfNotDelivered()
{
    const QByteArray contents = someBytes(150000);
    bool isCut = false;
    m_taker->onChunk = [this, &isCut] {
        if (!isCut)
            m_device->link().queue("file.data", ScriptedLink::failed(Outcome::NotDelivered));
        isCut = true;
    };
    QVERIFY(send(write(contents)));
    QCOMPARE(m_taker->contents, contents);
    QCOMPARE(m_device->link().openCount(), 1);
    QCOMPARE(m_device->link().operations(),
             QStringList({ "file.open", "file.data", "file.data", "file.data", "file.data",
                           "file.close" }));
    QCOMPARE(m_percentages, (QVector<int> { 43, 87, 100 }));
}

void tst_FileTransfer::wrongCountOfReceivedBytes_data()
{
    QTest::addColumn<QCborMap>("values");

    QTest::newRow("none") << QCborMap();
    QTest::newRow("fewer") << QCborMap { { "received", 2 } };
    QTest::newRow("more") << QCborMap { { "received", 4 } };
    QTest::newRow("text") << QCborMap { { "received", "3" } };
}

void tst_FileTransfer::wrongCountOfReceivedBytes()
{
    QFETCH(QCborMap, values);
    m_device->link().queue("file.data", ScriptedLink::accepted(values));
    QVERIFY(!send(write("abc")));
    QCOMPARE(warning(), QString("the device did not get the bytes at 0"));
}

void tst_FileTransfer::sizeDiffersFromTheAnnouncedOne_data()
{
    QTest::addColumn<int>("announcedId");
    QTest::addColumn<int>("announcedSize");
    QTest::addColumn<bool>("isSent");

    QTest::newRow("equal") << 3 << 5 << true;
    QTest::newRow("longer") << 3 << 4 << false;
    QTest::newRow("shorter") << 3 << 6 << false;
    QTest::newRow("another file was announced") << 4 << 4 << true;
}

void tst_FileTransfer::sizeDiffersFromTheAnnouncedOne()
{
    QFETCH(int, announcedId);
    QFETCH(int, announcedSize);
    QFETCH(bool, isSent);
    s_FileInfo announced;
    announced.fileId = announcedId;
    announced.fileSize = announcedSize;
    File file(m_device->handle());
    QString errorText;
    QVERIFY(file.importFile({ announced }, errorText));

    QCOMPARE(file.writeFileBinary(write("12345"), FileType::Unknown, FileId, nullptr, false),
             isSent);
    QCOMPARE(m_device->link().operations().contains("file.open"), isSent);
    if (!isSent)
        QCOMPARE(warning(), QString("it has 5 bytes, %1 were announced").arg(announcedSize));
}

void tst_FileTransfer::fileChangesWhileItIsSent_data()
{
    QTest::addColumn<int>("newSize");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isClosed"); // is the device told that it has the whole file?

    QTest::newRow("grows") << 150001 << "its size changed while it was read" << false;
    QTest::newRow("becomes shorter within the bytes to come")
        << 140000 << "it became shorter while it was read" << false;
    QTest::newRow("becomes shorter than what was sent")
        << 10 << "it became shorter while it was read" << false;
    QTest::newRow("keeps its size")
        << 150000 << "the device refused file.close with 5: another hash" << true;
}

void tst_FileTransfer::fileChangesWhileItIsSent()
{
    QFETCH(int, newSize);
    QFETCH(QString, text);
    QFETCH(bool, isClosed);
    const QString path = write(QByteArray(150000, 'a'));
    m_taker->onChunk = [&] {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.resize(newSize));
        QVERIFY(file.seek(newSize - 1));
        QCOMPARE(file.write("b"), qint64(1));
    };
    QVERIFY(!send(path));
    QCOMPARE(warning(), text);
    QCOMPARE(m_device->link().operations().contains("file.close"), isClosed);
}

void tst_FileTransfer::fileThatCannotBeRead_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("missing") << "no/such/file";
    QTest::newRow("folder") << "/";
    QTest::newRow("no path") << "";
    QTest::newRow("no regular file") << "/dev/null";
    QTest::newRow("pipe that nobody writes to") << "pipe";
}

void tst_FileTransfer::fileThatCannotBeRead()
{
    QFETCH(QString, path);
    if (path == "pipe") {
        path = m_folder->filePath("pipe");
        QCOMPARE(mkfifo(qPrintable(path), 0600), 0);
    }
    QVERIFY(!send(path));
    const QStringList warnings = m_log->texts(QtWarningMsg);
    QVERIFY(!warnings.isEmpty());
    QVERIFY(warnings.last().startsWith("Cannot send file " + path + " : "));
    QVERIFY(m_device->link().requests().isEmpty());
    QVERIFY(m_percentages.isEmpty());
}

void tst_FileTransfer::unsoundImage_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("verify");
    QTest::addColumn<bool>("isSent");

    QByteArray wrongSum = smallImage();
    wrongSum[wrongSum.size() - 1] = char(wrongSum.back() + 1);
    const QByteArray cutOff = smallImage().chopped(1);
    QTest::newRow("sound") << smallImage() << 13 << true << true;
    QTest::newRow("wrong sum") << wrongSum << 13 << true << false;
    QTest::newRow("cut off") << cutOff << 13 << true << false;
    QTest::newRow("with a byte behind it") << smallImage() + 'x' << 13 << true << false;
    QTest::newRow("empty") << QByteArray() << 13 << true << false;
    QTest::newRow("wrong sum, not to be checked") << wrongSum << 13 << false << true;
    QTest::newRow("no image, of another kind") << QByteArray("text") << 0 << true << true;
}

void tst_FileTransfer::unsoundImage()
{
    QFETCH(QByteArray, contents);
    QFETCH(int, type);
    QFETCH(bool, verify);
    QFETCH(bool, isSent);
    QCOMPARE(send(write(contents), FileType(type), verify), isSent);
    QCOMPARE(m_taker->contents, isSent ? contents : QByteArray());
    QCOMPARE(m_device->link().requests().isEmpty(), !isSent);
    if (!isSent)
        QVERIFY(warning().startsWith("it is no sound upgrade image: "));
}

void tst_FileTransfer::expiredDevice()
{
    const QString path = write("abc");
    m_device->expire();
    File file(m_device->handle());
    QString errorText;
    QVERIFY(!file.importFile({ s_FileInfo() }, errorText));
    QCOMPARE(errorText, QString("the device is gone"));
    QVERIFY(!send(path));
    QCOMPARE(warning(), QString("the device is gone"));
    QVERIFY(m_device->link().requests().isEmpty());
}

QTEST_GUILESS_MAIN(tst_FileTransfer)
#include "tst_filetransfer.moc"
