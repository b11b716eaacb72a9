#include "support/deviceprocess.h"
#include "support/imagebuilder.h"
#include "support/rawhost.h"

#include <QCborArray>
#include <QCborMap>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

namespace {

using Answer = std::optional<RawHost::Answer>;

constexpr quint32 Card = 0x01000010;
constexpr quint32 Data = 0x01001000;

const QByteArray MainCard("\x01\x77\x00", 3);

QCborMap registerWrite(quint32 address, const QByteArray &body)
{
    return {
        { QLatin1String("scanner"), 0 },          { QLatin1String("write"), 1 },
        { QLatin1String("reserved"), 0 },         { QLatin1String("address"), qint64(address) },
        { QLatin1String("length"), body.size() }, { QLatin1String("trailing"), 0 },
        { QLatin1String("body"), body }
    };
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

/*! The register bank of the simulated device as a process, spoken to over raw sockets. */
class tst_VelmarDeviceRegisters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void firmwareRunsAfterTheRestart();
    void killKeepsWhatCounts();
    void transferOutlivesItsConnection();
    void argumentsAreChecked_data();
    void argumentsAreChecked();
    void installationComesFirst();
    void restartComesBeforeAnInstallation();
    void traceShowsEachWrite();

    void writeIsRefused_data();
    void writeIsRefused();
    void writeIsNotAnswered();
    void connectionIsCut();
    void connectionEndsBehindTheAnswer();
    void lastAnswerIsNotWaitedFor();
    void answersAreSlow();
    void deviceStaysAway();
    void storingIsNotToBeCut_data();
    void storingIsNotToBeCut();
    void fragileDeviceStoresAlone();
    void firmwareIsRefusedByAFragileDevice();
    void deviceLies();
    void deviceIsSilent_data();
    void deviceIsSilent();
    void deviceIsUnplugged_data();
    void deviceIsUnplugged();
    void deviceRestartsByItself_data();
    void deviceRestartsByItself();

    void silentHostIsDropped();
    void pausedHostIsNot();

private:
    bool start(const QStringList &options = {});
    Answer write(quint32 address, const QByteArray &body)
    {
        return m_host.ask("register.write", registerWrite(address, body));
    }
    bool prepare(quint32 length);
    QJsonObject record() const;
    bool isMute();
    bool send(const QByteArray &firmware);
    QString mcuVersion();
    QByteArray storedFirmware() const;

    std::unique_ptr<QTemporaryDir> m_state;
    std::unique_ptr<DeviceProcess> m_device;
    RawHost m_host;
};

void tst_VelmarDeviceRegisters::init()
{
    m_state = std::make_unique<QTemporaryDir>();
    m_device = std::make_unique<DeviceProcess>();
}

void tst_VelmarDeviceRegisters::cleanup()
{
    m_device.reset();
    m_state.reset();
}

bool tst_VelmarDeviceRegisters::start(const QStringList &options)
{
    return m_device->start(VELMAR_DEVICE_PROGRAM,
                           QStringList { "--state", m_state->path(), "--restart-ms", "1" }
                               + options)
        && m_host.connectTo(m_device->port());
}

/*! The seven writes before the data. */
bool tst_VelmarDeviceRegisters::prepare(quint32 length)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian(length, bytes.data());
    const QVector<QPair<quint32, QByteArray>> writes {
        { Card, MainCard },
        { 0x01000014, QByteArray("\x01\x00", 2) },
        { 0x01000024, QByteArray(4, '\0') },
        { 0x01000020, bytes },
        { 0x01000024, QByteArray(4, '\0') },
        { 0x0100002C, bytes },
        { 0x01000030, QByteArray("\x01\x00\x01\x00", 4) },
    };
    for (const auto &[address, body] : writes) {
        const Answer answer = write(address, body);
        if (!answer || answer->ack != 0)
            return false;
    }
    return true;
}

bool tst_VelmarDeviceRegisters::send(const QByteArray &firmware)
{
    if (!prepare(quint32(firmware.size())))
        return false;
    for (int offset = 0; offset < firmware.size(); offset += 4096) {
        const Answer answer = write(Data, firmware.mid(offset, 4096));
        if (!answer || answer->ack != 0)
            return false;
    }
    return true;
}

