#include "controltext.h"
#include "progresstext.h"

#include "support/deviceprocess.h"
#include "support/imagebuilder.h"
#include "support/rawhost.h"

#include <velmarbizmodel/catalogue.h>

#include <QCborMap>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>

#include <sys/resource.h>

using namespace Velmar;
using namespace Velmar::Simulator;
using ProtoModel::Auxiliary::s_UpgradeCardParts;
using ProtoModel::Auxiliary::s_UpgradePercent;

namespace {

// Of this program alone: the port of the service is fixed.
const auto Address = QStringLiteral("127.0.83.1");
const QByteArray Boundary("----weasdashDsdesd");
const QByteArray UploadType = "Content-Type: multipart/form-data;boundary=" + Boundary + "\r\n";
const QByteArray PollType("Content-Type: application/x-www-form-urlencoded\r\n");
const QByteArray FileHead("Content-Disposition: form-data; name=\"file\"; filename=\"file.jpg\"\r\n"
                          "Content-Type: application/octet-stream\r\n");
const QByteArray
    TextHead("Content-Disposition: form-data; name=\"text\"; filename=\"text.text\"\r\n"
             "Content-Type: multipart/form-data\r\n");

const QByteArray
    NewerText(R"({"upgradeType":1,"filePath":"N/A","reboot":1,"deleteUpgradeFile":1,"parts":[)"
              R"({"type":1,"slotId":0,"boardId":0,"section":[{"code":257},{"code":261}]}]})");
const QByteArray OlderText(
    R"([{"deviceId":30465,"upgradeType":1,"filePath":"/p","reboot":1,"deleteUpgradeFile":1,)"
    R"("mainControl":[{"modelId":30465,"slotId":0,"sections":[{"code":12,"timeout":60}]}],)"
    R"("backPlane":[{"modelId":30497,"slotId":0,"sections":[{"code":13,"timeout":60}]}]}])");

const BizModel::s_DeviceConfig &model()
{
    return BizModel::Catalogue::builtin().deviceModels().first();
}

QByteArray image()
{
    ImageBuilder builder;
    builder.files = { { "/firmware/mcu.bin", QByteArray(5000, 'm') }, { "/empty-not", "x" } };
    return builder.build();
}

QByteArray part(const QByteArray &head, const QByteArray &body)
{
    return "--" + Boundary + "\r\n" + head + "\r\n" + body + "\r\n";
}

QByteArray upload(const QByteArray &parts, const QByteArray &type = UploadType)
{
    const QByteArray body = parts + "--" + Boundary + "--\r\n";
    return "POST /uploadUpgrade HTTP/1.1\r\nHost: device\r\n" + type
        + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

QByteArray upload(const QByteArray &file, const QByteArray &text, const QByteArray &type)
{
    return upload(part(FileHead, file) + part(TextHead, text), type);
}

const QByteArray Poll = "GET /getUpgradeRate HTTP/1.1\r\nHost: device\r\n" + PollType + "\r\n";

/*! Status and body of an answer, as in "200 ok"; of one that breaks off what came of it. */
QByteArray ask(const QByteArray &request)
{
    QTcpSocket socket;
    socket.connectToHost(Address, 8080);
    if (!socket.waitForConnected(5000))
        return "not listening";
    socket.write(request);
    QByteArray answer;
    while (socket.state() == QAbstractSocket::ConnectedState && socket.waitForReadyRead(5000))
        answer += socket.readAll();
    answer += socket.readAll();
    const int headEnd = answer.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return "no answer";
    return answer.split(' ').value(1) + ' ' + answer.mid(headEnd + 4);
}

} // namespace

/*! The simulated device's HTTP service. */
class tst_DeviceHttp : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<DeviceProcess> m_device;

    bool start(const QStringList &options)
    {
        const QStringList common { "--listen",     Address + ":0",
                                   "--state",      m_folder->filePath("state"),
                                   "--trace",      m_folder->filePath("trace"),
                                   "--install-ms", "0",
                                   "--restart-ms", "50" };
        return m_device->start(QStringLiteral(VELMAR_DEVICE_PROGRAM), common + options);
    }

