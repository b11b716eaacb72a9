#include "support/deviceprocess.h"
#include "support/imagebuilder.h"
#include "support/rawhost.h"

#include <QCborMap>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

namespace {

using Answer = std::optional<RawHost::Answer>;

QByteArray image(const QByteArray &firmware)
{
    ImageBuilder builder;
    builder.version = 0x02000000;
    builder.files = { { "mcu.bin", firmware }, { "data/first", "1" }, { "data/second", "2" } };
    return builder.build();
}

/*! The main control's MCU and FPGA. */
QCborMap order()
{
    return RawHost::configuration({ { 1, 0, 0, { 0x0101, 0x0102 } } });
}

qint64 number(const Answer &answer, const char *key)
{
    return answer ? answer->values.value(QLatin1String(key)).toInteger(-1) : -1;
}

QCborMap restartOrder()
{
    return { { QLatin1String("mode"), 0 } };
}

} // namespace

/*! What the simulated device does wrong when it is told to, and how hosts see it. */
class tst_VelmarDeviceFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_state = std::make_unique<QTemporaryDir>();
        m_device = std::make_unique<DeviceProcess>();
    }
    void cleanup()
    {
        m_device.reset();
        m_state.reset();
    }

    void announcementIsRefused()
    {
        QVERIFY(start({ "--fault", "refuse-announce" }));
        for (int i = 0; i < 2; ++i) {
            const Answer answer = m_host.sendImage(image("firmware"));
            QVERIFY(answer);
            QCOMPARE(answer->ack, quint16(1));
            QCOMPARE(answer->errorText, QString("the announcement is refused"));
        }
    }

    void transferIsCut_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("chunksAnswered"); // of ten

        QTest::newRow("with the first bytes") << "cut-transfer=0" << 0;
        QTest::newRow("at 31 percent") << "cut-transfer=31" << 3;
        QTest::newRow("in the middle, if nothing else is told") << "cut-transfer" << 4;
        QTest::newRow("with the last bytes") << "cut-transfer=100" << 9;
    }
    void transferIsCut()
    {
        QFETCH(QString, fault);
        QVERIFY(start({ "--fault", fault }));
        QByteArray firmware(2000 - 3 * 264 - 256 - 2 - 2, 'f');
        const QByteArray bytes = image(firmware);
        QCOMPARE(bytes.size(), 2000);
        QVERIFY(m_host.announceAndOpen(bytes));
        int answered = 0;
        while (m_host.sendChunk(bytes, answered * 200, 200))
            ++answered;
        QTEST(answered, "chunksAnswered");
        QVERIFY(m_host.waitForEnd());

        // The bytes of the chunk that was not answered are there: the transfer goes on behind it.
        QVERIFY(m_host.connectTo(m_device->port()));
        for (int chunk = answered + 1; chunk < 10; ++chunk) {
            const Answer answer = m_host.sendChunk(bytes, chunk * 200, 200);
            QVERIFY(answer);
            QCOMPARE(number(answer, "received"), qint64(chunk + 1) * 200);
        }
        const Answer closed = m_host.ask("file.close", { { QLatin1String("fileId"), 0 } });
        QVERIFY(closed);
        QCOMPARE(closed->ack, quint16(0));
        const Answer whole = m_host.sendImage(bytes, 200); // it is cut once
        QVERIFY(whole);
        QCOMPARE(whole->ack, quint16(0));
    }

    void configurationIsRefused()
    {
        QVERIFY(start({ "--fault", "refuse-configure" }));
        QVERIFY(m_host.sendImage(image("firmware")));
        const Answer answer = m_host.ask("upgrade.configure", order());
        QVERIFY(answer);
        QCOMPARE(answer->ack, quint16(1));
        QCOMPARE(answer->errorText, QString("the configuration is refused"));
        QCOMPARE(number(m_host.ask("upgrade.progress"), "run"), qint64(0));
    }

    void progressIsDropped()
    {
        QVERIFY(start({ "--fault", "drop-progress=2" }));
        QCOMPARE(number(m_host.ask("upgrade.progress"), "result"), qint64(0));
        QVERIFY(!m_host.ask("upgrade.progress"));
        QVERIFY(m_host.waitForEnd());
        QVERIFY(m_host.connectTo(m_device->port()));
        QCOMPARE(number(m_host.ask("upgrade.progress"), "result"), qint64(0));
    }

    void progressIsRefused()
    {
        QVERIFY(start({ "--fault", "refuse-progress=2", "--fault", "drop-progress=3" }));
        QCOMPARE(number(m_host.ask("upgrade.progress"), "result"), qint64(0));
        const Answer refused = m_host.ask("upgrade.progress");
        QVERIFY(refused);
        QCOMPARE(refused->ack, quint16(1));
        QCOMPARE(refused->errorText, QString("the progress is refused"));
        QVERIFY(!m_host.ask("upgrade.progress"));
    }

    void installationFails_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::newRow("at once") << "install-fails=0";
        QTest::newRow("in the middle, if nothing else is told") << "install-fails";
        QTest::newRow("in the end") << "install-fails=99";
    }
    void installationFails()
    {
        QFETCH(QString, fault);
        QVERIFY(start({ "--install-ms", "10" }));
        install("old firmware");
        m_device->kill();
        QVERIFY(start({ "--install-ms", "10", "--fault", fault }));
        QVERIFY(m_host.sendImage(image("new firmware")));
        QVERIFY(m_host.ask("upgrade.configure", order()));
        const Answer failed = m_host.waitForInstallation();
        QCOMPARE(number(failed, "result"), qint64(3));
        QVERIFY(number(failed, "rate") < 100);
        QCOMPARE(installed("mcu.bin"), QByteArray("old firmware"));
        QVERIFY(!QDir(m_state->filePath("staging")).exists());
        // The image is still there; it fails again.
        QCOMPARE(number(m_host.ask("upgrade.configure", order()), "run"), qint64(3));
        QCOMPARE(number(m_host.waitForInstallation(), "result"), qint64(3));
    }

    void installationNeverEnds()
    {
        QVERIFY(start({ "--install-ms", "1", "--fault", "never-ends=30" }));
        QVERIFY(m_host.sendImage(image("firmware")));
        QVERIFY(m_host.ask("upgrade.configure", order()));
        QTRY_COMPARE(number(m_host.ask("upgrade.progress"), "rate"), qint64(30));
        for (int i = 0; i < 20; ++i) {
            const Answer progress = m_host.ask("upgrade.progress");
            QCOMPARE(number(progress, "rate"), qint64(30));
            QCOMPARE(number(progress, "result"), qint64(1));
        }
        QVERIFY(!QFile::exists(m_state->filePath("files/mcu.bin")));
    }

    void restartIsRefused()
    {
        QVERIFY(start({ "--fault", "refuse-restart" }));
        const Answer answer = m_host.ask("device.shutdown", restartOrder());
        QVERIFY(answer);
        QCOMPARE(answer->ack, quint16(1));
        QCOMPARE(answer->errorText, QString("the restart is refused"));
        QVERIFY(m_host.ask("ping"));
    }

    void awayMeansConnectionRefused_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::newRow("for a long restart") << QStringList { "--restart-ms", "3600000" };
        QTest::newRow("for good") << QStringList { "--restart-ms", "0", "--fault", "no-return" };
    }
    void awayMeansConnectionRefused()
    {
        QFETCH(QStringList, options);
        QVERIFY(start(options));
        RawHost other;
        QVERIFY(other.connectTo(m_device->port()));
        QVERIFY(m_host.ask("device.shutdown", restartOrder()));
        QVERIFY(m_host.waitForEnd());
        QVERIFY(other.waitForEnd());
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        for (int i = 0; i < 5; ++i)
            QVERIFY(!other.connectTo(m_device->port()));
        m_device->process().terminate();
        QVERIFY(m_device->waitForEnd());
        QCOMPARE(m_device->process().exitCode(), 0);
    }

    void linkIsSlow()
    {
        QVERIFY(start({ "--fault", "slow-link=20000" }));
        QElapsedTimer clock;
        clock.start();
        const QByteArray bytes = image(QByteArray(1000, 'f'));
        const Answer closed = m_host.sendImage(bytes, 500);
        QVERIFY(closed);
        QCOMPARE(closed->ack, quint16(0));
        QVERIFY(bytes.size() > 2000);
        QVERIFY2(clock.elapsed() >= 100, "2000 bytes take 100 ms"); // and frames are longer
    }

    void powerIsCut_data()
    {
        QTest::addColumn<int>("step");
        QTest::addColumn<int>("result");

        QTest::newRow("ordered") << 1 << 3;
        QTest::newRow("half of the files written") << 2 << 3;
        QTest::newRow("all files written") << 3 << 3;
        QTest::newRow("bound to be completed") << 4 << 2;
        QTest::newRow("half of the files in place") << 5 << 2;
        QTest::newRow("all files in place") << 6 << 2;
        QTest::newRow("completed") << 7 << 2;
        QTest::newRow("tidied up") << 8 << 2;
    }
    void powerIsCut()
    {
        QFETCH(int, step);
        QFETCH(int, result);
        QVERIFY(start({ "--install-ms", "0" }));
        install("old firmware");
        m_device->kill();
        QVERIFY(start({ "--install-ms", "5", "--fault", QString("power-cut=%1").arg(step) }));
        QVERIFY(m_host.sendImage(image("new firmware")));
        m_host.send("upgrade.configure", order());
        QVERIFY(m_device->waitForEnd());
        QCOMPARE(m_device->process().exitStatus(), QProcess::CrashExit);

        QVERIFY(start({ "--install-ms", "0" }));
        const Answer progress = m_host.ask("upgrade.progress");
        QCOMPARE(number(progress, "result"), qint64(result));
        QCOMPARE(number(progress, "run"), qint64(2));
        QCOMPARE(installed("mcu.bin"),
                 result == 2 ? QByteArray("new firmware") : QByteArray("old firmware"));
        QVERIFY(!QDir(m_state->filePath("staging")).exists());
        QCOMPARE(QDir(m_state->filePath("images")).entryList(QDir::Files).size(),
                 result == 2 ? 0 : 1);
        install("newest firmware");
        QCOMPARE(installed("mcu.bin"), QByteArray("newest firmware"));
    }

    void installingIsNotToBeCut_data()
    {
        QTest::addColumn<QString>("cut");
        QTest::newRow("restart") << "restart";
        QTest::newRow("switched off") << "terminate";
        QTest::newRow("power lost") << "kill";
        QTest::newRow("restart by itself") << "restarts";
        QTest::newRow("unplugged") << "gone";
    }
    void installingIsNotToBeCut()
    {
        QFETCH(QString, cut);
        QStringList options { "--install-ms", "3600000", "--fault", "brick", "--restart-ms", "0" };
        if (cut == "restarts" || cut == "gone")
            options = QStringList { "--install-ms", "0", "--fault", "brick", "--fault", cut };
        QVERIFY(start(options));
        QVERIFY(m_host.sendImage(image("firmware")));
        QVERIFY(m_host.ask("upgrade.configure", order()));
        const bool isSeenAtOnce = cut.startsWith("restart");
        if (cut == "restart")
            QVERIFY(m_host.ask("device.shutdown", restartOrder()));
        if (cut == "terminate") {
            m_device->process().terminate();
        } else if (cut == "kill") {
            m_device->kill();
            QVERIFY(!isBricked()); // the next start finds out
        } else {
            QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
            QVERIFY(m_host.waitForEnd());
            if (isSeenAtOnce)
                QCOMPARE(m_device->nextEvent().value("event").toString(), QString("bricked"));
            QCOMPARE(isBricked(), isSeenAtOnce);
            QVERIFY(!m_host.connectTo(m_device->port()));
            m_device->process().terminate();
        }
        QVERIFY(m_device->waitForEnd());
        QCOMPARE(isBricked(), cut != "kill");
        const quint16 port = m_device->port();

        QVERIFY(!start({ "--listen", QString("127.0.0.1:%1").arg(port) })); // without the fault
        QCOMPARE(m_device->ready().value("event").toString(), QString("bricked"));
        QVERIFY(isBricked());
        QVERIFY(!m_host.connectTo(port));
        QCOMPARE(installed("mcu.bin"), QByteArray());
        m_device->process().terminate();
        QVERIFY(m_device->waitForEnd());
        QCOMPARE(m_device->process().exitCode(), 0);
    }

    void fragileDeviceOutlives_data()
    {
        QTest::addColumn<QString>("event");
        QTest::newRow("end of the connection while it installs") << "connection";
        QTest::newRow("restart before the order") << "before";
        QTest::newRow("restart behind the end") << "behind";
        QTest::newRow("installation that fails") << "fails";
    }
    void fragileDeviceOutlives()
    {
        QFETCH(QString, event);
        QStringList options { "--fault", "brick", "--restart-ms", "0", "--install-ms", "20" };
        if (event == "fails")
            options += QStringList { "--fault", "install-fails" };
        QVERIFY(start(options));
        QVERIFY(m_host.sendImage(image("firmware")));
        if (event != "before")
            QVERIFY(m_host.ask("upgrade.configure", order()));
        if (event == "connection")
            QVERIFY(m_host.connectTo(m_device->port()));
        if (event != "before")
            QCOMPARE(number(m_host.waitForInstallation(), "result"),
                     qint64(event == "fails" ? 3 : 2));
        QVERIFY(m_host.ask("device.shutdown", restartOrder()));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
        m_device->process().terminate();
        QVERIFY(m_device->waitForEnd());
        QVERIFY(!isBricked());
        const bool isInstalled = event == "connection" || event == "behind";
        QCOMPARE(installed("mcu.bin"), QByteArray(isInstalled ? "firmware" : ""));
    }

    void lies()
    {
        QVERIFY(start({ "--install-ms", "5", "--restart-ms", "0" }));
        install("old firmware");
        m_device->process().terminate();
        QVERIFY(m_device->waitForEnd());
        QVERIFY(start({ "--install-ms", "5", "--restart-ms", "0", "--fault", "lie" }));
        const QCborValue versions = m_host.ask("version.read")->values;
        QVERIFY(m_host.sendImage(image("new firmware")));
        QVERIFY(m_host.ask("upgrade.configure", order()));
        const Answer done = m_host.waitForInstallation();
        QCOMPARE(number(done, "result"), qint64(2));
        QCOMPARE(number(done, "rate"), qint64(100));
        QCOMPARE(number(done, "run"), qint64(2));
        QVERIFY(m_host.ask("device.shutdown", restartOrder()));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
        QVERIFY(m_host.connectTo(m_device->port()));
        QCOMPARE(QCborValue(m_host.ask("version.read")->values), versions);
        QCOMPARE(installed("mcu.bin"), QByteArray("old firmware"));
        QVERIFY(!QDir(m_state->filePath("staging")).exists());
        QVERIFY(QDir(m_state->filePath("images")).isEmpty());
    }

    void oldResultIsTold_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QVector<int>>("results"); // while it installs

        QTest::newRow("done, if nothing else is told") << "old-result" << QVector<int> { 2, 2, 2 };
        QTest::newRow("failed") << "old-result=3" << QVector<int> { 3, 3, 3 };
        QTest::newRow("twice") << "old-result=2:2" << QVector<int> { 2, 2, 1 };
    }
    void oldResultIsTold()
    {
        QFETCH(QString, fault);
        QVERIFY(start({ "--install-ms", "3600000", "--fault", fault }));
        QCOMPARE(number(m_host.ask("upgrade.progress"), "result"), qint64(0));
        QVERIFY(m_host.sendImage(image("firmware")));
        const Answer ordered = m_host.ask("upgrade.configure", order());
        QVERIFY(ordered && ordered->ack == 0);
        QVERIFY(!ordered->values.contains(QLatin1String("run")));
        QVector<int> results;
        for (int i = 0; i < 3; ++i) {
            const Answer progress = m_host.ask("upgrade.progress");
            QVERIFY(progress && !progress->values.contains(QLatin1String("run")));
            results.append(int(number(progress, "result")));
            QCOMPARE(number(progress, "rate") == 100, results.last() == 2);
        }
        QTEST(results, "results");
        QCOMPARE(installed("mcu.bin"), QByteArray());
    }

    void oldResultGivesWayToTheNewOne()
    {
        QVERIFY(start({ "--install-ms", "50", "--fault", "old-result=3" }));
        QVERIFY(m_host.sendImage(image("firmware")));
        QVERIFY(m_host.ask("upgrade.configure", order()));
        QCOMPARE(number(m_host.ask("upgrade.progress"), "result"), qint64(3));
        QTRY_COMPARE(number(m_host.ask("upgrade.progress"), "result"), qint64(2));
        QCOMPARE(installed("mcu.bin"), QByteArray("firmware"));
    }

    void silence_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("lastAnswered");
        QTest::addColumn<bool>("isInstalled");

        QTest::newRow("in a transfer") << "silent=send"
                                       << "file.data" << false;
        QTest::newRow("in an installation") << "silent=install"
                                            << "upgrade.configure" << true;
        QTest::newRow("there, if nothing else is told") << "silent"
                                                        << "upgrade.configure" << true;
        QTest::newRow("behind it") << "silent=done"
                                   << "upgrade.configure" << true;
        QTest::newRow("instead of a restart") << "silent=restart"
                                              << "upgrade.progress" << true;
        QTest::newRow("behind a restart") << "silent=return"
                                          << "device.shutdown" << true;
    }
    void silence()
    {
        QFETCH(QString, fault);
        QFETCH(QString, lastAnswered);
        QVERIFY(start({ "--install-ms", "0", "--restart-ms", "0", "--fault", fault }));
        const QByteArray bytes = image(QByteArray(1000, 'f'));
        QVERIFY(m_host.announceAndOpen(bytes));
        QVERIFY(m_host.sendChunk(bytes, 0, bytes.size() / 4));
        if (lastAnswered != "file.data") {
            const int rest = bytes.size() - bytes.size() / 4;
            QVERIFY(m_host.sendChunk(bytes, bytes.size() / 4, rest));
            QVERIFY(m_host.ask("file.close", { { QLatin1String("fileId"), 0 } }));
            QVERIFY(m_host.ask("upgrade.configure", order()));
        } else {
            m_host.send("file.data",
                        { { QLatin1String("fileId"), 0 },
                          { QLatin1String("offset"), bytes.size() / 4 },
                          { QLatin1String("bytes"), bytes.mid(bytes.size() / 4) } });
        }
        if (lastAnswered == "upgrade.configure") // its steps take no time
            QTRY_VERIFY(!installed("mcu.bin").isEmpty());
        if (lastAnswered == "upgrade.progress" || lastAnswered == "device.shutdown")
            QCOMPARE(number(m_host.waitForInstallation(), "result"), qint64(2));
        if (lastAnswered == "upgrade.progress")
            m_host.send("device.shutdown", restartOrder());
        if (lastAnswered == "device.shutdown") {
            QVERIFY(m_host.ask("device.shutdown", restartOrder()));
            QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
            QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
            QVERIFY(m_host.connectTo(m_device->port()));
        }
        QTRY_VERIFY(isMute(m_host));
        RawHost other;
        QVERIFY(other.connectTo(m_device->port()));
        QVERIFY(isMute(other));
        QCOMPARE(m_device->process().state(), QProcess::Running);
        QTEST(!installed("mcu.bin").isEmpty(), "isInstalled");

        m_device->process().terminate();
        QVERIFY(m_device->waitForEnd());
        QVERIFY(start({}));
        QVERIFY(m_host.ask("ping"));
    }

    void unplugged_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("result"); // of the installation, after the next start

        QTest::newRow("in a transfer") << "gone=send" << 0;
        QTest::newRow("in an installation") << "gone=install" << 3;
        QTest::newRow("there, if nothing else is told") << "gone" << 3;
        QTest::newRow("behind it") << "gone=done" << 2;
    }
    void unplugged()
    {
        QFETCH(QString, fault);
        QFETCH(int, result);
        QVERIFY(start({ "--install-ms", "0", "--restart-ms", "0", "--fault", fault }));
        const Answer sent = m_host.sendImage(image("firmware"));
        QCOMPARE(sent.has_value(), result != 0);
        if (sent)
            m_host.send("upgrade.configure", order());
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QVERIFY(m_host.waitForEnd());
        for (int i = 0; i < 3; ++i)
            QVERIFY(!m_host.connectTo(m_device->port()));
        m_device->process().terminate();
        QVERIFY(m_device->waitForEnd());
        QCOMPARE(m_device->process().exitCode(), 0);

        QVERIFY(start({}));
        QCOMPARE(number(m_host.ask("upgrade.progress"), "result"), qint64(result));
        QCOMPARE(installed("mcu.bin"), QByteArray(result == 2 ? "firmware" : ""));
        QVERIFY(QDir(m_state->filePath("incoming")).isEmpty());
    }

    void restartsWhileInstalling()
    {
        QVERIFY(start({ "--install-ms", "5", "--restart-ms", "0", "--fault", "restarts=40" }));
        QVERIFY(m_host.sendImage(image("firmware")));
        QVERIFY(m_host.ask("upgrade.configure", order()));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        const QJsonObject ready = m_device->nextEvent();
        QCOMPARE(ready.value("event").toString(), QString("ready"));
        QCOMPARE(ready.value("restarts").toInt(), 1);
        QVERIFY(m_host.waitForEnd());
        QVERIFY(m_host.connectTo(m_device->port()));
        const Answer progress = m_host.ask("upgrade.progress");
        QCOMPARE(number(progress, "result"), qint64(0));
        QCOMPARE(number(progress, "run"), qint64(1));
        QCOMPARE(installed("mcu.bin"), QByteArray());
        install("firmware"); // it happens once
        QCOMPARE(installed("mcu.bin"), QByteArray("firmware"));
    }

    void restartsWhileReceiving()
    {
        QVERIFY(
            start({ "--install-ms", "0", "--restart-ms", "0", "--fault", "restarts-sending=30" }));
        const QByteArray bytes = image(QByteArray(1000, 'f'));
        QVERIFY(m_host.announceAndOpen(bytes));
        QVERIFY(m_host.sendChunk(bytes, 0, bytes.size() / 4));
        QVERIFY(!m_host.sendChunk(bytes, bytes.size() / 4, 200));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("away"));
        QCOMPARE(m_device->nextEvent().value("event").toString(), QString("ready"));
        QVERIFY(m_host.connectTo(m_device->port()));
        const Answer answer = m_host.sendChunk(bytes, 0, 1); // what had arrived is forgotten
        QCOMPARE(answer->ack, quint16(4));
        install("firmware"); // it happens once
    }