/*! Version of the first section of the first part, the main control's MCU. */
QString tst_VelmarDeviceRegisters::mcuVersion()
{
    const Answer answer = m_host.ask("version.read");
    if (!answer)
        return QStringLiteral("no answer");
    return answer->values.value(QLatin1String("parts"))
        .toArray()
        .first()
        .toMap()
        .value(QLatin1String("section"))
        .toArray()
        .first()
        .toMap()
        .value(QLatin1String("version"))
        .toString();
}

QByteArray tst_VelmarDeviceRegisters::storedFirmware() const
{
    const QDir folder(m_state->filePath("firmware"));
    const QStringList names = folder.entryList(QDir::Files);
    return names.size() == 1 ? contents(folder.filePath(names.first())) : QByteArray();
}

void tst_VelmarDeviceRegisters::firmwareRunsAfterTheRestart()
{
    QByteArray firmware("Controller MCU 3.2.1.0\n");
    for (int i = firmware.size(); i < 98317; ++i)
        firmware.append(char(i % 253));
    QVERIFY(start());
    QCOMPARE(mcuVersion(), QString("1.0.0.0"));

    QVERIFY(send(firmware));

    QVERIFY(m_host.waitForEnd());
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    const QJsonObject ready = m_device->nextEvent();
    QCOMPARE(ready.value("event").toString(), QString("ready"));
    QCOMPARE(ready.value("restarts").toInt(), 1);
    QCOMPARE(ready.value("port").toInt(), int(m_device->port()));
    QCOMPARE(storedFirmware(), firmware);
    QVERIFY(m_host.connectTo(m_device->port()));
    QCOMPARE(mcuVersion(), QString("3.2.1.0"));

    // The device takes the next file from the beginning.
    QVERIFY(send("Controller MCU 3.3.0.0\n"));
    QVERIFY(m_host.waitForEnd());
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    QCOMPARE(m_device->nextEvent().value("restarts").toInt(), 2);
    QVERIFY(m_host.connectTo(m_device->port()));
    QCOMPARE(mcuVersion(), QString("3.3.0.0"));
    QCOMPARE(storedFirmware(), QByteArray("Controller MCU 3.3.0.0\n"));
}

void tst_VelmarDeviceRegisters::killKeepsWhatCounts()
{
    QVERIFY(start({ "--restart-ms", "60000" }));
    QVERIFY(send("Controller MCU 3.2.1.0\n"));
    m_device->kill(); // behind the last answer, before the restart is over
    QVERIFY(start());
    QCOMPARE(mcuVersion(), QString("3.2.1.0"));
    QCOMPARE(storedFirmware(), QByteArray("Controller MCU 3.2.1.0\n"));

    QVERIFY(prepare(5000));
    QCOMPARE(write(Data, QByteArray(4096, 'x'))->ack, quint16(0));
    m_device->kill();
    QVERIFY(start());
    QCOMPARE(mcuVersion(), QString("3.2.1.0"));
    QCOMPARE(storedFirmware(), QByteArray("Controller MCU 3.2.1.0\n"));
    QCOMPARE(QDir(m_state->filePath("incoming")).entryList(QDir::Files), QStringList());
    QCOMPARE(write(Data, "rest")->ack, quint16(109));
}

void tst_VelmarDeviceRegisters::transferOutlivesItsConnection()
{
    QVERIFY(start());
    QVERIFY(prepare(4));
    QCOMPARE(write(Data, "ab")->ack, quint16(0));
    QVERIFY(m_host.connectTo(m_device->port()));
    QCOMPARE(write(Data, "cd")->ack, quint16(0));
    QVERIFY(m_host.waitForEnd());
    QCOMPARE(storedFirmware(), QByteArray("abcd"));
}

