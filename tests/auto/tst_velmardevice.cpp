#include "support/deviceprocess.h"
#include "support/imagebuilder.h"
#include "support/rawhost.h"

#include <QCborArray>
#include <QCborMap>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>
#include <QUdpSocket>

#include <csignal>

using Velmar::SSProxy::decodeMessage;
using Velmar::SSProxy::encodeFrame;

namespace {

using Answer = std::optional<RawHost::Answer>;

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/*! What the device says of a section: "version" of part (type, slot) and code. */
QString sectionVersion(const QCborMap &versions, int type, int slotId, int code)
{
    const QCborArray parts = versions.value(QLatin1String("parts")).toArray();
    for (const QCborValue part : parts) {
        const QCborMap map = part.toMap();
        if (map.value(QLatin1String("type")).toInteger() != type
            || map.value(QLatin1String("slotId")).toInteger() != slotId)
            continue;
        const QCborArray sections = map.value(QLatin1String("section")).toArray();
        for (const QCborValue section : sections) {
            if (section.toMap().value(QLatin1String("code")).toInteger() == code)
                return section.toMap().value(QLatin1String("version")).toString();
        }
    }
    return QStringLiteral("no such section");
}

/*! Configures the main control's MCU (0x0101) alone. */
QCborMap mcuConfiguration()
{
    return RawHost::configuration({ { 1, 0, 0, { 0x0101 } } });
}

QByteArray smallImage(quint32 version = 0x02030405)
{
    ImageBuilder builder;
    builder.version = version;
    builder.files = { { "/app/mcu.bin", "the MCU's firmware" }, { "font12.dat", "glyphs" } };
    return builder.build();
}

qint64 resultOf(const Answer &progress)
{
    return progress ? progress->values.value(QLatin1String("result")).toInteger() : -1;
}

QList<QJsonObject> traceLines(const QString &path)
{
    QList<QJsonObject> lines;
    for (const QByteArray &line : contents(path).split('\n')) {
        if (!line.isEmpty())
            lines.append(QJsonDocument::fromJson(line).object());
    }
    return lines;
}

} // namespace

