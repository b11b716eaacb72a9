#include "show/rundisplay.h"

#include <QtTest>

#include <clocale>

using namespace Velmar::Host;
using std::chrono::milliseconds;
using std::chrono::seconds;

// What each test sees is what a terminal got, with the sequences of colours, lines and places.
class tst_RunDisplay : public QObject
{
    Q_OBJECT

    QString m_out;
    QString m_error;
    milliseconds m_time { 0 };
    int m_columns = 80;
    int m_rows = 24;

    RunDisplayOptions log()
    {
        RunDisplayOptions options;
        options.clock = [this] {
            return m_time;
        };
        return options;
    }

    RunDisplayOptions terminal()
    {
        auto options = log();
        options.style.redraws = true;
        options.style.columns = [this] {
            return m_columns;
        };
        options.style.rows = [this] {
            return m_rows;
        };
        return options;
    }

    RunDisplay display(const RunDisplayOptions &options)
    {
        return RunDisplay(
            options, [this](const QString &text) { m_out += text; },
            [this](const QString &text) { m_error += text; });
    }

    QString taken() { return std::exchange(m_out, QString()); }
    QString takenError() { return std::exchange(m_error, QString()); }

    static RunEvent phase(Phase phase, int place, seconds silence = seconds(0))
    {
        RunEvent event;
        event.kind = RunEvent::Kind::Phase;
        event.phase = phase;
        event.place = place;
        event.places = 8;
        event.silence = silence;
        return event;
    }

    static RunEvent sending(qint64 sent, qint64 total)
    {
        auto event = phase(Phase::Sending, 5);
        event.kind = RunEvent::Kind::Progress;
        event.bytesSent = sent;
        event.bytesTotal = total;
        return event;
    }

    static RunEvent installing(int percent, const std::vector<PartProgress> &parts = {})
    {
        auto event = phase(Phase::Installing, 6);
        event.kind = RunEvent::Kind::Progress;
        event.percent = percent;
        event.parts = parts;
        return event;
    }

    static RunEvent text(RunEvent::Kind kind, const QString &text, const QString &code = QString())
    {
        RunEvent event;
        event.kind = kind;
        event.text = text;
        event.code = code;
        return event;
    }

    static RunEvent end(VerdictCode code, const QString &sentence)
    {
        RunEvent event;
        event.kind = RunEvent::Kind::Verdict;
        event.summary.emplace();
        event.summary->verdict = verdict(code, sentence);
        return event;
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(std::setlocale(LC_CTYPE, "C.UTF-8")); }

    void init()
    {
        m_out.clear();
        m_error.clear();
        m_time = seconds(1000);
        m_columns = 80;
        m_rows = 24;
    }

    void logHasALineWhenPhaseOrTenthChanges()
    {
        auto shown = display(log());
        shown.take(phase(Phase::Preparing, 4, seconds(120)));
        QCOMPARE(taken(), QStringLiteral("[4/8] Preparing, may be silent for up to 2 min\n"));
        m_time += seconds(30);
        shown.refresh();
        QCOMPARE(taken(), QString());
        shown.take(phase(Phase::Sending, 5));
        for (int percent : { 0, 1, 9, 10, 19, 35, 100 }) {
            m_time += seconds(1);
            shown.take(sending(percent * 1024 * 1024, 100 * 1024 * 1024));
        }
        QCOMPARE(taken(),
                 QStringLiteral("[5/8] Sending\n"
                                "[5/8] Sending 0%, 0 of 100 MiB, 0:01\n"
                                "[5/8] Sending 10%, 10 of 100 MiB, 0:04\n"
                                "[5/8] Sending 35%, 35 of 100 MiB, 0:06\n"
                                "[5/8] Sending 99%, 100 of 100 MiB, 0:07\n"));
        shown.take(phase(Phase::Installing, 6));
        QCOMPARE(taken(), QStringLiteral("[6/8] Installing\n"));
    }