void tst_VelmarDeviceRegisters::argumentsAreChecked_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QCborValue>("value");

    QTest::newRow("no address") << "address" << QCborValue();
    QTest::newRow("address of more than 32 bits") << "address" << QCborValue(Q_INT64_C(4294967296));
    QTest::newRow("length of more than 16 bits") << "length" << QCborValue(65536);
    QTest::newRow("flag as truth value") << "write" << QCborValue(true);
    QTest::newRow("flag below zero") << "scanner" << QCborValue(-1);
    QTest::newRow("flag of more than 8 bits") << "reserved" << QCborValue(256);
    QTest::newRow("text as payload") << "body" << QCborValue(QLatin1String("abc"));
    QTest::newRow("no trailing flag") << "trailing" << QCborValue();
}

void tst_VelmarDeviceRegisters::argumentsAreChecked()
{
    QFETCH(QString, key);
    QFETCH(QCborValue, value);
    QVERIFY(start());
    QCborMap arguments = registerWrite(Card, MainCard);
    if (value.isUndefined())
        arguments.remove(key);
    else
        arguments.insert(key, value);
    const Answer answer = m_host.ask("register.write", arguments);
    QVERIFY(answer);
    QCOMPARE(answer->ack, quint16(3));
    QVERIFY(answer->errorText.contains(key));
}

void tst_VelmarDeviceRegisters::installationComesFirst()
{
    QVERIFY(start({ "--fault", "never-ends=1" }));
    ImageBuilder image;
    image.files = { { "mcu.bin", "firmware" } };
    QCOMPARE(m_host.sendImage(image.build())->ack, quint16(0));
    const QCborMap order = RawHost::configuration({ { 1, 0, 0, { 0x0101 } } });
    QCOMPARE(m_host.ask("upgrade.configure", order)->ack, quint16(0));
    const Answer answer = write(Card, MainCard);
    QCOMPARE(answer->ack, quint16(111));
    QCOMPARE(answer->errorText, QString("an installation is running"));
}

void tst_VelmarDeviceRegisters::restartComesBeforeAnInstallation()
{
    QVERIFY(start());
    ImageBuilder image;
    image.files = { { "mcu.bin", "firmware" } };
    QCOMPARE(m_host.sendImage(image.build())->ack, quint16(0));
    const QCborMap order = RawHost::configuration({ { 1, 0, 0, { 0x0101 } } });
    QVERIFY(prepare(3));
    m_host.send("register.write", registerWrite(Data, "abc"));
    m_host.send("upgrade.configure", order); // long before the restart
    QCOMPARE(m_host.receive()->ack, quint16(0));
    const Answer busy = m_host.receive();
    QCOMPARE(busy->ack, quint16(4));
    QCOMPARE(busy->errorText, QString("the device is about to restart"));

    QVERIFY(m_host.waitForEnd());
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
    QVERIFY(m_host.connectTo(m_device->port()));
    QCOMPARE(m_host.ask("upgrade.configure", order)->ack, quint16(0));
}

void tst_VelmarDeviceRegisters::traceShowsEachWrite()
{
    const QString trace = m_state->filePath("trace.jsonl");
    QVERIFY(start({ "--trace", trace }));
    QCOMPARE(write(Card, MainCard)->ack, quint16(0));
    QCOMPARE(write(Data, QByteArray(33, 'x'))->ack, quint16(109));

    QVector<QJsonObject> lines;
    for (const QByteArray &line : contents(trace).split('\n')) {
        if (!line.isEmpty())
            lines.append(QJsonDocument::fromJson(line).object());
    }
    QCOMPARE(lines.size(), 4);
    for (const QJsonObject &line : lines) {
        QCOMPARE(line.value("road").toString(), QString("registers"));
        QCOMPARE(line.value("op").toString(), QString("register.write"));
    }
    const QJsonObject arguments = lines.at(0).value("args").toObject();
    QCOMPARE(arguments.value("address").toInt(), 0x01000010);
    QCOMPARE(arguments.value("body").toObject().value("hex").toString(), QString("017700"));
    QCOMPARE(lines.at(1).value("ack").toInt(), 0);
    QCOMPARE(lines.at(2).value("args").toObject().value("body").toObject().value("length").toInt(),
             33);
    QCOMPARE(lines.at(3).value("ack").toInt(), 109);
    QCOMPARE(lines.at(3).value("error").toString(),
             QString("data comes behind file type, lengths and count"));
}