    QByteArray installed(const QString &path) const
    {
        QFile file(m_folder->filePath("state/files") + path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QVector<QJsonObject> traced() const
    {
        QVector<QJsonObject> lines;
        QFile file(m_folder->filePath("trace"));
        if (!file.open(QIODevice::ReadOnly))
            return lines;
        for (const QByteArray &line : file.readAll().split('\n')) {
            const auto object = QJsonDocument::fromJson(line).object();
            if (object.value("road") == "http")
                lines.append(object);
        }
        return lines;
    }

private Q_SLOTS:
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        m_device = std::make_unique<DeviceProcess>();
    }
    void cleanup() { m_device.reset(); }

    void controlText_data()
    {
        QTest::addColumn<bool>("isOlder");
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("fault"); // empty: good

        const auto newer = [](const char *name, const QByteArray &from, const QByteArray &to,
                              const char *fault) {
            QTest::newRow(name) << false << QByteArray(NewerText).replace(from, to)
                                << QString(fault);
        };
        const auto older = [](const char *name, const QByteArray &from, const QByteArray &to,
                              const char *fault) {
            QTest::newRow(name) << true << QByteArray(OlderText).replace(from, to)
                                << QString(fault);
        };
        newer("newer", "", "", "");
        newer("not JSON", "}", "", "the control text is not JSON");
        newer("text behind", "]}]}", "]}]} x", "the control text is not JSON");
        newer("not an object", NewerText, "[]", "the control text has another value for an object");
        newer("key missing", "\"reboot\":1,", "", "\"reboot\" is missing");
        newer("unknown key", "\"reboot\":1,", "\"reboot\":1,\"x\":1,",
              "the control text has an unknown key");
        newer("key twice", "\"reboot\":1,", "\"reboot\":1,\"reboot\":1,",
              "a key of the control text is there twice");
        newer("another upgrade", "\"upgradeType\":1", "\"upgradeType\":2",
              "\"upgradeType\" is not 1");
        newer("a path", "N/A", "/p", "\"filePath\" is not \"N/A\"");
        newer("flag", "\"reboot\":1", "\"reboot\":2", "\"reboot\" is not 0 or 1");
        newer("flag as a text", "\"reboot\":1", "\"reboot\":\"1\"",
              "\"reboot\" is not a whole number of its width");
        newer("no parts", NewerText.mid(NewerText.indexOf("[{\"type")), "[]}",
              "\"parts\" is not a list with something in it");
        newer("slot too large", "\"slotId\":0", "\"slotId\":256",
              "\"slotId\" is not a whole number of its width");
        newer("negative board", "\"boardId\":0", "\"boardId\":-1",
              "\"boardId\" is not a whole number of its width");
        newer("code beyond 63 bits", "257", "18446744073709551615",
              "\"code\" is not a whole number of its width");
        newer("code with a fraction", "257", "257.0",
              "\"code\" is not a whole number of its width");
        older("older", "", "", "");
        older("not a list", OlderText, NewerText, "the control text is not a list of one element");
        older("two elements", "]}]}]", "]}]},{}]", "the control text is not a list of one element");
        older("another device", "\"deviceId\":30465", "\"deviceId\":30466",
              "\"deviceId\" is not the model of this device");
        older("no path", "/p", "", "\"filePath\" is not a path");
        older("another back plane", "30497", "30498", "\"backPlane\" is not for this device alone");
        older("a slot", "\"slotId\":0", "\"slotId\":1",
              "\"mainControl\" is not for this device alone");
        older("unknown code", "\"code\":12", "\"code\":257", "\"code\" is not one of this model");
        older("no time", "\"timeout\":60", "\"timeout\":0", "\"timeout\" is not above 0");
    }
    void controlText()
    {
        QFETCH(bool, isOlder);
        QFETCH(QByteArray, json);
        QFETCH(QString, fault);
        QString errorText;
        const auto control =
            ControlText::read(json.toStdString(), isOlder ? Generation::Older : Generation::Newer,
                              model(), errorText);
        QCOMPARE(errorText, fault);
        QCOMPARE(control.has_value(), fault.isEmpty());
        if (!control)
            return;
        QVERIFY(control->reboots && control->deletesImage);
        std::vector<quint16> codes;
        for (const auto &entry : control->parts)
            codes.insert(codes.end(), entry.order.codes.begin(), entry.order.codes.end());
        QCOMPARE(codes, (std::vector<quint16> { 257, 261 }));
    }

    void progressOfBothGenerations()
    {
        s_UpgradePercent progress;
        QCOMPARE(progressText(progress, Generation::Older, model()), std::string("[]"));
        QCOMPARE(progressText(progress, Generation::Newer, model()),
                 std::string(R"({"result":0,"rate":0,"subSections":{"rate":0},"parts":[]})"));
        progress.result = 1;
        progress.rate = 40;
        progress.subSections.rate = 40;
        s_UpgradeCardParts main;
        main.rate = 50;
        main.result = 1;
        main.section = { { 257, 80, 2 }, { 261, 20, 1 }, { 9999, 1, 1 } };
        s_UpgradeCardParts card = main;
        card.slotId = 1;
        progress.parts = { main, card };
        QCOMPARE(
            progressText(progress, Generation::Older, model()),
            std::string(
                R"([{"deviceId":30465,"result":1,"updateBaseSections":{"code":13,"rate":20,)"
                R"("type":1,"modelId":30465,"slotId":0},"updateSubSections":{"rate":40},)"
                R"("mainControl":[{"modelId":30465,"slotId":0,"sections":[{"code":12,"rate":80,)"
                R"("result":0}]}],"backPlane":[{"modelId":30497,"slotId":0,"sections":[)"
                R"({"code":13,"rate":20,"result":1}]}]}])"));
        progress.parts = { main };
        progress.parts.front().section.resize(1);
        QCOMPARE(progressText(progress, Generation::Newer, model()),
                 std::string(R"({"result":1,"rate":40,"subSections":{"rate":40},"parts":[)"
                             R"({"type":1,"slotId":0,"rate":50,"result":1,"section":[)"
                             R"({"code":257,"rate":80,"result":2}]}]})"));
        progress.result = 2;
        progress.parts.clear();
        const std::string done = progressText(progress, Generation::Older, model());
        QVERIFY(done.find(R"("result":0,)") != std::string::npos);
        QVERIFY(done.find(R"("mainControl":[],"backPlane":[])") != std::string::npos);
    }

    void upgrade_data()
    {
        QTest::addColumn<QString>("generation");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("done");

        QTest::newRow("newer")
            << "newer" << NewerText
            << QByteArray(R"(200 {"result":0,"rate":0,"subSections":{"rate":0},"parts":[]})")
            << QByteArray(R"(200 {"result":2,"rate":100,)");
        QTest::newRow("older") << "older" << OlderText << QByteArray("200 []")
                               << QByteArray(R"(200 [{"deviceId":30465,"result":0,)");
    }
    void upgrade()
    {
        QFETCH(QString, generation);
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, done);
        QVERIFY(start({ "--generation", generation }));
        QCOMPARE(m_device->ready().value("httpPort").toInt(), 8080);
        QTEST(ask(Poll), "before");
        QCOMPARE(ask(upload(image(), text, UploadType)), QByteArray("200 ok"));
        QTRY_VERIFY(ask(Poll).startsWith(done));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(m_device->nextEvent().value("restarts").toInt(), 1);
        QCOMPARE(installed("/firmware/mcu.bin"), QByteArray(5000, 'm'));
        QTEST(ask(Poll), "before");
        QTRY_VERIFY(QDir(m_folder->filePath("state/incoming")).isEmpty());

        const auto lines = traced();
        QCOMPARE(lines.at(1).value("method").toString(), QString("POST"));
        QCOMPARE(lines.at(1).value("path").toString(), QString("/uploadUpgrade"));
        QCOMPARE(lines.at(1).value("status").toInt(), 200);
        QCOMPARE(lines.at(1).value("headers").toObject().value("Content-Type").toString(),
                 QString("multipart/form-data;boundary=----weasdashDsdesd"));
        const auto parts = lines.at(1).value("parts").toArray();
        QCOMPARE(parts.size(), 2);
        QCOMPARE(parts.at(0).toObject().value("filename").toString(), QString("file.jpg"));
        QCOMPARE(parts.at(0).toObject().value("length").toInt(), image().size());
        QCOMPARE(parts.at(1).toObject().value("length").toInt(), text.size());
    }