    void logHasALineWhenThePartsStateChanges()
    {
        auto shown = display(log());
        shown.take(phase(Phase::Installing, 6));
        taken();
        shown.take(installing(0, { { "Slot 3", 0, "installing" }, { "Slot 4", 0, "waiting" } }));
        QCOMPARE(taken(),
                 QStringLiteral("      Slot 3: installing\n"
                                "      Slot 4: waiting\n"
                                "[6/8] Installing 0%, 0:00\n"));
        shown.take(installing(5, { { "Slot 3", 10, "installing" }, { "Slot 4", 0, "waiting" } }));
        QCOMPARE(taken(), QString());
        shown.take(installing(9, { { "Slot 3", 100, "done" }, { "Slot 4", 0, "waiting" } }));
        QCOMPARE(taken(), QStringLiteral("      Slot 3: done\n"));
    }

    void lineIsRedrawnInPlace()
    {
        m_columns = 61;
        auto shown = display(terminal());
        shown.take(phase(Phase::Sending, 5));
        QCOMPARE(taken(), QStringLiteral("[5/8] Sending  0:00\x1b[K\x1b[J"));
        m_time += seconds(2);
        shown.take(sending(128, 256));
        QCOMPARE(taken(),
                 QStringLiteral("\r[5/8] Sending [#########..........]  "
                                "50%, 128 of 256 B, 0:02\x1b[K\x1b[J"));
        shown.take(sending(128, 256));
        QCOMPARE(taken(), QString());
    }

    void phaseThatIsOverStays()
    {
        auto shown = display(terminal());
        shown.take(phase(Phase::Sending, 5));
        shown.take(sending(128, 256));
        m_time += seconds(61);
        shown.take(sending(256, 256));
        taken();
        shown.take(phase(Phase::Installing, 6));
        QCOMPARE(taken(),
                 QStringLiteral("\r[5/8] Sending: done, 256 B, 1:01\x1b[K\x1b[J\n"
                                "[6/8] Installing  0:00\x1b[K\x1b[J"));
    }

    void elapsedTimeTicks()
    {
        auto shown = display(terminal());
        shown.refresh();
        QCOMPARE(taken(), QString());
        shown.take(phase(Phase::Checking, 2));
        taken();
        m_time += milliseconds(999);
        shown.refresh();
        QCOMPARE(taken(), QString());
        m_time += milliseconds(1);
        shown.refresh();
        QCOMPARE(taken(), QStringLiteral("\r[2/8] Checking the package  0:01\x1b[K\x1b[J"));
        m_time += seconds(3600);
        shown.refresh();
        QCOMPARE(taken(),
                 QStringLiteral("\r[2/8] Checking the package  1:00:01, no news for 1:00:01"
                                "\x1b[K\x1b[J"));
    }

    void silenceIsExplained()
    {
        m_columns = 120;
        auto shown = display(terminal());
        shown.take(phase(Phase::Installing, 6, seconds(120)));
        QCOMPARE(taken(),
                 QStringLiteral("[6/8] Installing  0:00, may be silent for up to 2 min"
                                "\x1b[K\x1b[J"));
        m_time += seconds(5);
        shown.refresh();
        QCOMPARE(taken(),
                 QStringLiteral("\r[6/8] Installing  0:05, no news for 0:05 of at most 2 min"
                                "\x1b[K\x1b[J"));
        shown.take(installing(0));
        QCOMPARE(taken(),
                 QStringLiteral("\r[6/8] Installing [........................................]  "
                                "0%, 0:05\x1b[K\x1b[J"));
    }

    void remainingTimeOfASteadyRate()
    {
        m_columns = 120;
        auto shown = display(terminal());
        shown.take(phase(Phase::Sending, 5));
        for (int percent = 0; percent < 5; ++percent) {
            shown.take(sending(percent, 100));
            m_time += seconds(1);
        }
        QVERIFY(!taken().contains(QStringLiteral("left")));
        shown.take(sending(5, 100));
        // 95 seconds are left.
        QCOMPARE(taken(),
                 QStringLiteral("\r[5/8] Sending [##......................................]  "
                                "5%, 5 of 100 B, 0:05, about 1:35 left\x1b[K\x1b[J"));
        m_time += seconds(10);
        shown.refresh();
        QVERIFY(!taken().contains(QStringLiteral("left")));
    }