void tst_VelmarDeviceRegisters::writeIsRefused_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QVector<int>>("acks"); // of three writes

    QTest::newRow("first, if nothing is told") << "register-ack" << QVector<int> { 1, 0, 0 };
    QTest::newRow("second") << "register-ack=2" << QVector<int> { 0, 1, 0 };
    QTest::newRow("third with a word of its own")
        << "register-ack=3:500" << QVector<int> { 0, 0, 500 };
    QTest::newRow("fourth") << "register-ack=4" << QVector<int> { 0, 0, 0 };
}

void tst_VelmarDeviceRegisters::writeIsRefused()
{
    QFETCH(QString, fault);
    QVERIFY(start({ "--fault", fault }));
    QVector<int> acks;
    for (int i = 0; i < 3; ++i) {
        const Answer answer = write(Card, MainCard);
        QVERIFY(answer);
        QCOMPARE(answer->errorText, QString(answer->ack == 0 ? "" : "the write is refused"));
        acks.append(answer->ack);
    }
    QTEST(acks, "acks");
}

void tst_VelmarDeviceRegisters::writeIsNotAnswered()
{
    QVERIFY(start({ "--fault", "register-silent=2" }));
    QCOMPARE(write(Card, MainCard)->ack, quint16(0));
    m_host.send("register.write", registerWrite(Card, MainCard));
    const quint32 ping = m_host.send("ping");
    const Answer answer = m_host.receive(); // that to the ping is the next
    QVERIFY(answer);
    QCOMPARE(answer->label, ping);
    QCOMPARE(write(Card, MainCard)->ack, quint16(0));
}

void tst_VelmarDeviceRegisters::connectionIsCut()
{
    QVERIFY(start({ "--fault", "register-cut=8" }));
    QVERIFY(prepare(3));
    QVERIFY(!write(Data, "abc"));

    QVERIFY(m_host.connectTo(m_device->port()));
    QCOMPARE(write(Data, "abc")->ack, quint16(0)); // the one that was cut was not carried out
}

void tst_VelmarDeviceRegisters::connectionEndsBehindTheAnswer()
{
    QVERIFY(start({ "--fault", "register-not-ready=2" }));
    QCOMPARE(write(Card, MainCard)->ack, quint16(0));
    QCOMPARE(write(Card, MainCard)->ack, quint16(0));
    QVERIFY(m_host.waitForEnd());
    QVERIFY(m_host.connectTo(m_device->port()));
    QCOMPARE(write(Card, MainCard)->ack, quint16(0));
}

void tst_VelmarDeviceRegisters::lastAnswerIsNotWaitedFor()
{
    // The host goes while its answer is held back: the device restarts all the same.
    QVERIFY(start({ "--fault", "register-slow=20" }));
    QVERIFY(prepare(3));
    m_host.send("register.write", registerWrite(Data, "abc"));
    QVERIFY(m_host.connectTo(m_device->port()));
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    QCOMPARE(m_device->nextEvent().value("restarts").toInt(), 1);
    QCOMPARE(storedFirmware(), QByteArray("abc"));
}

void tst_VelmarDeviceRegisters::answersAreSlow()
{
    QVERIFY(start({ "--fault", "register-slow=60", "--heartbeat-ms", "50" }));
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(write(Card, MainCard)->ack, quint16(0)); // no host is silent while it has to wait
    QVERIFY(clock.elapsed() >= 59);
    clock.start();
    QVERIFY(m_host.ask("ping"));
    m_host.send("register.write", registerWrite(Card, MainCard));
    const quint32 ping = m_host.send("ping");
    QCOMPARE(m_host.receive()->ack, quint16(0));
    QCOMPARE(m_host.receive()->label, ping); // in the order of the requests
}

void tst_VelmarDeviceRegisters::deviceStaysAway()
{
    QVERIFY(start({ "--fault", "no-return" }));
    QVERIFY(send("firmware"));
    QVERIFY(m_host.waitForEnd());
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    QVERIFY(!m_host.connectTo(m_device->port()));
}

QJsonObject tst_VelmarDeviceRegisters::record() const
{
    return QJsonDocument::fromJson(contents(m_state->filePath("state.json"))).object();
}

