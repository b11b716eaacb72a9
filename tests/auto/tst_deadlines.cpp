#include "run/deadlines.h"

#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

namespace {

constexpr qint64 MiB = 1024 * 1024;

LinkTraffic traffic(qint64 answers, qint64 sentBytes = 0, qint64 totalBytes = -1)
{
    LinkTraffic traffic;
    traffic.requests = answers;
    traffic.answers = answers;
    traffic.sentBytes = sentBytes;
    traffic.totalBytes = totalBytes;
    return traffic;
}

LinkTraffic ordered(LinkTraffic traffic)
{
    traffic.isOrdered = true;
    return traffic;
}

LinkTraffic overdue(LinkTraffic traffic, int count)
{
    traffic.requests += count;
    traffic.overdue = count;
    return traffic;
}

ProtoModel::Auxiliary::s_UpgradePercent installing(quint8 rate, quint8 sectionRate)
{
    ProtoModel::Auxiliary::s_UpgradePercent progress;
    progress.rate = rate;
    progress.result = 1;
    ProtoModel::Auxiliary::s_UpgradeCardParts part;
    ProtoModel::Auxiliary::s_SectionPercent section;
    section.rate = sectionRate;
    part.section.push_back(section);
    progress.parts.push_back(part);
    return progress;
}

/*! Deadlines by a clock that the test moves. */
class Watched
{
public:
    explicit Watched(Road road = Road::Native, milliseconds whole = milliseconds(0))
        : deadlines(road, whole, {}, [this] { return m_now; })
    {
        QObject::connect(&deadlines, &Deadlines::signalExpired, &deadlines,
                         [this](VerdictCode code, const QString &text) {
                             ends.append(verdictWord(code));
                             endText = text;
                         });
        QObject::connect(&deadlines, &Deadlines::signalPutOff, &deadlines,
                         [this](const QString &text) { putOffs.append(text); });
        deadlines.start();
    }

    void pass(milliseconds time)
    {
        m_now += time;
        deadlines.check();
    }

    /*! Whether it expires after \a limit, and not before. */
    bool expiresAfter(milliseconds limit)
    {
        pass(limit - milliseconds(1));
        if (!ends.isEmpty())
            return false;
        pass(milliseconds(1));
        return ends.size() == 1;
    }

private:
    milliseconds m_now { 1000000 };

public:
    Deadlines deadlines;
    QStringList ends;
    QString endText;
    QStringList putOffs;
};

} // namespace

Q_DECLARE_METATYPE(Velmar::Host::Road)
Q_DECLARE_METATYPE(Velmar::Host::Phase)
Q_DECLARE_METATYPE(Velmar::Host::LinkTraffic)