    void partsAreLinesOfTheBlock()
    {
        m_columns = 41;
        auto shown = display(terminal());
        shown.take(phase(Phase::Installing, 6));
        taken();
        shown.take(installing(42, { { "Slot 3", 100, "done" }, { "Slot 12", 7, "installing" } }));
        QCOMPARE(taken(),
                 QStringLiteral("\r[6/8] Installing [####......]  42%, 0:00\x1b[K\n"
                                "      Slot 3  100%  done\x1b[K\n"
                                "      Slot 12   7%  installing\x1b[K\x1b[J"));
        shown.take(installing(43, { { "Slot 3", 100, "done" }, { "Slot 12", 8, "installing" } }));
        QCOMPARE(taken(),
                 QStringLiteral("\r\x1b[2A[6/8] Installing [####......]  43%, 0:00\x1b[K\n"
                                "      Slot 3  100%  done\x1b[K\n"
                                "      Slot 12   8%  installing\x1b[K\x1b[J"));
        // A narrower terminal has broken the longest lines in two.
        m_columns = 20;
        shown.refresh();
        QVERIFY(taken().startsWith(QStringLiteral("\r\x1b[5A[6/8] Installing  4")));
    }

    void partsThatDoNotFitAreCounted_data()
    {
        QTest::addColumn<QList<int>>("percents");
        QTest::addColumn<QString>("shown");

        QTest::newRow("those at work first")
            << QList<int> { 100, 50, 0, 0, 100 }
            << "      Slot 2  50%  \n      Slot 3   0%  \n      and 3 more, 2 of them at 100%";
        QTest::newRow("then those that are ready")
            << QList<int> { 100, 100, 100, 100, 7 }
            << "      Slot 1 100%  \n      Slot 5   7%  \n      and 3 more, 3 of them at 100%";
        QTest::newRow("none is ready")
            << QList<int> { 1, 2, 3, 4, 5 }
            << "      Slot 1   1%  \n      Slot 2   2%  \n      and 3 more";
        QTest::newRow("all fit") << QList<int> { 1, 2, 100 }
                                 << "      Slot 1   1%  \n      Slot 2   2%  \n      Slot 3 100%  ";
    }
    void partsThatDoNotFitAreCounted()
    {
        QFETCH(QList<int>, percents);
        QFETCH(QString, shown);
        m_rows = 5;
        auto display = this->display(terminal());
        display.take(phase(Phase::Installing, 6));
        taken();
        std::vector<PartProgress> parts;
        parts.reserve(percents.size());
        for (int i = 0; i < percents.size(); ++i)
            parts.push_back({ QStringLiteral("Slot %1").arg(i + 1), percents.at(i), QString() });
        display.take(installing(42, parts));
        const QString block = taken().remove(QStringLiteral("\x1b[K")).remove("\x1b[J");
        QCOMPARE(block.mid(block.indexOf(QLatin1Char('\n')) + 1), shown);
        // At the end of the phase all of them stay.
        display.take(phase(Phase::Restarting, 7));
        QCOMPARE(taken().count(QStringLiteral("Slot")), percents.size());
    }

    void wideLettersTakeTwoColumns()
    {
        auto shown = display(terminal());
        shown.take(phase(Phase::Installing, 6));
        taken();
        shown.take(installing(
            0,
            { { QStringLiteral("\u4e2d\u592e"), 1, "a" }, { QStringLiteral("e\u0301"), 2, "b" } }));
        QVERIFY(taken().endsWith(QStringLiteral("      \u4e2d\u592e   1%  a\x1b[K\n"
                                                "      e\u0301      2%  b\x1b[K\x1b[J")));
    }

    void narrowTerminal_data()
    {
        QTest::addColumn<int>("columns");
        QTest::addColumn<QString>("line");

        QTest::newRow("widest bar")
            << 200
            << "[5/8] Sending [####################....................]  50%, 64 of 128 B, 0:00";
        QTest::newRow("narrowest bar with bytes")
            << 51 << "[5/8] Sending [#####.....]  50%, 64 of 128 B, 0:00";
        QTest::newRow("no room for the bytes")
            << 50 << "[5/8] Sending [###########...........]  50%, 0:00";
        QTest::newRow("narrowest bar") << 38 << "[5/8] Sending [#####.....]  50%, 0:00";
        QTest::newRow("no room for a bar") << 37 << "[5/8] Sending  50%, 0:00";
        QTest::newRow("no room for all") << 11 << "[5/8] Send";
        QTest::newRow("no room") << 1 << "";
    }
    void narrowTerminal()
    {
        QFETCH(int, columns);
        QFETCH(QString, line);
        m_columns = columns;
        auto shown = display(terminal());
        shown.take(sending(64, 128));
        QCOMPARE(taken(), line + QStringLiteral("\x1b[K\x1b[J"));
    }