/*! The second of two requests is noted when the device is done with the first. */
bool tst_VelmarDeviceRegisters::isMute()
{
    const auto tracedPings = [this] {
        return contents(m_state->filePath("trace")).count("\"op\":\"ping\"");
    };
    const int before = tracedPings();
    m_host.send("ping");
    m_host.send("ping");
    return QTest::qWaitFor([&] { return tracedPings() >= before + 2; }) && m_host.hearsNothing();
}

void tst_VelmarDeviceRegisters::storingIsNotToBeCut_data()
{
    QTest::addColumn<QString>("cut");
    QTest::newRow("restart") << "restart";
    QTest::newRow("switched off") << "terminate";
    QTest::newRow("power lost") << "kill";
}

void tst_VelmarDeviceRegisters::storingIsNotToBeCut()
{
    QFETCH(QString, cut);
    QVERIFY(start({ "--fault", "brick", "--install-ms", "3600000" }));
    QVERIFY(prepare(3));
    m_host.send("register.write", registerWrite(Data, "abc"));
    QTRY_VERIFY(record().value("storing").toBool());
    if (cut == "restart") {
        RawHost other;
        QVERIFY(other.connectTo(m_device->port()));
        QVERIFY(other.ask("device.shutdown", { { QLatin1String("mode"), 0 } }));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("bricked"));
        QVERIFY(record().value("bricked").toBool());
        QVERIFY(!m_host.connectTo(m_device->port()));
    }
    if (cut == "kill")
        m_device->kill();
    else
        m_device->process().terminate();
    QVERIFY(m_device->waitForEnd());

    QVERIFY(!start());
    QCOMPARE(m_device->ready().value("event").toString(), QString("bricked"));
    QVERIFY(record().value("bricked").toBool());
}

void tst_VelmarDeviceRegisters::fragileDeviceStoresAlone()
{
    // Neither a half transfer nor the end of a connection is a cut.
    QVERIFY(start({ "--fault", "brick", "--install-ms", "0" }));
    QVERIFY(prepare(6));
    QCOMPARE(write(Data, "abc")->ack, quint16(0));
    QVERIFY(m_host.ask("device.shutdown", { { QLatin1String("mode"), 0 } }));
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
    QVERIFY(m_host.connectTo(m_device->port()));
    QVERIFY(prepare(3));
    m_host.send("register.write", registerWrite(Data, "abc"));
    QVERIFY(m_host.connectTo(m_device->port()));
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
    QCOMPARE(storedFirmware(), QByteArray("abc"));
    QVERIFY(!record().contains("storing"));
    QVERIFY(!record().contains("bricked"));
}

void tst_VelmarDeviceRegisters::firmwareIsRefusedByAFragileDevice()
{
    QVERIFY(start({ "--fault", "brick" }));
    QVERIFY(prepare(4));
    QCOMPARE(write(Data, "VRC2")->ack, quint16(112));
    QVERIFY(!record().contains("storing"));
}

void tst_VelmarDeviceRegisters::deviceLies()
{
    QVERIFY(start());
    QVERIFY(send("Controller MCU 3.2.1.0\n"));
    QVERIFY(m_host.waitForEnd());
    m_device->process().terminate();
    QVERIFY(m_device->waitForEnd());
    QVERIFY(start({ "--fault", "lie" }));
    QVERIFY(send("Controller MCU 3.3.0.0\n"));
    QVERIFY(m_host.waitForEnd());
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
    QVERIFY(m_host.connectTo(m_device->port()));
    QCOMPARE(mcuVersion(), QString("3.2.1.0"));
    QCOMPARE(storedFirmware(), QByteArray("Controller MCU 3.2.1.0\n"));
    QVERIFY(QDir(m_state->filePath("incoming")).isEmpty());
}

void tst_VelmarDeviceRegisters::deviceIsSilent_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<int>("pieces"); // of four, answered
    QTest::addColumn<QByteArray>("stored");

    QTest::newRow("in the data") << "silent=send" << 1 << QByteArray();
    QTest::newRow("at the last") << "silent=install" << 3 << QByteArray();
    QTest::newRow("behind it") << "silent=done" << 3 << QByteArray("abcdefgh");
    QTest::newRow("instead of the restart") << "silent=restart" << 4 << QByteArray("abcdefgh");
    QTest::newRow("behind the restart") << "silent=return" << 4 << QByteArray("abcdefgh");
}