private:
    bool isBricked() const
    {
        QFile file(m_state->filePath("state.json"));
        return file.open(QIODevice::ReadOnly)
            && QJsonDocument::fromJson(file.readAll()).object().value("bricked").toBool();
    }

    int tracedPings() const
    {
        QFile file(m_state->filePath("trace"));
        return file.open(QIODevice::ReadOnly) ? file.readAll().count("\"op\":\"ping\"") : 0;
    }

    /*! The second of two requests is noted when the device is done with the first. */
    bool isMute(RawHost &host)
    {
        const int before = tracedPings();
        host.send("ping");
        host.send("ping");
        return QTest::qWaitFor([&] { return tracedPings() >= before + 2; }) && host.hearsNothing();
    }

    /*! Starts the device on this test's state folder and connects to it. */
    bool start(const QStringList &options)
    {
        return m_device->start(
                   QStringLiteral(VELMAR_DEVICE_PROGRAM),
                   QStringList { "--state", m_state->path(), "--trace", m_state->filePath("trace") }
                       + options)
            && m_host.connectTo(m_device->port());
    }

    void install(const QByteArray &firmware)
    {
        const Answer closed = m_host.sendImage(image(firmware));
        QVERIFY(closed);
        QCOMPARE(closed->ack, quint16(0));
        QVERIFY(m_host.ask("upgrade.configure", order()));
        QCOMPARE(number(m_host.waitForInstallation(), "result"), qint64(2));
    }

    QByteArray installed(const char *path) const
    {
        QFile file(m_state->filePath("files/") + QLatin1String(path));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    std::unique_ptr<QTemporaryDir> m_state;
    std::unique_ptr<DeviceProcess> m_device;
    RawHost m_host;
};

QTEST_GUILESS_MAIN(tst_VelmarDeviceFaults)
#include "tst_velmardevicefaults.moc"