    void refused_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QByteArray>("answer");

        const QByteArray good = part(FileHead, image()) + part(TextHead, NewerText);
        QTest::newRow("another path")
            << QByteArray(Poll).replace("Rate", "Rates") << QByteArray("404 ");
        QTest::newRow("poll of another type")
            << QByteArray(Poll).replace("application/x-www-form-urlencoded", "text/plain")
            << QByteArray("400 this is no poll");
        QTest::newRow("blank before the boundary")
            << upload(good, QByteArray(UploadType).replace(";b", "; b"))
            << QByteArray("400 the content is of another type");
        QTest::newRow("no multipart at all") << upload(good, "Content-Type: text/plain\r\n")
                                             << QByteArray("400 the content is of another type");
        QTest::newRow("parts in another order")
            << upload(part(TextHead, NewerText) + part(FileHead, image()))
            << QByteArray("400 part 1 is not \"file\", \"file.jpg\", application/octet-stream");
        QTest::newRow("file of another name")
            << upload(QByteArray(good).replace("file.jpg", "file.bin"))
            << QByteArray("400 part 1 is not \"file\", \"file.jpg\", application/octet-stream");
        QTest::newRow("file of another type")
            << upload(QByteArray(good).replace("application/octet-stream", "image/jpeg"))
            << QByteArray("400 part 1 is not \"file\", \"file.jpg\", application/octet-stream");
        QTest::newRow("text of another type")
            << upload(
                   part(FileHead, image())
                   + part(QByteArray(TextHead).replace("multipart/form-data", "application/json"),
                          NewerText))
            << QByteArray("400 part 2 is not \"text\", \"text.text\", multipart/form-data");
        QTest::newRow("one part") << upload(part(FileHead, image()))
                                  << QByteArray("400 the upload has not its two parts");
        QTest::newRow("three parts") << upload(good + part(TextHead, NewerText))
                                     << QByteArray("400 the upload has more than two parts");
        QTest::newRow("control text of the other generation")
            << upload(image(), OlderText, UploadType)
            << QByteArray("400 the control text has another value for an object");
        QTest::newRow("section that is not there")
            << upload(image(), QByteArray(NewerText).replace("257", "9999"), UploadType)
            << QByteArray("422 slot 0 has no section 0x270f");
        QTest::newRow("empty slot") << upload(
            image(), QByteArray(NewerText).replace("\"slotId\":0", "\"slotId\":99"), UploadType)
                                    << QByteArray("422 slot 99 is empty");
        QTest::newRow("no image") << upload("no image", NewerText, UploadType)
                                  << QByteArray("422 ");
    }
    void refused()
    {
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, answer);
        QVERIFY(start({ "--generation", "newer" }));
        const QByteArray got = ask(request);
        QVERIFY2(answer.endsWith(' ') ? got.startsWith(answer) : got == answer, got.constData());
        QVERIFY(ask(Poll).startsWith("200 {\"result\":0,"));
        QTRY_VERIFY(QDir(m_folder->filePath("state/incoming")).isEmpty());
    }

    void oneInstallationAtATime()
    {
        QVERIFY(start({ "--generation", "newer", "--fault", "never-ends=10" }));
        QCOMPARE(ask(upload(image(), NewerText, UploadType)), QByteArray("200 ok"));
        QCOMPARE(ask(upload(image(), NewerText, UploadType)),
                 QByteArray("409 an installation is running"));
    }

    void answerOfPolls_data()
    {
        QTest::addColumn<QStringList>("faults");
        QTest::addColumn<QByteArrayList>("answers");

        const QByteArray idle(R"({"result":0,"rate":0,"subSections":{"rate":0},"parts":[]})");
        const auto row = [](const char *name, const char *fault, const QByteArrayList &answers) {
            QTest::newRow(name) << QStringList { "--fault", fault } << answers;
        };
        row("broken", "http-broken", { "200 " + idle.chopped(1) });
        row("empty", "http-empty", { "200 " });
        row("huge", "http-huge=5",
            { "200 " + QByteArray(idle).replace("{\"result", "{\"padding\":\"xxxxx\",\"result") });
        row("truncated", "http-truncate", { "200 " + idle.left(idle.size() / 2) });
        row("the other generation from the second on", "http-switch=2",
            { "200 " + idle, "200 []", "200 []" });
        row("slow", "http-slow=30", { "200 " + idle });
        row("redirected, if nothing else is told", "poll-status", { "302 " + idle });
        row("another status", "poll-status=503", { "503 " + idle });
        row("unknown list that breaks off", "endless-documents", { "200 {\"unknown\":[1,1" });
        row("wrong types", "wrong-types",
            { R"(200 {"result":"0","rate":"0","subSections":{"rate":"0"},"parts":[]})" });
        row("absent keys", "absent-keys", { R"(200 {"subSections":{},"parts":[]})" });
    }
    void answerOfPolls()
    {
        QFETCH(QStringList, faults);
        QFETCH(QByteArrayList, answers);
        QVERIFY(start(QStringList { "--generation", "newer" } + faults));
        for (const QByteArray &answer : answers)
            QCOMPARE(ask(Poll), answer);
    }

    void faultsOfTheOlderGeneration_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QByteArray>("answer");

        QTest::newRow("unknown list that breaks off")
            << "endless-documents" << QByteArray("200 [{\"unknown\":[1,1");
        QTest::newRow("wrong types")
            << "wrong-types" << QByteArray(R"(200 [{"deviceId":"30465","result":"1",)");
        QTest::newRow("absent keys")
            << "absent-keys" << QByteArray(R"(200 [{"deviceId":30465,"updateBaseSections":)");
    }
    void faultsOfTheOlderGeneration()
    {
        QFETCH(QString, fault);
        QFETCH(QByteArray, answer);
        QVERIFY(start({ "--generation", "older", "--fault", "never-ends=10", "--fault", fault }));
        QCOMPARE(ask(upload(image(), OlderText, UploadType)), QByteArray("200 ok"));
        const QByteArray got = ask(Poll);
        QVERIFY2(got.startsWith(answer), got.constData());
    }

    void compressedAnswerIsHuge()
    {
        QVERIFY(start({ "--generation", "newer", "--fault", "gzip-bomb=3" }));
        QTcpSocket socket;
        socket.connectToHost(Address, 8080);
        socket.write(Poll); // which does not ask for compression
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        const QByteArray answer = socket.readAll();
        QVERIFY(answer.contains("Content-Encoding: gzip\r\n"));
        const QByteArray body = answer.mid(answer.indexOf("\r\n\r\n") + 4);
        QVERIFY2(body.size() < 20000, QByteArray::number(body.size()).constData());
        QTemporaryFile file;
        QVERIFY(file.open());
        file.write(body);
        file.close();
        QProcess unpack;
        unpack.setStandardInputFile(file.fileName());
        unpack.start("gzip", { "-dc" });
        QVERIFY(unpack.waitForFinished());
        const QByteArray text = unpack.readAllStandardOutput();
        QVERIFY(text.startsWith("    "));
        QCOMPARE(text.size() - text.trimmed().size(), 3 * 1024 * 1024);
        QVERIFY(text.endsWith(R"({"result":0,"rate":0,"subSections":{"rate":0},"parts":[]})"));
    }

    void streamedAnswerGoesOnUntilTheHostLeaves()
    {
        QVERIFY(start({ "--generation", "newer", "--fault", "endless-documents=streamed" }));
        QTcpSocket socket;
        socket.connectToHost(Address, 8080);
        socket.write(Poll);
        QByteArray answer;
        QTRY_VERIFY((answer += socket.readAll()).size() > 1000000);
        QVERIFY(answer.contains("\r\n\r\n{\"unknown\":[1,1,1,1,"));
        QVERIFY(answer.endsWith("1") || answer.endsWith(","));
        QVERIFY(socket.state() == QAbstractSocket::ConnectedState);
        socket.abort();
        QTRY_COMPARE(traced().size(), 1); // the device is done with it
    }

    void doneWithoutAnInstallation()
    {
        QVERIFY(start({ "--generation", "newer", "--fault", "lie" }));
        QCOMPARE(ask(upload(image(), NewerText, UploadType)), QByteArray("200 ok"));
        QTRY_VERIFY(ask(Poll).startsWith("200 {\"result\":2,"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
        QCOMPARE(installed("/firmware/mcu.bin"), QByteArray());
    }

    void oldResult()
    {
        QVERIFY(start(
            { "--generation", "newer", "--install-ms", "3600000", "--fault", "old-result=2:1" }));
        QVERIFY(ask(Poll).startsWith("200 {\"result\":0,"));
        QCOMPARE(ask(upload(image(), NewerText, UploadType)), QByteArray("200 ok"));
        QVERIFY(ask(Poll).startsWith("200 {\"result\":2,\"rate\":100,"));
        QVERIFY(ask(Poll).startsWith("200 {\"result\":1,"));
    }

    void silence_data()
    {
        QTest::addColumn<QString>("word");
        QTest::addColumn<bool>("isInstalled");

        QTest::newRow("in an upload") << "send" << false;
        QTest::newRow("in an installation") << "install" << true;
        QTest::newRow("behind it") << "done" << true;
        QTest::newRow("behind the restart") << "return" << true;
    }
    void silence()
    {
        QFETCH(QString, word);
        QVERIFY(start({ "--generation", "newer", "--fault", "silent=" + word }));
        const QByteArray request = upload(image(), NewerText, UploadType);
        QTcpSocket uploading;
        if (word == "send") {
            uploading.connectToHost(Address, 8080);
            uploading.write(request);
            QVERIFY(!uploading.waitForReadyRead(100));
            QCOMPARE(uploading.state(), QAbstractSocket::ConnectedState);
        } else {
            QCOMPARE(ask(request), QByteArray("200 ok"));
            QTRY_VERIFY(!installed("/firmware/mcu.bin").isEmpty());
        }
        if (word == "return") {
            QTRY_VERIFY(ask(Poll).startsWith("200 {\"result\":2,"));
            QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
            QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
        }
        QTcpSocket polling;
        polling.connectToHost(Address, 8080);
        polling.write(Poll);
        QVERIFY(!polling.waitForReadyRead(100));
        QCOMPARE(polling.state(), QAbstractSocket::ConnectedState);
        m_device->process().terminate();
        QVERIFY(m_device->waitForEnd());
        QCOMPARE(m_device->process().exitCode(), 0);
        QTRY_COMPARE(polling.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(polling.readAll(), QByteArray());
        QCOMPARE(uploading.readAll(), QByteArray());
        QTEST(!installed("/firmware/mcu.bin").isEmpty(), "isInstalled");
    }

    void unplugged_data()
    {
        QTest::addColumn<QString>("word");
        QTest::newRow("in an upload") << "send";
        QTest::newRow("in an installation") << "install";
        QTest::newRow("behind it") << "done";
    }
    void unplugged()
    {
        QFETCH(QString, word);
        QVERIFY(start({ "--generation", "newer", "--fault", "gone=" + word }));
        const QByteArray answer = ask(upload(image(), NewerText, UploadType));
        QCOMPARE(answer, QByteArray(word == "send" ? "no answer" : "200 ok"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(ask(Poll), QByteArray("not listening"));
        QCOMPARE(!installed("/firmware/mcu.bin").isEmpty(), word == "done");
    }

    void restartByItself_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::newRow("in an upload") << "restarts-sending=20";
        QTest::newRow("in an installation") << "restarts=20";
    }
    void restartByItself()
    {
        QFETCH(QString, fault);
        QVERIFY(start({ "--generation", "newer", "--fault", fault }));
        const QByteArray request = upload(image(), NewerText, UploadType);
        QCOMPARE(ask(request), QByteArray(fault == "restarts=20" ? "200 ok" : "no answer"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
        QVERIFY(ask(Poll).startsWith("200 {\"result\":0,"));
        QCOMPARE(installed("/firmware/mcu.bin"), QByteArray());
        QCOMPARE(ask(request), QByteArray("200 ok")); // it happens once
        QTRY_VERIFY(ask(Poll).startsWith("200 {\"result\":2,"));
    }

    void fullDiskIsTold()
    {
        // The limit of a file's size stands for the end of the disk: both cut a write short.
        const auto before = std::signal(SIGXFSZ, SIG_IGN); // by the device, too
        QVERIFY(start({ "--generation", "newer" }));
        std::signal(SIGXFSZ, before);
        const rlimit limit { 100000, 100000 };
        QCOMPARE(::prlimit(pid_t(m_device->process().processId()), RLIMIT_FSIZE, &limit, nullptr),
                 0);
        QCOMPARE(ask(upload(QByteArray(200000, 'x'), NewerText, UploadType)),
                 QByteArray("400 the file cannot be stored: the disk has no room for all of it"));
        QVERIFY(ask(Poll).startsWith("200 {\"result\":0,"));
        QTRY_VERIFY(QDir(m_folder->filePath("state/incoming")).isEmpty());
    }

    void stalledAnswerEndsWithTheDevice()
    {
        QVERIFY(start({ "--generation", "newer", "--fault", "http-stall" }));
        QTcpSocket socket;
        socket.connectToHost(Address, 8080);
        socket.write(Poll);
        QVERIFY(socket.waitForReadyRead(5000));
        QVERIFY(!socket.waitForReadyRead(100) || !socket.readAll().endsWith('}'));
        m_device->process().terminate();
        QVERIFY(m_device->waitForEnd());
        QCOMPARE(m_device->process().exitCode(), 0);
    }

    void faultyUploads()
    {
        QVERIFY(start({ "--generation", "newer", "--fault", "http-status=503" }));
        QCOMPARE(ask(upload(image(), NewerText, UploadType)), QByteArray("503 ok"));
        QVERIFY(ask(Poll).startsWith("200 {\"result\":0,"));
        m_device = std::make_unique<DeviceProcess>();
        QVERIFY(start({ "--generation", "newer", "--fault", "http-reset=50" }));
        QCOMPARE(ask(upload(image(), NewerText, UploadType)), QByteArray("no answer"));
        QVERIFY(ask(Poll).startsWith("200 {\"result\":0,"));
        // The reset is seen here before the device has cleaned up behind it.
        QTRY_VERIFY(QDir(m_folder->filePath("state/incoming")).isEmpty());
    }

    void failureBehindSuccess()
    {
        QVERIFY(start({ "--generation", "newer", "--fault", "http-fails-after-done" }));
        QCOMPARE(ask(upload(image(), NewerText, UploadType)), QByteArray("200 ok"));
        QByteArray answer;
        do {
            answer = ask(Poll);
        } while (answer.startsWith("200 {\"result\":1,"));
        QVERIFY2(answer.startsWith("200 {\"result\":2,"), answer.constData());
        QVERIFY(ask(Poll).startsWith("200 {\"result\":3,"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    }

    void restartWithUploadUnderWay()
    {
        QVERIFY(start({ "--generation", "newer" }));
        QTcpSocket half;
        half.connectToHost(Address, 8080);
        half.write(upload(QByteArray(100000, 'x'), NewerText, UploadType).left(50000));
        QVERIFY(half.waitForBytesWritten(5000));
        QCOMPARE(ask(upload(image(), NewerText, UploadType)), QByteArray("200 ok"));
        QTRY_VERIFY(ask(Poll).startsWith("200 {\"result\":2,"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
    }

    void twoDevicesDoNotShareAnAddress()
    {
        QVERIFY(start({ "--generation", "newer" }));
        DeviceProcess second;
        QVERIFY(!second.start(QStringLiteral(VELMAR_DEVICE_PROGRAM),
                              { "--listen", Address + ":0", "--generation", "older" }));
        QVERIFY(second.waitForEnd());
        QCOMPARE(second.process().readAllStandardError(),
                 QByteArray("velmar-device: The device cannot listen for HTTP on "
                            "127.0.83.1:8080.\n"));
        QCOMPARE(second.process().exitCode(), 1);
    }

    void versionQuery_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("answer"); // ack, version and brief; or what else came

        QTest::newRow("no HTTP service") << QStringList {} << "0 1.0.0.0 Strata S8";
        QTest::newRow("newer") << QStringList { "--generation", "newer" } << "0 1.0.0.0 Strata S8";
        QTest::newRow("older") << QStringList { "--generation", "older" } << "1";
        QTest::newRow("refused hardware")
            << QStringList { "--fault", "version-refused" } << "0 2.0.0.0 S1.T2";
        QTest::newRow("allowed hardware")
            << QStringList { "--fault", "version-allowed" } << "0 2.0.0.0 S2.T1";
        QTest::newRow("broken") << QStringList { "--fault", "version-broken" } << "0 not JSON";
        QTest::newRow("silent") << QStringList { "--fault", "version-silent" } << "dropped";
    }
    void versionQuery()
    {
        QFETCH(QStringList, options);
        QVERIFY(start(options));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port(), QHostAddress(Address)));
        const auto answer = host.ask(
            "command", { { "kind", 1 }, { "id", 10 }, { "group", 252 }, { "body", QByteArray() } });
        QString told = "dropped";
        if (answer) {
            told = QString::number(answer->ack);
            const auto body = answer->values.value("body").toByteArray();
            const auto json = QJsonDocument::fromJson(body);
            if (!body.isEmpty() && !json.isObject())
                told += " not JSON";
            else if (json.isObject())
                told += " " + json["version"].toString() + " " + json["brief"].toString();
        }
        QTEST(told, "answer");
        if (!answer)
            return;
        const auto other = host.ask(
            "command", { { "kind", 2 }, { "id", 10 }, { "group", 252 }, { "body", QByteArray() } });
        QVERIFY(other && other->ack == 1);
    }
};

QTEST_GUILESS_MAIN(tst_DeviceHttp)

#include "tst_devicehttp.moc"