void tst_VelmarDeviceRegisters::deviceIsSilent()
{
    QFETCH(QString, fault);
    QFETCH(int, pieces);
    QVERIFY(start({ "--trace", m_state->filePath("trace"), "--fault", fault }));
    const QByteArray firmware("abcdefgh");
    QVERIFY(prepare(8));
    for (int piece = 0; piece < pieces; ++piece)
        QCOMPARE(write(Data, firmware.mid(2 * piece, 2))->ack, quint16(0));
    if (pieces < 4)
        m_host.send("register.write", registerWrite(Data, firmware.mid(2 * pieces, 2)));
    if (fault.endsWith("return")) {
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
        QVERIFY(m_host.connectTo(m_device->port()));
    }
    QTRY_VERIFY(isMute());
    QTEST(storedFirmware(), "stored");
    QCOMPARE(record().value("restarts").toInt(), fault.endsWith("return") ? 1 : 0);
}

void tst_VelmarDeviceRegisters::deviceIsUnplugged_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QByteArray>("stored");

    QTest::newRow("in the data") << "gone=send" << QByteArray();
    QTest::newRow("at the last") << "gone=install" << QByteArray();
    QTest::newRow("behind it") << "gone=done" << QByteArray("abcd");
}

void tst_VelmarDeviceRegisters::deviceIsUnplugged()
{
    QFETCH(QString, fault);
    QVERIFY(start({ "--fault", fault }));
    QVERIFY(prepare(4));
    if (fault == "gone=send")
        QCOMPARE(write(Data, "a")->ack, quint16(0));
    m_host.send("register.write", registerWrite(Data, fault == "gone=send" ? "b" : "abcd"));
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    QVERIFY(m_host.waitForEnd());
    QVERIFY(!m_host.connectTo(m_device->port()));
    QTEST(storedFirmware(), "stored");
    QVERIFY(!record().value("bricked").toBool());
}

void tst_VelmarDeviceRegisters::deviceRestartsByItself_data()
{
    QTest::addColumn<QString>("fault");
    QTest::newRow("in the data") << "restarts-sending=50";
    QTest::newRow("at the last") << "restarts";
}

void tst_VelmarDeviceRegisters::deviceRestartsByItself()
{
    QFETCH(QString, fault);
    QVERIFY(start({ "--fault", fault }));
    QVERIFY(prepare(4));
    QCOMPARE(write(Data, "a")->ack, quint16(0));
    m_host.send("register.write", registerWrite(Data, fault == "restarts" ? "bcd" : "b"));
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
    QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
    QVERIFY(m_host.waitForEnd());
    QCOMPARE(storedFirmware(), QByteArray());
    QVERIFY(m_host.connectTo(m_device->port()));
    QCOMPARE(write(Data, "c")->ack, quint16(109)); // what was written is forgotten
    QVERIFY(send("abcd")); // it happens once
    QVERIFY(m_host.waitForEnd());
    QCOMPARE(storedFirmware(), QByteArray("abcd"));
}

void tst_VelmarDeviceRegisters::silentHostIsDropped()
{
    QVERIFY(start({ "--heartbeat-ms", "100" }));
    QCOMPARE(write(Card, MainCard)->ack, quint16(0));
    QVERIFY(m_host.waitForEnd());
}

void tst_VelmarDeviceRegisters::pausedHostIsNot()
{
    QVERIFY(start({ "--heartbeat-ms", "50" }));
    RawHost other;
    QVERIFY(m_host.ask("heartbeat.pause", { { QLatin1String("milliseconds"), 180000 } }));
    QVERIFY(other.connectTo(m_device->port()));
    QVERIFY(other.waitForEnd()); // as long a silence as the device bears
    QCOMPARE(write(Card, MainCard)->ack, quint16(0));
    QVERIFY(m_host.ask("heartbeat.resume"));
    QVERIFY(m_host.waitForEnd());
}

QTEST_GUILESS_MAIN(tst_VelmarDeviceRegisters)

#include "tst_velmardeviceregisters.moc"