class tst_Deadlines : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void silence_data()
    {
        QTest::addColumn<Phase>("phase");
        QTest::addColumn<LinkTraffic>("told");
        QTest::addColumn<int>("limit"); // seconds
        QTest::addColumn<QString>("word");
        QTest::addColumn<QString>("text");

        const auto silent = QStringLiteral("The upgrade's process has said nothing for %1");
        const auto taken = QStringLiteral("The device has taken nothing for %1");
        const auto answered = QStringLiteral("The device has not answered for %1");
        QTest::newRow("planning") << Phase::Planning << LinkTraffic() << 70 << "worker-died"
                                  << silent.arg("70 s");
        QTest::newRow("preparing")
            << Phase::Preparing << traffic(4) << 70 << "worker-died" << silent.arg("70 s");
        QTest::newRow("nothing sent yet")
            << Phase::Sending << traffic(4) << 70 << "silent-device" << taken.arg("70 s");
        QTest::newRow("sending") << Phase::Sending << traffic(9, 100, 900) << 60 << "silent-device"
                                 << taken.arg("60 s");
        QTest::newRow("sending, size unknown")
            << Phase::Sending << traffic(9, 100) << 60 << "silent-device" << taken.arg("60 s");
        QTest::newRow("all sent") << Phase::Sending << traffic(9, 900, 900) << 160
                                  << "silent-device" << taken.arg("160 s");
        QTest::newRow("all sent, may have begun to install")
            << Phase::Sending << ordered(traffic(9, 900, 900)) << 160 << "device-lost"
            << taken.arg("160 s");
        QTest::newRow("installing") << Phase::Installing << ordered(traffic(20, 900, 900)) << 120
                                    << "device-lost" << answered.arg("2 min");
        QTest::newRow("restarting") << Phase::Restarting << ordered(traffic(20, 900, 900)) << 70
                                    << "device-lost" << silent.arg("70 s");
    }
    void silence()
    {
        QFETCH(Phase, phase);
        QFETCH(LinkTraffic, told);
        QFETCH(int, limit);
        Watched run;
        run.deadlines.setSize(10 * MiB);
        run.deadlines.enter(phase);
        run.pass(seconds(30));
        run.deadlines.noteAlive();
        run.deadlines.noteTraffic(told);
        QVERIFY(run.expiresAfter(seconds(limit)));
        QCOMPARE(run.ends.size(), 1);
        QTEST(run.ends.constFirst(), "word");
        QTEST(run.endText, "text");
        run.pass(hours(24));
        QCOMPARE(run.ends.size(), 1); // once
    }

    void phaseWithoutALimitOfItsOwn_data()
    {
        QTest::addColumn<Phase>("phase");

        QTest::newRow("copying") << Phase::Copying;
        QTest::newRow("checking") << Phase::Checking;
        QTest::newRow("confirming") << Phase::Confirming;
    }
    void phaseWithoutALimitOfItsOwn()
    {
        QFETCH(Phase, phase);
        Watched run;
        run.deadlines.enter(phase);
        run.pass(hours(24));
        QVERIFY(run.ends.isEmpty());
    }

    void signOfLife_data()
    {
        QTest::addColumn<Phase>("phase");
        QTest::addColumn<QString>("sign");
        QTest::addColumn<bool>("counts");

        QTest::newRow("worker while preparing") << Phase::Preparing << "alive" << true;
        QTest::newRow("worker while sending") << Phase::Sending << "alive" << false;
        QTest::newRow("worker while installing") << Phase::Installing << "alive" << false;
        QTest::newRow("byte") << Phase::Sending << "byte" << true;
        QTest::newRow("answer while sending") << Phase::Sending << "answer" << true;
        QTest::newRow("percent while sending") << Phase::Sending << "percent" << true;
        QTest::newRow("answer while installing") << Phase::Installing << "answer" << true;
        QTest::newRow("request without an answer") << Phase::Installing << "request" << false;
        QTest::newRow("the same once more") << Phase::Installing << "repetition" << false;
    }
    void signOfLife()
    {
        QFETCH(Phase, phase);
        QFETCH(QString, sign);
        QFETCH(bool, counts);
        Watched run;
        run.deadlines.enter(phase);
        auto told = traffic(9, 100, 900);
        run.deadlines.noteTraffic(told);
        run.deadlines.notePercent(11);
        run.pass(seconds(50));
        if (sign == QLatin1String("alive")) {
            run.deadlines.noteAlive();
        } else if (sign == QLatin1String("percent")) {
            run.deadlines.notePercent(12);
        } else {
            if (sign == QLatin1String("byte"))
                told.sentBytes = 101;
            if (sign == QLatin1String("answer"))
                told.answers = 10;
            if (sign == QLatin1String("request"))
                told.requests = 10;
            run.deadlines.noteTraffic(told);
        }
        const auto limit = seconds(phase == Phase::Installing ? 120 : 60);
        run.pass(limit - seconds(50));
        QCOMPARE(run.ends.isEmpty(), counts);
        run.pass(seconds(50));
        QCOMPARE(run.ends.size(), 1);
    }

    void percentThatFallsIsNoSignOfLife()
    {
        Watched run;
        run.deadlines.enter(Phase::Sending);
        run.deadlines.notePercent(50);
        run.pass(seconds(30));
        run.deadlines.notePercent(10);
        QVERIFY(run.expiresAfter(seconds(30)));
    }

    void installationThatStandsStill()
    {
        Watched run;
        run.deadlines.enter(Phase::Installing);
        run.deadlines.noteInstalling(installing(40, 10));
        for (int minute = 1; minute < 15; ++minute) {
            run.pass(minutes(1));
            run.deadlines.noteTraffic(ordered(traffic(minute)));
            run.deadlines.noteInstalling(installing(40, 10));
        }
        QVERIFY(run.ends.isEmpty());
        QVERIFY(run.expiresAfter(minutes(1)));
        QCOMPARE(run.ends, QStringList(QStringLiteral("no-progress")));
        QCOMPARE(run.endText, QStringLiteral("The installation has stood still for 15 min"));
    }

    void installationThatGoesOn_data()
    {
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("sectionRate");
        QTest::addColumn<bool>("goesOn");

        QTest::newRow("overall rate") << 41 << 10 << true;
        QTest::newRow("overall rate, while a section begins anew") << 41 << 0 << true;
        QTest::newRow("rate of a section") << 40 << 11 << true;
        QTest::newRow("the same") << 40 << 10 << false;
        QTest::newRow("backwards") << 39 << 10 << false;
    }
    void installationThatGoesOn()
    {
        QFETCH(int, rate);
        QFETCH(int, sectionRate);
        QFETCH(bool, goesOn);
        Watched run;
        run.deadlines.enter(Phase::Installing);
        run.deadlines.noteInstalling(installing(40, 10));
        for (int minute = 1; minute <= 15; ++minute) {
            run.deadlines.noteTraffic(ordered(traffic(minute)));
            if (minute == 10)
                run.deadlines.noteInstalling(
                    installing(static_cast<quint8>(rate), static_cast<quint8>(sectionRate)));
            run.pass(minutes(1));
        }
        QCOMPARE(run.ends.isEmpty(), goesOn);
    }

    void whole_data()
    {
        QTest::addColumn<Phase>("phase");
        QTest::addColumn<LinkTraffic>("told");
        QTest::addColumn<QString>("word");

        QTest::newRow("copying") << Phase::Copying << LinkTraffic() << "out-of-time";
        QTest::newRow("sending") << Phase::Sending << traffic(9, 100, 900) << "out-of-time";
        QTest::newRow("sent and ordered")
            << Phase::Sending << ordered(traffic(9, 900, 900)) << "time-limit";
        QTest::newRow("installing")
            << Phase::Installing << ordered(traffic(9, 900, 900)) << "time-limit";
        QTest::newRow("watched, with a worker that has told nothing yet")
            << Phase::Installing << LinkTraffic() << "time-limit";
        QTest::newRow("confirming") << Phase::Confirming << ordered(traffic(9)) << "time-limit";
    }
    void whole()
    {
        QFETCH(Phase, phase);
        QFETCH(LinkTraffic, told);
        Watched run(Road::Native, seconds(45));
        run.deadlines.noteTraffic(told);
        run.deadlines.enter(phase);
        QVERIFY(run.expiresAfter(seconds(45)));
        QTEST(run.ends.constFirst(), "word");
        QCOMPARE(run.endText, QStringLiteral("The time limit of 45 s has passed"));
    }

    void haltedTimeCountsForNothing()
    {
        Watched run(Road::Native, seconds(100));
        run.deadlines.enter(Phase::Planning);
        run.pass(seconds(40));
        run.deadlines.stop();
        run.pass(hours(1)); // a person reads the plan
        QVERIFY(run.ends.isEmpty());
        run.deadlines.start();
        QVERIFY(run.expiresAfter(seconds(20)));
        QCOMPARE(run.ends, QStringList(QStringLiteral("worker-died")));
    }

    void startedTwiceIsStartedOnce()
    {
        Watched run(Road::Native, seconds(45));
        run.pass(seconds(30));
        run.deadlines.start();
        QVERIFY(run.expiresAfter(seconds(15)));
    }

    void phaseBeginsAnew()
    {
        Watched run;
        run.deadlines.enter(Phase::Sending);
        run.pass(seconds(50));
        run.deadlines.enter(Phase::Installing);
        run.pass(seconds(30));
        run.deadlines.enter(Phase::Installing); // which is no news
        QVERIFY(run.expiresAfter(seconds(90)));
        QCOMPARE(run.ends, QStringList(QStringLiteral("device-lost")));
    }

    void standstillBeginsWithTheInstallation()
    {
        Watched run;
        run.deadlines.enter(Phase::Sending);
        for (int minute = 1; minute <= 29; ++minute) {
            if (minute == 15)
                run.deadlines.enter(Phase::Installing);
            run.deadlines.noteTraffic(traffic(minute));
            run.pass(seconds(59));
        }
        QVERIFY(run.ends.isEmpty());
        run.deadlines.noteTraffic(traffic(30));
        run.pass(seconds(16));
        QCOMPARE(run.ends, QStringList(QStringLiteral("no-progress")));
    }

    void orderOfAFormerWorkerCounts_data()
    {
        QTest::addColumn<int>("whole"); // seconds
        QTest::addColumn<QString>("word");

        QTest::newRow("silence") << 0 << "device-lost";
        QTest::newRow("whole") << 40 << "time-limit";
    }
    void orderOfAFormerWorkerCounts()
    {
        QFETCH(int, whole);
        Watched run(Road::Native, seconds(whole));
        run.deadlines.enter(Phase::Installing);
        run.deadlines.noteTraffic(ordered(traffic(20)));
        run.deadlines.resetTraffic();
        run.deadlines.enter(Phase::Planning); // to watch
        run.deadlines.noteTraffic(traffic(1));
        run.pass(seconds(60));
        QCOMPARE(run.ends.size(), 1);
        QTEST(run.ends.constFirst(), "word");
    }

    void newWorkerBeginsAnew()
    {
        Watched run;
        run.deadlines.enter(Phase::Installing);
        run.deadlines.noteTraffic(ordered(traffic(500, 900, 900)));
        run.pass(seconds(100));
        run.deadlines.resetTraffic();
        run.pass(seconds(100));
        run.deadlines.noteTraffic(traffic(1)); // fewer answers than the last worker's, and news
        QVERIFY(run.expiresAfter(seconds(120)));
        QCOMPARE(run.ends, QStringList(QStringLiteral("device-lost")));
    }

    void registersAreNotLeftInBetween()
    {
        Watched run(Road::Registers, minutes(10));
        run.deadlines.enter(Phase::Sending);
        auto told = overdue(traffic(30, 4096, 900000), 1);
        run.deadlines.noteTraffic(told);
        run.deadlines.noteAlive();
        run.pass(seconds(61));
        run.pass(seconds(20));
        QVERIFY(run.ends.isEmpty());
        QCOMPARE(run.putOffs,
                 QStringList(QStringLiteral(
                     "The device has taken nothing for 60 s. The upgrade goes on: the device is "
                     "being written register by register, and is not to be left in between")));
        told.overdue = 3;
        run.deadlines.noteTraffic(told);
        run.deadlines.check();
        QCOMPARE(run.ends, QStringList(QStringLiteral("silent-device")));
    }

    void workerThatIsStuckBetweenRegisters()
    {
        Watched run(Road::Registers);
        run.deadlines.enter(Phase::Sending);
        run.deadlines.noteTraffic(traffic(30, 4096, 900000));
        run.deadlines.noteAlive();
        QVERIFY(run.expiresAfter(minutes(5)));
        QCOMPARE(run.ends, QStringList(QStringLiteral("silent-device")));
    }

    void endThatWasPutOffIsConfirmed()
    {
        Watched run(Road::Registers, minutes(1));
        run.deadlines.enter(Phase::Sending);
        run.deadlines.noteTraffic(ordered(traffic(30, 4096, 900000)));
        run.deadlines.noteAlive();
        run.pass(seconds(70));
        QCOMPARE(run.putOffs.size(), 1);
        run.deadlines.enter(Phase::Confirming);
        run.pass(hours(1));
        QVERIFY(run.ends.isEmpty());
    }

    void takenBack()
    {
        Watched run(Road::Registers, minutes(1));
        run.deadlines.enter(Phase::Planning);
        QVERIFY(run.expiresAfter(minutes(1)));
        run.deadlines.putOff();
        run.deadlines.noteAlive();
        run.deadlines.enter(Phase::Sending);
        auto told = ordered(traffic(30, 4096, 900000));
        run.deadlines.noteTraffic(told);
        run.pass(seconds(50));
        QCOMPARE(run.ends.size(), 1);
        QVERIFY(run.putOffs.isEmpty()); // whoever took it back has said why
        told.overdue = 3;
        run.deadlines.noteTraffic(told);
        run.deadlines.check();
        QCOMPARE(run.ends.size(), 2);
    }

    void givingUp_data()
    {
        QTest::addColumn<Road>("road");
        QTest::addColumn<Phase>("phase");
        QTest::addColumn<LinkTraffic>("told");
        QTest::addColumn<bool>("may");

        const auto writing = traffic(30, 4096, 900000);
        QTest::newRow("planning") << Road::Registers << Phase::Planning << traffic(3) << true;
        QTest::newRow("preparing") << Road::Native << Phase::Preparing << traffic(3) << true;
        QTest::newRow("image on its way") << Road::Native << Phase::Sending << writing << true;
        QTest::newRow("upload on its way") << Road::Http << Phase::Sending << writing << true;
        QTest::newRow("installing")
            << Road::Native << Phase::Installing << ordered(writing) << true;
        QTest::newRow("restarting")
            << Road::Native << Phase::Restarting << ordered(writing) << true;
        QTest::newRow("before the first register")
            << Road::Registers << Phase::Sending << traffic(3) << true;
        QTest::newRow("first register ordered")
            << Road::Registers << Phase::Sending << ordered(traffic(3)) << false;
        QTest::newRow("first register under way")
            << Road::Registers << Phase::Sending << overdue(traffic(3), 1) << false;
        QTest::newRow("between registers") << Road::Registers << Phase::Sending << writing << false;
        QTest::newRow("two answers overdue")
            << Road::Registers << Phase::Sending << overdue(writing, 2) << false;
        QTest::newRow("three answers overdue")
            << Road::Registers << Phase::Sending << overdue(writing, 3) << true;
        QTest::newRow("registers written")
            << Road::Registers << Phase::Restarting << ordered(writing) << true;
    }
    void givingUp()
    {
        QFETCH(Road, road);
        QFETCH(Phase, phase);
        QFETCH(LinkTraffic, told);
        QFETCH(bool, may);
        QString why;
        QCOMPARE(mayGiveUp(road, phase, told, why), may);
        QCOMPARE(why.isEmpty(), may);
    }

    void looksAtTheClockByItself()
    {
        QString word;
        Deadlines deadlines(Road::Native, milliseconds(1));
        connect(&deadlines, &Deadlines::signalExpired, &deadlines,
                [&word](VerdictCode code) { word = verdictWord(code); });
        deadlines.start();
        QTRY_COMPARE(word, QStringLiteral("out-of-time"));
    }
};

QTEST_GUILESS_MAIN(tst_Deadlines)
#include "tst_deadlines.moc"