/*! The simulated device as a process, spoken to over raw sockets. */
class tst_VelmarDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // For the tests that leave nothing behind.
        m_shared = std::make_unique<DeviceProcess>();
        QVERIFY(m_sharedFolder.isValid());
        QVERIFY(m_shared->start(program(), { "--state", m_sharedFolder.path() }));
    }
    void cleanupTestCase() { m_shared.reset(); }
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>();
        m_device = std::make_unique<DeviceProcess>();
    }
    void cleanup()
    {
        m_device.reset();
        m_folder.reset();
    }

    void wrongOptions_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QByteArray>("sentence");

        QTest::newRow("unknown option")
            << QStringList { "--colour", "red" }
            << QByteArray(
                   "velmar-device: There is no option \"--colour\". See velmar-device --help\n");
        QTest::newRow("stray word") << QStringList {
            "stray"
        } << QByteArray("velmar-device: Unexpected argument \"stray\". See velmar-device --help\n");
        QTest::newRow("address beyond loopback")
            << QStringList { "--listen", "192.168.1.1:9720" }
            << QByteArray("velmar-device: --listen: \"192.168.1.1:9720\" is not an IPv4 loopback "
                          "address (127.0.0.0/8), with or without a port. See velmar-device "
                          "--help\n");
        QTest::newRow("unknown fault")
            << QStringList { "--fault", "explode" }
            << QByteArray("velmar-device: --fault: There is no fault \"explode\"; the faults are "
                          "refuse-announce, cut-transfer, refuse-configure, drop-progress, "
                          "refuse-progress, install-fails, never-ends, power-cut, refuse-restart, "
                          "no-return, slow-link, register-ack, register-silent, register-cut, "
                          "register-not-ready, register-slow, version-refused, version-allowed, "
                          "version-broken, version-silent, http-status, http-reset, http-slow, "
                          "http-stall, http-truncate, http-broken, http-empty, http-huge, "
                          "http-switch, http-fails-after-done, endless-documents, gzip-bomb, "
                          "poll-status, wrong-types, absent-keys, brick, lie, old-result, silent, "
                          "gone, restarts, restarts-sending. See velmar-device --help\n");
        QTest::newRow("unknown generation")
            << QStringList { "--generation", "oldest" }
            << QByteArray("velmar-device: --generation: \"oldest\" is none of older, newer, none. "
                          "See velmar-device --help\n");
        QTest::newRow("unknown model")
            << QStringList { "--model", "Nimbus" }
            << QByteArray("velmar-device: There is no device model \"Nimbus\"; the catalogue has "
                          "Strata S8 (0x7701), Strata S16 (0x7702).\n");
    }
    void wrongOptions()
    {
        QFETCH(QStringList, options);
        QProcess process;
        process.start(program(), options);
        QVERIFY(process.waitForFinished(5000));
        QCOMPARE(process.exitCode(), 64);
        QTEST(process.readAllStandardError(), "sentence");
        QCOMPARE(process.readAllStandardOutput(), QByteArray());
    }

    void brokenCatalogueIsTold()
    {
        const QString path = m_folder->filePath("models.json");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("{\n  \"catalogueVersion\": 2\n}\n");
        file.close();
        QProcess process;
        process.start(program(), { "--catalogue", path });
        QVERIFY(process.waitForFinished(5000));
        QCOMPARE(process.exitCode(), 64);
        QVERIFY(process.readAllStandardError().contains("models.json:1: "));
    }

    void showsTextsAndEnds_data()
    {
        QTest::addColumn<QString>("option");
        QTest::addColumn<QByteArray>("text");

        QTest::newRow("help lists options") << "--help" << QByteArray("--heartbeat-ms MS");
        QTest::newRow("help lists faults") << "-h" << QByteArray("\n  cut-transfer[=PERCENT] ");
        QTest::newRow("version") << "--version" << QByteArray("velmar-device 0.1.0\n");
    }
    void showsTextsAndEnds()
    {
        QFETCH(QString, option);
        QFETCH(QByteArray, text);
        QProcess process;
        process.start(program(), { option });
        QVERIFY(process.waitForFinished(5000));
        QCOMPARE(process.exitCode(), 0);
        QVERIFY2(process.readAllStandardOutput().contains(text), text.constData());
    }

    void readyLine()
    {
        QVERIFY(start({ "--model", "0x7702", "--serial", "S-1", "--listen", "127.0.0.7:0" }));
        const QJsonObject &ready = m_device->ready();
        QCOMPARE(ready.value("address").toString(), QString("127.0.0.7"));
        QVERIFY(ready.value("port").toInt() > 0);
        QVERIFY(ready.value("probePort").toInt() > 0);
        QCOMPARE(ready.value("model").toString(), QString("Strata S16"));
        QCOMPARE(ready.value("modelId").toInt(), 0x7702);
        QCOMPARE(ready.value("serial").toString(), QString("S-1"));
        QCOMPARE(ready.value("restarts").toInt(-1), 0);

        RawHost host;
        QVERIFY(host.connectTo(m_device->port(), QHostAddress("127.0.0.7")));
        QVERIFY(host.ask("ping"));
    }

    void probeCanBeOff()
    {
        QVERIFY(start({ "--probe-port", "off" }));
        QVERIFY(m_device->ready().value("probePort").isNull());
    }

    void endsCleanly_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("terminated") << SIGTERM;
        QTest::newRow("interrupted") << SIGINT;
    }
    void endsCleanly()
    {
        QFETCH(int, signal);
        QVERIFY(start({}));
        ::kill(pid_t(m_device->process().processId()), signal);
        QVERIFY(m_device->waitForEnd());
        QCOMPARE(m_device->process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_device->process().exitCode(), 0);
        QCOMPARE(m_device->process().readAllStandardError(), QByteArray());
    }

    void stateFolderHasOneDevice()
    {
        QVERIFY(start({}));
        DeviceProcess second;
        QVERIFY(!second.start(program(), { "--state", statePath() }));
        QVERIFY(second.waitForEnd());
        QCOMPARE(second.process().exitCode(), 1);
        QCOMPARE(second.process().readAllStandardError(),
                 QString("velmar-device: The state folder \"%1\" is in use by another device.\n")
                     .arg(statePath())
                     .toUtf8());
    }

    void takenPortIsTold()
    {
        QVERIFY(start({}));
        DeviceProcess second;
        QVERIFY(!second.start(program(),
                              { "--listen", QString("127.0.0.1:%1").arg(m_device->port()) }));
        QVERIFY(second.waitForEnd());
        QCOMPARE(second.process().exitCode(), 1);
        QCOMPARE(second.process().readAllStandardError(),
                 QString("velmar-device: The device cannot listen on 127.0.0.1:%1: The bound "
                         "address is already in use.\n")
                     .arg(m_device->port())
                     .toUtf8());
    }

    void helloTellsModelAndCards()
    {
        QVERIFY(start({ "--card", "5=SI-D2S4 DisplayPort and SDI input card:2", "--card",
                        "2=0x7811", "--name", "Hall 3", "--serial", "S-1" }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        const Answer answer = host.ask("hello");
        QVERIFY(answer);
        QCOMPARE(answer->ack, quint16(0));
        const QCborArray cards { QCborMap { { QLatin1String("slotId"), 2 },
                                            { QLatin1String("modelId"), 0x7811 },
                                            { QLatin1String("boardId"), 1 } },
                                 QCborMap { { QLatin1String("slotId"), 5 },
                                            { QLatin1String("modelId"), 0x7802 },
                                            { QLatin1String("boardId"), 2 } } };
        const QCborMap expected { { QLatin1String("protocol"), 1 },
                                  { QLatin1String("modelId"), 0x7701 },
                                  { QLatin1String("serial"), QLatin1String("S-1") },
                                  { QLatin1String("name"), QLatin1String("Hall 3") },
                                  { QLatin1String("cards"), cards } };
        QCOMPARE(answer->values, expected);
    }

    void versionsOfNewDevice()
    {
        QVERIFY(start({ "--card", "3=0x7802:2" }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        const Answer answer = host.ask("version.read");
        QVERIFY(answer);
        QCOMPARE(answer->values.value(QLatin1String("version")).toString(), QString("1.0.0.0"));
        QCOMPARE(answer->values.value(QLatin1String("brief")).toString(), QString("Strata S8"));
        const QCborArray parts = answer->values.value(QLatin1String("parts")).toArray();
        QCOMPARE(parts.size(), 3); // main control, back plane, one card
        const auto numbers = [&parts](int index) {
            const QCborMap map = parts.at(index).toMap();
            return QVector<qint64> { map.value(QLatin1String("type")).toInteger(),
                                     map.value(QLatin1String("slotId")).toInteger(),
                                     map.value(QLatin1String("modelId")).toInteger(),
                                     map.value(QLatin1String("section")).toArray().size() };
        };
        QCOMPARE(numbers(0), (QVector<qint64> { 1, 0, 0x7701, 4 }));
        QCOMPARE(numbers(1), (QVector<qint64> { 2, 0, 0x7721, 1 }));
        QCOMPARE(numbers(2), (QVector<qint64> { 3, 3, 0x7802, 2 }));
        QCOMPARE(sectionVersion(answer->values, 1, 0, 0x0110), QString("1.1.0.0")); // fileVersion
        QCOMPARE(sectionVersion(answer->values, 3, 3, 0x0323), QString("1.0.0.0"));
        const QCborMap sdi =
            parts.at(2).toMap().value(QLatin1String("section")).toArray().at(1).toMap();
        QCOMPARE(sdi.value(QLatin1String("brief")).toString(), QString("SDI"));
    }

    void fileVersionCanBeSet()
    {
        QVERIFY(start({ "--file-version", "7.0.0.1" }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        const Answer answer = host.ask("version.read");
        QVERIFY(answer);
        QCOMPARE(sectionVersion(answer->values, 1, 0, 0x0110), QString("7.0.0.1"));
    }

    void refusedRequests_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QCborMap>("arguments");
        QTest::addColumn<int>("ack");
        QTest::addColumn<QString>("error");

        const QCborMap file { { QLatin1String("fileId"), 0 },
                              { QLatin1String("fileType"), 13 },
                              { QLatin1String("fileName"), QLatin1String("") },
                              { QLatin1String("fileSize"), 600 } };
        QCborMap otherType = file;
        otherType[QLatin1String("fileType")] = 12;
        QCborMap wideId = file;
        wideId[QLatin1String("fileId")] = qint64(1) << 31;
        const auto announcement = [](const QCborArray &files) {
            return QCborMap { { QLatin1String("files"), files } };
        };
        QCborMap noReboot = mcuConfiguration();
        noReboot.remove(QLatin1String("reboot"));

        QTest::newRow("operation of a later device")
            << "device.dance" << QCborMap() << 2 << "unknown operation \"device.dance\"";
        QTest::newRow("operation without a name")
            << "" << QCborMap() << 2 << "unknown operation \"\"";
        QTest::newRow("pause of unknown length") << "heartbeat.pause" << QCborMap() << 3
                                                 << "\"milliseconds\" is not a whole number in "
                                                    "its width";
        QTest::newRow("negative pause")
            << "heartbeat.pause" << QCborMap { { QLatin1String("milliseconds"), -1 } } << 3
            << "\"milliseconds\" is not a whole number in its width";
        QTest::newRow("nothing announced")
            << "file.announce" << announcement({}) << 3 << "no file is announced";
        QTest::newRow("announced files are no list")
            << "file.announce" << QCborMap { { QLatin1String("files"), 5 } } << 3
            << "\"files\" is not an array of maps";
        QTest::newRow("announced file is no map")
            << "file.announce" << announcement({ 5 }) << 3 << "\"files\" is not an array of maps";
        QTest::newRow("announced twice")
            << "file.announce" << announcement({ file, file }) << 3 << "file 0 is announced twice";
        QTest::newRow("file of another type") << "file.announce" << announcement({ otherType }) << 1
                                              << "files of type 12 are not taken";
        QTest::newRow("file id of 33 bits") << "file.announce" << announcement({ wideId }) << 3
                                            << "\"fileId\" is not a whole number in its width";
        QTest::newRow("open without announcement")
            << "file.open"
            << QCborMap { { QLatin1String("fileId"), 0 },
                          { QLatin1String("fileType"), 13 },
                          { QLatin1String("size"), 600 },
                          { QLatin1String("sha256"), QByteArray(32, 'x') } }
            << 4 << "file 0 is not announced";
        QTest::newRow("data without open")
            << "file.data"
            << QCborMap { { QLatin1String("fileId"), 0 },
                          { QLatin1String("offset"), 0 },
                          { QLatin1String("bytes"), QByteArray("x") } }
            << 4 << "no transfer of file 0 is open";
        QTest::newRow("data that is text")
            << "file.data"
            << QCborMap { { QLatin1String("fileId"), 0 },
                          { QLatin1String("offset"), 0 },
                          { QLatin1String("bytes"), QLatin1String("x") } }
            << 3 << "\"bytes\" is not bytes";
        QTest::newRow("close without open")
            << "file.close" << QCborMap { { QLatin1String("fileId"), 0 } } << 4
            << "no transfer of file 0 is open";
        QTest::newRow("install without an image")
            << "upgrade.configure" << mcuConfiguration() << 4 << "no image waits to be installed";
        QTest::newRow("install without saying whether to reboot")
            << "upgrade.configure" << noReboot << 3
            << "\"reboot\" is not a whole number in its width";
        QTest::newRow("install on nothing")
            << "upgrade.configure" << RawHost::configuration({}) << 3 << "\"parts\" is empty";
        QTest::newRow("install on an empty slot")
            << "upgrade.configure" << RawHost::configuration({ { 3, 9, 1, { 0x0301 } } }) << 1
            << "slot 9 is empty";
        QTest::newRow("install on another board")
            << "upgrade.configure" << RawHost::configuration({ { 3, 1, 2, { 0x0301 } } }) << 1
            << "slot 1 has board 1, not 2";
        QTest::newRow("install an unknown section")
            << "upgrade.configure" << RawHost::configuration({ { 3, 1, 1, { 0x0301, 0x0399 } } })
            << 1 << "slot 1 has no section 0x0399";
        QTest::newRow("install a section twice")
            << "upgrade.configure" << RawHost::configuration({ { 3, 1, 1, { 0x0301, 0x0301 } } })
            << 1 << "section 0x0301 of slot 1 is ordered twice";
        QTest::newRow("install a section twice, under another type")
            << "upgrade.configure"
            << RawHost::configuration({ { 1, 0, 0, { 0x0101 } }, { 2, 0, 0, { 0x0101 } } }) << 1
            << "section 0x0101 of slot 0 is ordered twice";
        QTest::newRow("install on a slot once more")
            << "upgrade.configure"
            << RawHost::configuration({ { 1, 0, 0, { 0x0101 } }, { 2, 0, 0, {} } }) << 1
            << "slot 0 is ordered once more, without a section";
        QTest::newRow("install a section 20,000 times")
            << "upgrade.configure"
            << RawHost::configuration({ { 1, 0, 0, QVector<int>(20000, 0x0101) } }) << 1
            << "section 0x0101 of slot 0 is ordered twice";
        QTest::newRow("operation with the longest name")
            << QString(1048535, 'x') << QCborMap() << 2
            << "unknown operation \"" + QString(64, 'x') + "...\"";
        QTest::newRow("slot of 9 bits")
            << "upgrade.configure" << RawHost::configuration({ { 3, 257, 1, { 0x0301 } } }) << 3
            << "\"slotId\" is not a whole number in its width";
        QTest::newRow("section code of 17 bits")
            << "upgrade.configure" << RawHost::configuration({ { 1, 0, 0, { 0x10101 } } }) << 3
            << "\"code\" is not a whole number in its width";
        QTest::newRow("shutdown mode that the device has not")
            << "device.shutdown" << QCborMap { { QLatin1String("mode"), 1 } } << 1
            << "there is no shutdown mode 1";
        QTest::newRow("shutdown without a mode") << "device.shutdown" << QCborMap() << 3
                                                 << "\"mode\" is not a whole number in its width";
    }
    void refusedRequests()
    {
        QFETCH(QString, operation);
        QFETCH(QCborMap, arguments);
        RawHost host;
        QVERIFY(host.connectTo(m_shared->port()));
        const Answer answer = host.ask(operation, arguments);
        QVERIFY(answer);
        QTEST(int(answer->ack), "ack");
        QTEST(answer->errorText, "error");
        QCOMPARE(answer->values, QCborMap());
        const Answer next = host.ask("ping");
        QVERIFY(next);
        QCOMPARE(next->ack, quint16(0));
    }

    void brokenFramesEndTheConnection_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("frame of no length") << QByteArray::fromHex("00000000");
        QTest::newRow("frame of a byte too many") << QByteArray::fromHex("00100001");
        QTest::newRow("not CBOR") << QByteArray::fromHex("00000001FF");
        QTest::newRow("not a map") << QByteArray::fromHex("0000000101");
        QTest::newRow("key twice") << QByteArray::fromHex("0000001ba4656c6162656c01"
                                                          "626f706470696e67"
                                                          "626f706178"
                                                          "6461726773a0");
        QTest::newRow("map without a label")
            << encodeFrame({ { QLatin1String("op"), QLatin1String("ping") },
                             { QLatin1String("args"), QCborMap() } });
        QTest::newRow("label of 33 bits")
            << encodeFrame({ { QLatin1String("label"), qint64(1) << 32 },
                             { QLatin1String("op"), QLatin1String("ping") },
                             { QLatin1String("args"), QCborMap() } });
        QTest::newRow("arguments that are a list")
            << encodeFrame({ { QLatin1String("label"), 1 },
                             { QLatin1String("op"), QLatin1String("ping") },
                             { QLatin1String("args"), QCborArray() } });
    }
    void brokenFramesEndTheConnection()
    {
        QFETCH(QByteArray, bytes);
        RawHost broken;
        RawHost other;
        QVERIFY(broken.connectTo(m_shared->port()));
        QVERIFY(other.connectTo(m_shared->port()));
        QVERIFY(other.ask("ping"));
        broken.write(bytes);
        QVERIFY(broken.waitForEnd());
        QVERIFY(other.ask("ping"));
    }

    void requestsInAdvanceAreAnsweredInOrder()
    {
        RawHost host;
        QVERIFY(host.connectTo(m_shared->port()));
        for (int i = 0; i < 100; ++i)
            host.send(i % 2 == 0 ? "ping" : "hello");
        for (quint32 label = 1; label <= 100; ++label) {
            const Answer answer = host.receive();
            QVERIFY(answer);
            QCOMPARE(answer->label, label);
        }
    }

    void answersLeftUnreadAreNotLost()
    {
        RawHost host;
        QVERIFY(host.connectTo(m_shared->port()));
        constexpr quint32 Count = 6000; // about 10 MB of answers: more than the sockets hold
        for (quint32 i = 0; i < Count; ++i)
            host.send("version.read");
        for (quint32 label = 1; label <= Count; ++label) {
            const Answer answer = host.receive();
            QVERIFY(answer);
            QCOMPARE(answer->label, label);
        }
    }

    void wholeUpgrade()
    {
        QVERIFY(start({ "--install-ms", "20", "--restart-ms", "10" }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        const Answer closed = host.sendImage(smallImage(), 100);
        QVERIFY(closed);
        QCOMPARE(closed->ack, quint16(0));

        const Answer configured = host.ask(
            "upgrade.configure",
            RawHost::configuration({ { 1, 0, 0, { 0x0101, 0x0105 } }, { 3, 1, 1, { 0x0302 } } }));
        QVERIFY(configured);
        QCOMPARE(configured->ack, quint16(0));
        QCOMPARE(configured->values, (QCborMap { { QLatin1String("run"), 1 } }));
        const Answer done = host.waitForInstallation();
        QVERIFY(done);
        const auto section = [](int code) {
            return QCborMap { { QLatin1String("code"), code },
                              { QLatin1String("rate"), 100 },
                              { QLatin1String("result"), 2 } };
        };
        const auto card = [](int type, int slotId, const QCborArray &sections) {
            return QCborMap { { QLatin1String("type"), type },
                              { QLatin1String("slotId"), slotId },
                              { QLatin1String("rate"), 100 },
                              { QLatin1String("result"), 2 },
                              { QLatin1String("section"), sections } };
        };
        const QCborMap expected {
            { QLatin1String("run"), 1 },
            { QLatin1String("result"), 2 },
            { QLatin1String("rate"), 100 },
            { QLatin1String("subSections"), QCborMap { { QLatin1String("rate"), 100 } } },
            { QLatin1String("parts"),
              QCborArray { card(1, 0, { section(0x0101), section(0x0105) }),
                           card(3, 1, { section(0x0302) }) } },
        };
        QCOMPARE(done->values, expected);
        QCOMPARE(installedFiles(), (QStringList { "app/mcu.bin", "font12.dat" }));
        QCOMPARE(installed("app/mcu.bin"), QByteArray("the MCU's firmware"));
        QCOMPARE(installed("font12.dat"), QByteArray("glyphs"));
        const Answer before = host.ask("version.read");
        QVERIFY(before);
        QCOMPARE(sectionVersion(before->values, 1, 0, 0x0101), QString("1.0.0.0"));

        const Answer accepted = host.ask("device.shutdown", { { QLatin1String("mode"), 0 } });
        QVERIFY(accepted);
        QCOMPARE(accepted->ack, quint16(0));
        QVERIFY(host.waitForEnd());
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        const QJsonObject ready = m_device->nextEvent();
        QCOMPARE(ready.value("event").toString(), QString("ready"));
        QCOMPARE(ready.value("port").toInt(), int(m_device->port()));
        QCOMPARE(ready.value("restarts").toInt(), 1);

        QVERIFY(host.connectTo(m_device->port()));
        const Answer after = host.ask("version.read");
        QVERIFY(after);
        QCOMPARE(sectionVersion(after->values, 1, 0, 0x0101), QString("2.3.4.5"));
        QCOMPARE(sectionVersion(after->values, 2, 0, 0x0105), QString("2.3.4.5")); // back plane
        QCOMPARE(sectionVersion(after->values, 3, 1, 0x0302), QString("2.3.4.5"));
        QCOMPARE(sectionVersion(after->values, 3, 1, 0x0301), QString("1.0.0.0")); // not ordered
        QCOMPARE(sectionVersion(after->values, 1, 0, 0x0110), QString("2.3.4.5")); // fileVersion
        QCOMPARE(after->values.value(QLatin1String("version")).toString(), QString("2.3.4.5"));
        const Answer idle = host.ask("upgrade.progress");
        QCOMPARE(resultOf(idle), 0);
        QCOMPARE(idle->values.value(QLatin1String("run")).toInteger(), qint64(1));
        const Answer again = host.ask("upgrade.configure", mcuConfiguration());
        QVERIFY(again);
        QCOMPARE(again->errorText, QString("no image waits to be installed"));
        QCOMPARE(QDir(statePath() + "/images").entryList(QDir::Files), QStringList());

        m_device->process().terminate();
        QVERIFY(m_device->waitForEnd());
        QCOMPARE(m_device->process().exitCode(), 0);
        QCOMPARE(m_device->process().readAllStandardError(), QByteArray());
    }

    void keptImageIsInstalledAgain()
    {
        QVERIFY(start({ "--install-ms", "0" }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        QVERIFY(host.sendImage(smallImage()));
        const QCborMap keeping = RawHost::configuration({ { 1, 0, 0, { 0x0101 } } }, false);
        for (qint64 run = 1; run <= 2; ++run) {
            const Answer configured = host.ask("upgrade.configure", keeping);
            QVERIFY(configured);
            QCOMPARE(configured->values.value(QLatin1String("run")).toInteger(), run);
            QCOMPARE(resultOf(host.waitForInstallation()), 2);
        }
    }

    void busyWhileInstalling()
    {
        QVERIFY(start({ "--fault", "never-ends=0" }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        QVERIFY(host.sendImage(smallImage()));
        QVERIFY(host.ask("upgrade.configure", mcuConfiguration()));
        const Answer second = host.ask("upgrade.configure", mcuConfiguration());
        QVERIFY(second);
        QCOMPARE(second->ack, quint16(4));
        QCOMPARE(second->errorText, QString("an installation is running"));
        const Answer transfer = host.sendImage(smallImage());
        QVERIFY(transfer);
        QCOMPARE(transfer->ack, quint16(4));
        QCOMPARE(resultOf(host.ask("upgrade.progress")), 1);
    }

    void restartBreaksInstallationOff()
    {
        QVERIFY(start({ "--fault", "never-ends=0", "--restart-ms", "0" }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        QVERIFY(host.sendImage(smallImage()));
        QVERIFY(host.ask("upgrade.configure", mcuConfiguration()));
        QVERIFY(host.ask("device.shutdown", { { QLatin1String("mode"), 0 } }));
        QVERIFY(host.waitForEnd());
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
        QVERIFY(host.connectTo(m_device->port()));
        QCOMPARE(resultOf(host.ask("upgrade.progress")), 0);
        QCOMPARE(installedFiles(), QStringList());
        const Answer again =
            host.ask("upgrade.configure", mcuConfiguration()); // the image is there
        QVERIFY(again);
        QCOMPARE(again->values.value(QLatin1String("run")).toInteger(), qint64(2));
    }

    void progressOfPartsAndSections()
    {
        QVERIFY(start({ "--install-ms", "1", "--fault", "never-ends=60" }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        QVERIFY(host.sendImage(smallImage()));
        QVERIFY(host.ask("upgrade.configure",
                         RawHost::configuration({ { 1, 0, 0, { 0x0101, 0x0102 } },
                                                  { 3, 1, 1, { 0x0301 } },
                                                  { 4, 4, 1, { 0x0401, 0x0402 } } })));
        QTRY_COMPARE(host.ask("upgrade.progress")->values.value(QLatin1String("rate")).toInteger(),
                     qint64(60));
        const auto section = [](int code, int rate, int result) {
            return QCborMap { { QLatin1String("code"), code },
                              { QLatin1String("rate"), rate },
                              { QLatin1String("result"), result } };
        };
        const auto card = [](int type, int slotId, int rate, int result,
                             const QCborArray &sections) {
            return QCborMap { { QLatin1String("type"), type },
                              { QLatin1String("slotId"), slotId },
                              { QLatin1String("rate"), rate },
                              { QLatin1String("result"), result },
                              { QLatin1String("section"), sections } };
        };
        // Three of five sections are done, and the next has just got its turn.
        const QCborMap expected {
            { QLatin1String("run"), 1 },
            { QLatin1String("result"), 1 },
            { QLatin1String("rate"), 60 },
            { QLatin1String("subSections"), QCborMap { { QLatin1String("rate"), 60 } } },
            { QLatin1String("parts"),
              QCborArray { card(1, 0, 100, 2, { section(0x0101, 100, 2), section(0x0102, 100, 2) }),
                           card(3, 1, 100, 2, { section(0x0301, 100, 2) }),
                           card(4, 4, 0, 1, { section(0x0401, 0, 1), section(0x0402, 0, 0) }) } },
        };
        QCOMPARE(host.ask("upgrade.progress")->values, expected);
    }

    void badImageIsRefused_data()
    {
        QTest::addColumn<QByteArray>("image");
        QTest::addColumn<QString>("error"); // its beginning

        QByteArray flipped = smallImage();
        flipped[256 + 2 * 264] = 'T'; // was a 't'
        QTest::newRow("flipped bit") << flipped << "the sum is 0x";
        QTest::newRow("cut off") << smallImage().left(700) << "the data length is ";
        QTest::newRow("too short for an image") << QByteArray("short") << "the file has 5 bytes,";
        ImageBuilder other;
        other.modelId = 0x7702;
        other.files = { { "a", "b" } };
        QTest::newRow("for another model")
            << other.build() << "the image is for model 0x7702, this device is a 0x7701";
        QTest::newRow("without a file") << ImageBuilder().build() << "the image has no files";
        ImageBuilder placeless;
        placeless.files = { { "a", "b" }, { "/./", "b" } };
        QTest::newRow("with a file for nowhere")
            << placeless.build() << "record 1: its path names no file";
        ImageBuilder both;
        both.files = { { "a/b/c", "x" }, { "/a/b", "y" } };
        QTest::newRow("with a file that is a folder, too")
            << both.build() << "\"a/b\" is both a file and a folder of the image";
    }
    void badImageIsRefused()
    {
        QFETCH(QByteArray, image);
        QFETCH(QString, error);
        RawHost host;
        QVERIFY(host.connectTo(m_shared->port()));
        const Answer answer = host.sendImage(image);
        QVERIFY(answer);
        QCOMPARE(answer->ack, quint16(5));
        QVERIFY2(answer->errorText.startsWith(error), qPrintable(answer->errorText));
        const Answer configured = host.ask("upgrade.configure", mcuConfiguration());
        QVERIFY(configured);
        QCOMPARE(configured->ack, quint16(4));
        QCOMPARE(QDir(m_sharedFolder.filePath("incoming")).entryList(QDir::Files), QStringList());
    }

    void hostilePathsStayInside()
    {
        QVERIFY(start({ "--install-ms", "0" }));
        ImageBuilder builder;
        builder.files = { { "../../outside", "1" },
                          { "//etc/./passwd", "2" },
                          { "bell\a%", "3" },
                          { "caf\xC3\xA9", "4" },
                          { "cut\xC3", "5" } };
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        const Answer closed = host.sendImage(builder.build());
        QVERIFY(closed);
        QCOMPARE(closed->ack, quint16(0));
        QVERIFY(host.ask("upgrade.configure", mcuConfiguration()));
        QCOMPARE(resultOf(host.waitForInstallation()), 2);
        // Asked for by bytes: what QDir makes of them depends on the test's locale.
        const auto bytesAt = [this](const char *name) {
            std::FILE *file =
                std::fopen((QFile::encodeName(statePath()) + "/files/" + name).constData(), "rb");
            char byte = 0;
            if (file == nullptr || std::fread(&byte, 1, 1, file) != 1)
                byte = '?';
            if (file != nullptr)
                std::fclose(file);
            return byte;
        };
        QCOMPARE(bytesAt("%2E%2E/%2E%2E/outside"), '1');
        QCOMPARE(bytesAt("etc/passwd"), '2');
        QCOMPARE(bytesAt("bell%07%25"), '3');
        QCOMPARE(bytesAt("caf\xC3\xA9"), '4');
        QCOMPARE(bytesAt("cut%C3"), '5');
        QCOMPARE(QDir(m_folder->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList { "state" });
    }

    void killedInInstallation()
    {
        QVERIFY(start({ "--install-ms", "0" }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        QVERIFY(host.sendImage(smallImage()));
        QVERIFY(host.ask("upgrade.configure", mcuConfiguration()));
        QCOMPARE(resultOf(host.waitForInstallation()), 2);
        m_device->kill();

        QVERIFY(start({ "--fault", "never-ends=30", "--install-ms", "1" }));
        QVERIFY(host.connectTo(m_device->port()));
        QCOMPARE(resultOf(host.ask("upgrade.progress")), 2); // the result outlives the kill
        const Answer versions = host.ask("version.read");
        QVERIFY(versions);
        QCOMPARE(sectionVersion(versions->values, 1, 0, 0x0101), QString("2.3.4.5"));
        ImageBuilder builder;
        builder.files = { { "/app/mcu.bin", "newer firmware" }, { "more", "of it" } };
        QVERIFY(host.sendImage(builder.build()));
        QVERIFY(host.ask("upgrade.configure", mcuConfiguration()));
        Answer progress;
        do
            progress = host.ask("upgrade.progress");
        while (progress && progress->values.value(QLatin1String("rate")).toInteger() < 30);
        QVERIFY(progress);
        m_device->kill();

        QVERIFY(start({ "--install-ms", "0" }));
        QVERIFY(host.connectTo(m_device->port()));
        const Answer failed = host.ask("upgrade.progress");
        QCOMPARE(resultOf(failed), 3);
        QCOMPARE(failed->values.value(QLatin1String("run")).toInteger(), qint64(2));
        QCOMPARE(installedFiles(), (QStringList { "app/mcu.bin", "font12.dat" }));
        QCOMPARE(installed("app/mcu.bin"), QByteArray("the MCU's firmware"));
        const Answer again = host.ask("upgrade.configure", mcuConfiguration()); // it has the image
        QVERIFY(again);
        QCOMPARE(again->values.value(QLatin1String("run")).toInteger(), qint64(3));
        QCOMPARE(resultOf(host.waitForInstallation()), 2);
        QCOMPARE(installed("app/mcu.bin"), QByteArray("newer firmware"));
    }

    void silentHostIsDropped()
    {
        QVERIFY(start({ "--heartbeat-ms", "20" }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        QVERIFY(host.waitForEnd());
    }

    void probeIsAnswered()
    {
        QVERIFY(start({ "--serial", "S-1", "--name", "Hall 3" }));
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress::LocalHost));
        const auto ask = [&](const QByteArray &datagram, const char *address) {
            socket.writeDatagram(datagram, QHostAddress(QLatin1String(address)),
                                 m_device->probePort());
        };
        const QByteArray probe = probeDatagram(1);
        ask("rubbish", "127.0.0.1");
        ask(probeDatagram(2), "127.0.0.1");
        ask(probe + QByteArray(600, 'x'), "127.0.0.1");
        ask(probe, "127.0.0.1");
        const QCborMap expected { { QLatin1String("op"), QLatin1String("device") },
                                  { QLatin1String("protocol"), 1 },
                                  { QLatin1String("modelId"), 0x7701 },
                                  { QLatin1String("serial"), QLatin1String("S-1") },
                                  { QLatin1String("name"), QLatin1String("Hall 3") },
                                  { QLatin1String("port"), m_device->port() } };
        QCOMPARE(nextDatagram(socket), expected);
        ask(probe, "127.255.255.255");
        QCOMPARE(nextDatagram(socket), expected);
        QVERIFY(!socket.hasPendingDatagrams());
    }

    void neighboursShareTheBroadcast()
    {
        QVERIFY(start({ "--serial", "first" }));
        DeviceProcess second;
        QVERIFY(second.start(program(),
                             { "--listen", "127.0.0.2:0", "--serial", "second", "--probe-port",
                               QString::number(m_device->probePort()) }));
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress::LocalHost));
        socket.writeDatagram(probeDatagram(1), QHostAddress("127.255.255.255"),
                             m_device->probePort());
        QStringList serials;
        for (int i = 0; i < 2; ++i)
            serials.append(nextDatagram(socket).value(QLatin1String("serial")).toString());
        serials.sort();
        QCOMPARE(serials, (QStringList { "first", "second" }));
    }

    void traceShowsRequestsAndAnswers()
    {
        const QString trace = m_folder->filePath("trace");
        QVERIFY(start({ "--trace", trace }));
        RawHost host;
        QVERIFY(host.connectTo(m_device->port()));
        QVERIFY(host.ask("heartbeat.pause", { { QLatin1String("milliseconds"), 7 } }));
        QVERIFY(host.ask("nonsense"));
        QVERIFY(host.ask("file.data", { { QLatin1String("bytes"), QByteArray("\x01\xFF") } }));
        QVERIFY(host.ask("file.data", { { QLatin1String("bytes"), QByteArray(33, 'a') } }));
        const QList<QJsonObject> lines = traceLines(trace);
        QCOMPARE(lines.size(), 8);
        QCOMPARE(lines.at(0).value("direction").toString(), QString("in"));
        QCOMPARE(lines.at(0).value("road").toString(), QString("native"));
        QCOMPARE(lines.at(0).value("op").toString(), QString("heartbeat.pause"));
        QCOMPARE(lines.at(0).value("label").toInt(), 1);
        QCOMPARE(lines.at(0).value("args").toObject(), (QJsonObject { { "milliseconds", 7 } }));
        QVERIFY(lines.at(0).value("peer").toString().startsWith("127.0.0.1:"));
        QVERIFY(QDateTime::fromString(lines.at(0).value("time").toString(), Qt::ISODateWithMs)
                    .isValid());
        QCOMPARE(lines.at(1).value("direction").toString(), QString("out"));
        QCOMPARE(lines.at(1).value("op").toString(), QString("heartbeat.pause"));
        QCOMPARE(lines.at(1).value("ack").toInt(-1), 0);
        QCOMPARE(lines.at(1).value("values"), QJsonValue(QJsonObject()));
        QCOMPARE(lines.at(3).value("label").toInt(), 2);
        QCOMPARE(lines.at(3).value("ack").toInt(), 2);
        QCOMPARE(lines.at(3).value("error").toString(), QString("unknown operation \"nonsense\""));
        const auto bytes = [&lines](int line) {
            return lines.at(line).value("args").toObject().value("bytes").toObject();
        };
        QCOMPARE(bytes(4), (QJsonObject { { "length", 2 }, { "hex", "01ff" } }));
        QCOMPARE(bytes(6),
                 (QJsonObject {
                     { "length", 33 },
                     { "sha256",
                       "852785c805c77e71a22340a54e9d95933ed49121e7d2bf3c2d358854bc1359ea" } }));
    }

private:
    static QString program() { return QStringLiteral(VELMAR_DEVICE_PROGRAM); }
    QString statePath() const { return m_folder->filePath("state"); }

    /*! Starts the device on this test's state folder. */
    bool start(const QStringList &options)
    {
        return m_device->start(program(), QStringList { "--state", statePath() } + options);
    }

    QByteArray installed(const char *path) const
    {
        return contents(statePath() + "/files/" + QLatin1String(path));
    }

    /*! The installed files, by path. */
    QStringList installedFiles() const
    {
        const QDir files(statePath() + "/files");
        QStringList paths;
        QStringList folders { files.path() };
        while (!folders.isEmpty()) {
            const QDir folder(folders.takeFirst());
            const QFileInfoList entries =
                folder.entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot);
            for (const QFileInfo &entry : entries) {
                if (entry.isDir())
                    folders.append(entry.filePath());
                else
                    paths.append(files.relativeFilePath(entry.filePath()));
            }
        }
        paths.sort();
        return paths;
    }

    static QByteArray probeDatagram(int protocol)
    {
        return QCborMap { { QLatin1String("op"), QLatin1String("probe") },
                          { QLatin1String("protocol"), protocol } }
            .toCborValue()
            .toCbor();
    }

    static QCborMap nextDatagram(QUdpSocket &socket)
    {
        if (!socket.hasPendingDatagrams() && !socket.waitForReadyRead(5000))
            return {};
        QByteArray datagram(int(socket.pendingDatagramSize()), '\0');
        socket.readDatagram(datagram.data(), datagram.size());
        QCborMap message;
        QString fault;
        return decodeMessage(datagram, message, fault) ? message : QCborMap();
    }

    QTemporaryDir m_sharedFolder;
    std::unique_ptr<DeviceProcess> m_shared;
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<DeviceProcess> m_device;
};

QTEST_GUILESS_MAIN(tst_VelmarDevice)
#include "tst_velmardevice.moc"