    void narrowTerminalDropsTheHintFirst()
    {
        m_columns = 54;
        auto shown = display(terminal());
        shown.take(phase(Phase::Installing, 6, seconds(60)));
        QCOMPARE(taken(),
                 QStringLiteral("[6/8] Installing  0:00, may be silent for up to 1 min"
                                "\x1b[K\x1b[J"));
        m_columns = 53;
        shown.refresh();
        QCOMPARE(taken(), QStringLiteral("\r[6/8] Installing  0:00\x1b[K\x1b[J"));
    }

    void coloursOnRequest()
    {
        m_columns = 41;
        auto options = terminal();
        options.style.colours = true;
        auto shown = display(options);
        shown.take(installing(50));
        QCOMPARE(taken(),
                 QStringLiteral("[6/8] Installing [\x1b[32m#####\x1b[0m.....]  50%, 0:00"
                                "\x1b[K\x1b[J"));
        shown.take(end(VerdictCode::Confirmed, "All is well."));
        QVERIFY(taken().contains(QStringLiteral("\n\x1b[32mAll is well.\x1b[0m\n")));
    }

    void errorsAreColouredByTheirOwnStream_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("colour");
        QTest::newRow("failed") << int(VerdictCode::InstallFailed) << "\x1b[31m";
        QTest::newRow("unconfirmed") << int(VerdictCode::NotReturned) << "\x1b[33m";
    }
    void errorsAreColouredByTheirOwnStream()
    {
        QFETCH(int, code);
        QFETCH(QString, colour);
        auto options = log();
        options.coloursErrors = true;
        auto shown = display(options);
        shown.take(end(VerdictCode(code), "Oh."));
        QVERIFY(takenError().startsWith(QStringLiteral("velmar-upgrade: ") + colour
                                        + QStringLiteral("Oh.\x1b[0m\n")));
    }

    void messagesScrollByAboveTheBlock()
    {
        auto shown = display(terminal());
        shown.message("before");
        QCOMPARE(taken(), QStringLiteral("before\n"));
        shown.take(phase(Phase::Copying, 1));
        taken();
        shown.message("news");
        QCOMPARE(taken(),
                 QStringLiteral("\r\x1b[Jnews\n[1/8] Copying the package  0:00\x1b[K\x1b[J"));
        shown.take(text(RunEvent::Kind::Message, "event"));
        QCOMPARE(taken(),
                 QStringLiteral("\r\x1b[Jevent\n[1/8] Copying the package  0:00\x1b[K\x1b[J"));
    }

    void warningsAndLogLinesGoToTheErrorStream()
    {
        auto options = terminal();
        options.isVerbose = true;
        auto shown = display(options);
        shown.take(phase(Phase::Copying, 1));
        taken();
        shown.take(text(RunEvent::Kind::Message, "mind the gap", "warning"));
        QCOMPARE(takenError(), QStringLiteral("warning: mind the gap\n"));
        // The block has made room.
        QCOMPARE(taken(), QStringLiteral("\r\x1b[J[1/8] Copying the package  0:00\x1b[K\x1b[J"));
        shown.take(text(RunEvent::Kind::Log, "open file", "debug"));
        QCOMPARE(takenError(), QStringLiteral("log: open file\n"));
        QCOMPARE(taken(), QStringLiteral("\r\x1b[J[1/8] Copying the package  0:00\x1b[K\x1b[J"));
    }

    void logLinesOnRequestOnly()
    {
        auto shown = display(log());
        shown.take(text(RunEvent::Kind::Log, "open file", "debug"));
        QCOMPARE(taken() + takenError(), QString());
    }

    void quietShowsWarningsAndTheVerdictOnly()
    {
        for (auto options : { log(), terminal() }) {
            options.isQuiet = true;
            options.isVerbose = true;
            auto shown = display(options);
            shown.take(phase(Phase::Installing, 6));
            shown.take(installing(50, { { "Slot 3", 100, "done" } }));
            shown.refresh();
            shown.message("news");
            shown.take(text(RunEvent::Kind::Log, "open file", "debug"));
            QCOMPARE(taken() + takenError(), QString());
            shown.take(text(RunEvent::Kind::Message, "mind the gap", "warning"));
            QCOMPARE(takenError(), QStringLiteral("warning: mind the gap\n"));
            shown.take(end(VerdictCode::Confirmed, "All is well."));
            QCOMPARE(taken(), QStringLiteral("All is well.\n"));
            QCOMPARE(takenError(), QString());
        }
    }

    void confirmedVerdict()
    {
        auto shown = display(terminal());
        shown.take(phase(Phase::Confirming, 8));
        taken();
        m_time += seconds(3);
        auto event = end(VerdictCode::Confirmed, "All is well.");
        event.summary->versions = {
            { "Main control", "MCU", "1.0.0.1", "1.0.0.2", "1.0.0.2" },
            { "Slot 3", "FPGA", "2.0", "2.0", "2.0" },
        };
        event.summary->bytesSent = 256 * 1024 * 1024;
        event.summary->wholeDuration = seconds(401);

        shown.take(event);

        QCOMPARE(taken(),
                 QStringLiteral("\r[8/8] Confirming: done, 0:03\x1b[K\x1b[J\n"
                                "All is well.\n"
                                "  verdict: confirmed\n"
                                "  versions:\n"
                                "    Main control  MCU   1.0.0.1 -> 1.0.0.2\n"
                                "    Slot 3        FPGA  2.0 (unchanged)\n"
                                "  sent: 256 MiB, took 6:41\n"));
        QCOMPARE(takenError(), QString());
        shown.refresh();
        QCOMPARE(taken(), QString());
    }

    void failedVerdictLeavesThePhaseAsItWas()
    {
        m_columns = 41;
        auto shown = display(terminal());
        shown.take(phase(Phase::Installing, 6, seconds(120)));
        shown.take(installing(50, { { "Slot 3", 50, "failed" } }));
        m_time += seconds(9);
        taken();
        auto event = end(VerdictCode::VersionsDiffer, "Something else is installed.");
        event.summary->causes = QStringList { "  slot 3: 0xff" };
        event.summary->verdict.advice = "Call us.";
        event.summary->versions = {
            { "Slot 3", "FPGA", "1.0", "1.2", "1.1" },
            { "Slot 4", "FPGA", "", "1.2", "1.2" },
            { "Slot 5", "FPGA", "1.0", "1.2", "" },
        };

        shown.take(event);

        QCOMPARE(taken(),
                 QStringLiteral("\r\x1b[1A[6/8] Installing [#####.....]  50%, 0:09\x1b[K\n"
                                "      Slot 3  50%  failed\x1b[K\x1b[J\n"));
        QCOMPARE(takenError(),
                 QStringLiteral("velmar-upgrade: Something else is installed.\n"
                                "  verdict: unconfirmed (versions-differ)\n"
                                "  cause: slot 3: 0xff\n"
                                "  advice: Call us.\n"
                                "  versions:\n"
                                "    Slot 3  FPGA  1.0 -> 1.1, planned 1.2\n"
                                "    Slot 4  FPGA  not known -> 1.2\n"
                                "    Slot 5  FPGA  1.0 -> not known, planned 1.2\n"
                                "  sent: 0 B, took 0:00\n"));
    }

    void questionBelowTheBlock()
    {
        auto shown = display(terminal());
        shown.take(phase(Phase::Planning, 3));
        taken();
        shown.close();
        QCOMPARE(taken(), QStringLiteral("\n"));
        shown.close();
        QCOMPARE(taken(), QString());
        shown.refresh();
        QCOMPARE(taken(), QStringLiteral("[3/8] Planning  0:00\x1b[K\x1b[J"));
    }

    void questionBehindADonePhase()
    {
        auto shown = display(terminal());
        shown.take(phase(Phase::Planning, 3, seconds(120)));
        m_time += seconds(2);
        taken();
        shown.finishPhase();
        QCOMPARE(taken(), QStringLiteral("\r[3/8] Planning: done, 0:02\x1b[K\x1b[J\n"));
        shown.refresh();
        shown.finishPhase();
        QCOMPARE(taken(), QString());
        shown.take(end(VerdictCode::Interrupted, "The device stays as it was"));
        QCOMPARE(taken(), QString());
    }

    void noVersionsWhereNothingWasBegun_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<qint64>("bytesSent");
        QTest::addColumn<QString>("after");
        QTest::addColumn<bool>("isListed");

        QTest::newRow("nothing sent") << int(VerdictCode::SendFailed) << qint64(0) << "" << false;
        QTest::newRow("something sent") << int(VerdictCode::SendFailed) << qint64(1) << "" << true;
        QTest::newRow("nothing sent, but asked")
            << int(VerdictCode::NotInstalled) << qint64(0) << "1.0" << true;
        QTest::newRow("watched only") << int(VerdictCode::DeviceLost) << qint64(0) << "" << true;
    }
    void noVersionsWhereNothingWasBegun()
    {
        QFETCH(int, code);
        QFETCH(qint64, bytesSent);
        QFETCH(QString, after);
        auto shown = display(log());
        auto event = end(VerdictCode(code), "It ended.");
        event.summary->bytesSent = bytesSent;
        event.summary->versions = { { "Slot 3", "FPGA", "1.0", "1.2", after } };
        shown.take(event);
        QTEST(takenError().contains("\n  versions:\n"), "isListed");
    }

    void lineIsEndedWithTheDisplay()
    {
        {
            auto shown = display(terminal());
            shown.take(phase(Phase::Planning, 3));
            taken();
        }
        QCOMPARE(taken(), QStringLiteral("\n"));
    }

    void textsAreMadePrintable()
    {
        const QString evil = QStringLiteral("a\x1b[2J\nb %1 %2");
        const QString safe = QStringLiteral("a\\x1b[2J\\x0ab %1 %2");
        auto options = log();
        options.isVerbose = true;
        auto shown = display(options);
        shown.message(evil);
        QCOMPARE(taken(), safe + "\n");
        shown.take(text(RunEvent::Kind::Log, evil));
        QCOMPARE(takenError(), "log: " + safe + "\n");
        shown.take(installing(0, { { evil, 0, evil } }));
        QVERIFY(taken().contains("\n      " + safe + ": " + safe + "\n"));
        auto event = end(VerdictCode::InstallFailed, evil);
        event.summary->causes = QStringList { evil };
        event.summary->versions = { { evil, evil, evil, evil, evil } };
        shown.take(event);
        const QString block = takenError();
        QVERIFY(!block.contains(QLatin1Char('\x1b')));
        QCOMPARE(block.count(safe), 5);
        QCOMPARE(block.count(QLatin1Char('\n')), 7);

        auto drawn = display(terminal());
        drawn.take(installing(0, { { evil, 0, evil } }));
        QVERIFY(taken().contains("      " + safe + "   0%  " + safe + "\x1b[K\x1b[J"));
    }

    void phaseWithoutAPlace()
    {
        auto shown = display(log());
        auto event = phase(Phase::Installing, 0);
        event.places = 0;
        shown.take(event);
        QCOMPARE(taken(), QStringLiteral("Installing\n"));
    }

    void samePhaseAgainGoesOn()
    {
        auto shown = display(terminal());
        shown.take(phase(Phase::Confirming, 8));
        m_time += seconds(4);
        taken();
        auto again = phase(Phase::Confirming, 8, seconds(300));
        again.text = "The device is back.";
        shown.take(again);
        QCOMPARE(taken(),
                 QStringLiteral("\r\x1b[JThe device is back.\n"
                                "[8/8] Confirming  0:00\x1b[K\x1b[J"
                                "\r[8/8] Confirming  0:04, may be silent for up to 5 min"
                                "\x1b[K\x1b[J"));
    }

    void planTextIsAMessage()
    {
        auto shown = display(log());
        shown.take(text(RunEvent::Kind::Plan, QString()));
        QCOMPARE(taken(), QString());
        shown.take(text(RunEvent::Kind::Plan, "3 files for 2 cards"));
        QCOMPARE(taken(), QStringLiteral("3 files for 2 cards\n"));
    }
};

QTEST_GUILESS_MAIN(tst_RunDisplay)
#include "tst_rundisplay.moc"
