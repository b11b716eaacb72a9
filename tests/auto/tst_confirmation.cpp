#include "device/confirmation.h"

#include "support/scriptedlink.h"
#include "support/stucklink.h"
#include "support/threadshortage.h"
#include "support/wallgreeting.h"

#include <QCborArray>
#include <QElapsedTimer>
#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;
using BizModel::LinkAnswer;
using std::chrono::milliseconds;

namespace {

QCborMap versions(const char *mcu)
{
    const QCborMap section { { QStringLiteral("code"), 0x0102 },
                             { QStringLiteral("version"), QString::fromLatin1(mcu) } };
    const QCborMap part { { QStringLiteral("type"), 1 },
                          { QStringLiteral("slotId"), 0 },
                          { QStringLiteral("section"), QCborArray { section } } };
    return { { QStringLiteral("parts"), QCborArray { part } } };
}

LinkAnswer progress(int result)
{
    return ScriptedLink::accepted(
        { { QStringLiteral("run"), 1 }, { QStringLiteral("result"), result } });
}

/*! A device that is at its end of an upgrade to 1.1.0.0, and restarts on the third look. */
std::shared_ptr<ScriptedLink> restartingLink(const char *versionBehind)
{
    auto link = std::make_shared<ScriptedLink>();
    link->answer(QStringLiteral("hello"), ScriptedLink::accepted(wallGreeting()));
    for (int look = 0; look < 2; ++look) {
        link->queue(QStringLiteral("upgrade.progress"), progress(2));
        link->queue(QStringLiteral("version.read"), ScriptedLink::accepted(versions("1.0.0.0")));
    }
    link->queue(QStringLiteral("upgrade.progress"),
                ScriptedLink::failed(LinkAnswer::Outcome::Lost));
    link->answer(QStringLiteral("upgrade.progress"), progress(0));
    link->answer(QStringLiteral("version.read"), ScriptedLink::accepted(versions(versionBehind)));
    return link;
}

ConfirmationOrder order()
{
    PlannedSection section;
    section.isMainControl = true;
    section.type = 1;
    section.code = 0x0102;
    section.name = QStringLiteral("MCU");
    section.versionBefore = QStringLiteral("1.0.0.0");
    section.versionExpected = QStringLiteral("1.1.0.0");
    ConfirmationOrder order;
    order.device = { QStringLiteral("wall"), 9720 };
    order.serial = QStringLiteral("S8-0001");
    order.sections = { section };
    return order;
}

/*! A judge that waits for nothing but a restart, which is in the script. */
ConfirmationTimes quick()
{
    ConfirmationTimes times;
    times.poll = milliseconds(1);
    times.answer = milliseconds(750);
    times.steady = milliseconds(0);
    times.settle = milliseconds(5);
    times.grace = std::chrono::minutes(1);
    return times;
}

/*! Takes the signals of a Confirmation. */
struct Taken {
    explicit Taken(Confirmation &confirmation)
    {
        QObject::connect(&confirmation, &Confirmation::signalStatus, &confirmation,
                         [this](const QString &text) { statuses.append(text); });
        QObject::connect(&confirmation, &Confirmation::signalReturned, &confirmation,
                         [this] { words.append(QStringLiteral("returned")); });
        QObject::connect(&confirmation, &Confirmation::signalEnded, &confirmation,
                         [this](const Verdict &verdict) {
                             words.append(verdictWord(verdict.code));
                             sentence = verdict.sentence;
                         });
    }

    QStringList statuses;
    QStringList words; // of the end, and of the return before
    QString sentence;
};

} // namespace

class tst_Confirmation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noRoomForAThread()
    {
        const auto link = restartingLink("1.1.0.0");
        Confirmation confirmation(order(), quick(), [&](const DeviceAddress &) { return link; });
        Taken taken(confirmation);
        {
            const ThreadShortage shortage;
            confirmation.start();
        }
        QCOMPARE(taken.words, QStringList()); // whoever called is not waiting yet
        QTRY_COMPARE_WITH_TIMEOUT(taken.words, QStringList("versions-unreadable"), 30000);
        QCOMPARE(taken.sentence,
                 QStringLiteral("The device cannot be asked for its versions: Resource temporarily "
                                "unavailable"));
    }

    void deviceThatRestarts_data()
    {
        QTest::addColumn<QByteArray>("version");
        QTest::addColumn<QString>("word");

        QTest::newRow("new firmware") << QByteArray("1.1.0.0") << "confirmed";
        QTest::newRow("old firmware") << QByteArray("1.0.0.0") << "not-installed";
        QTest::newRow("other firmware") << QByteArray("9.0.0.0") << "versions-differ";
    }
    void deviceThatRestarts()
    {
        QFETCH(QByteArray, version);
        QFETCH(QString, word);
        const auto link = restartingLink(version.constData());
        DeviceAddress asked;
        Confirmation confirmation(order(), quick(), [&](const DeviceAddress &address) {
            asked = address;
            return link;
        });
        Taken taken(confirmation);
        confirmation.start();
        QTRY_COMPARE(taken.words, QStringList({ QStringLiteral("returned"), word }));
        QCOMPARE(asked.toString(), QStringLiteral("wall:9720"));
        QCOMPARE(taken.statuses.constFirst(), QStringLiteral("Looking for the device"));
        QVERIFY(taken.statuses.contains(QStringLiteral("Comparing the versions of the device")));
        QVERIFY(confirmation.versions());
        QCOMPARE(confirmation.versions()->parts.at(0).section.at(0).version, version.toStdString());
        QCOMPARE(link->requests().constFirst().timeout, 750);
        QVERIFY(!link->isOpen());
    }

    void connectionIsHeldBetweenTheLooks()
    {
        const auto link = restartingLink("1.1.0.0");
        Confirmation confirmation(order(), quick(), [&](const DeviceAddress &) { return link; });
        Taken taken(confirmation);
        confirmation.start();
        QTRY_COMPARE(taken.words.size(), 2);
        QCOMPARE(link->arguments(QStringLiteral("hello")).size(), 2); // again behind the restart
        QVERIFY(link->arguments(QStringLiteral("version.read")).size() >= 3);
    }

    void end_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<QString>("word");
        QTest::addColumn<QString>("sentence");

        QTest::newRow("never back") << "away"
                                    << "not-returned"
                                    << "The device has not come back in 0 s: wall:9720 cannot be "
                                       "reached: scripted device is unreachable. Check the "
                                       "address, and that the device is switched on";
        QTest::newRow("another device") << "another"
                                        << "other-device"
                                        << "The device S8-0002 answers at the address of S8-0001";
        QTest::newRow("refuses its versions") << "refuses"
                                              << "versions-unreadable"
                                              << "The device does not tell its versions: not now";
        QTest::newRow("versions that are garbage")
            << "bad versions"
            << "versions-unreadable"
            << "The device does not tell its versions: the answer has no valid \"parts\"";
        QTest::newRow("versions N/A") << "untold"
                                      << "versions-unreadable"
                                      << "The device does not tell the version of \"MCU\" of the "
                                         "main control";
        QTest::newRow("never restarts")
            << "at its end"
            << "not-restarted"
            << "The device has not restarted, and tells versions from before";
    }
    void end()
    {
        QFETCH(QString, device);
        const auto link = std::make_shared<ScriptedLink>();
        link->answer(QStringLiteral("hello"), ScriptedLink::accepted(wallGreeting()));
        link->answer(QStringLiteral("upgrade.progress"), progress(0));
        link->answer(QStringLiteral("version.read"), ScriptedLink::accepted(versions("1.0.0.0")));
        if (device == QLatin1String("away")) {
            link->close();
            link->setReachable(false);
        } else if (device == QLatin1String("another")) {
            link->answer(QStringLiteral("hello"), ScriptedLink::accepted(wallGreeting("S8-0002")));
        } else if (device == QLatin1String("refuses")) {
            link->answer(QStringLiteral("version.read"),
                         ScriptedLink::refused(4, QStringLiteral("not now")));
        } else if (device == QLatin1String("bad versions")) {
            link->answer(QStringLiteral("version.read"),
                         ScriptedLink::accepted({ { QStringLiteral("parts"), 1 } }));
        } else if (device == QLatin1String("untold")) {
            link->answer(QStringLiteral("version.read"), ScriptedLink::accepted(versions("N/A")));
        } else {
            link->answer(QStringLiteral("upgrade.progress"), progress(2));
        }
        auto limited = order();
        if (device == QLatin1String("away"))
            limited.limit = milliseconds(300);
        auto times = quick();
        times.grace = milliseconds(10);
        Confirmation confirmation(limited, times, [&](const DeviceAddress &) { return link; });
        Taken taken(confirmation);
        confirmation.start();
        QTRY_VERIFY(!taken.words.isEmpty() && taken.words.constLast() != QLatin1String("returned"));
        QTEST(taken.words.constLast(), "word");
        QTEST(taken.sentence, "sentence");
        // Versions of another device are none of this one's.
        QCOMPARE(confirmation.versions().has_value(),
                 device == QLatin1String("untold") || device == QLatin1String("at its end"));
    }

    void stopIsTheLastWord_data()
    {
        QTest::addColumn<QString>("when");

        QTest::newRow("before the start") << "before";
        QTest::newRow("at once") << "at once";
        QTest::newRow("with a status") << "status";
        QTest::newRow("with the return") << "returned";
        QTest::newRow("twice") << "twice";
    }
    void stopIsTheLastWord()
    {
        QFETCH(QString, when);
        const auto link = restartingLink("1.1.0.0");
        auto confirmation = std::make_unique<Confirmation>(
            order(), quick(), [&](const DeviceAddress &) { return link; });
        Taken taken(*confirmation);
        bool isStopped = false;
        const auto stop = [&] {
            confirmation->stop();
            isStopped = true;
        };
        QObject receiver;
        if (when == QLatin1String("status"))
            connect(confirmation.get(), &Confirmation::signalStatus, &receiver,
                    [&](const QString &text) {
                        if (text.startsWith(QLatin1String("Waiting")))
                            stop();
                    });
        if (when == QLatin1String("returned"))
            connect(confirmation.get(), &Confirmation::signalReturned, &receiver, stop);
        if (when == QLatin1String("before"))
            stop();
        confirmation->start();
        if (when == QLatin1String("at once") || when == QLatin1String("twice"))
            stop();
        if (when == QLatin1String("twice"))
            confirmation->stop();
        QTRY_VERIFY(isStopped);
        const auto statuses = taken.statuses;
        const auto words = taken.words;
        confirmation.reset(); // waits for the thread
        QCoreApplication::processEvents();
        QCOMPARE(taken.statuses, statuses);
        QCOMPARE(taken.words, words);
        QVERIFY(!words.contains(QStringLiteral("confirmed")));
    }

    void endWhileALookIsUnderWay_data()
    {
        QTest::addColumn<bool>("isReachable");

        QTest::newRow("device that does not answer") << true;
        QTest::newRow("address that takes no connection") << false;
    }
    void endWhileALookIsUnderWay()
    {
        QFETCH(bool, isReachable);
        const auto link = std::make_shared<StuckLink>(isReachable);
        auto confirmation = std::make_unique<Confirmation>(
            order(), quick(), [&](const DeviceAddress &) { return link; });
        confirmation->start();
        QTRY_VERIFY(link->isWaiting());
        QElapsedTimer elapsed;
        elapsed.start();
        confirmation.reset();
        QVERIFY2(elapsed.elapsed() < 5000, qPrintable(QString::number(elapsed.elapsed())));
    }

    void endAtOnce()
    {
        const auto link = std::make_shared<StuckLink>(false);
        Confirmation(order(), quick(), [&](const DeviceAddress &) { return link; }).start();
    }
};

QTEST_GUILESS_MAIN(tst_Confirmation)
#include "tst_confirmation.moc"
