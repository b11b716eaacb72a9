#include "show/progressdisplay.h"

#include <QtTest>

using namespace Velmar::Host;

class tst_ProgressDisplay : public QObject
{
    Q_OBJECT

    QString m_written;

    OutputStyle terminal(int columns, bool colours = false)
    {
        OutputStyle style;
        style.redraws = true;
        style.colours = colours;
        style.columns = [columns] {
            return columns;
        };
        return style;
    }

    std::function<void(const QString &)> writer()
    {
        return [this](const QString &text) {
            m_written += text;
        };
    }

    QString taken() { return std::exchange(m_written, QString()); }

private Q_SLOTS:
    void init() { m_written.clear(); }

    void linesWhenPhaseOrTenthChanges()
    {
        ProgressDisplay display(OutputStyle(), writer());
        for (int percent : { 0, 1, 9, 10, 19, 35, 100 })
            display.progress(ProgressPhase::Sending, percent,
                             QStringLiteral("sent %1%").arg(percent));
        QCOMPARE(taken(), QStringLiteral("sent 0%\nsent 10%\nsent 35%\nsent 100%\n"));
        display.progress(ProgressPhase::Installing, 100, QStringLiteral("installed 100%"));
        QCOMPARE(taken(), QStringLiteral("installed 100%\n"));
        display.message(QStringLiteral("done"));
        display.close();
        QCOMPARE(taken(), QStringLiteral("done\n"));
    }

    void barIsRedrawnInPlace()
    {
        ProgressDisplay display(terminal(33), writer());
        display.progress(ProgressPhase::Sending, 0, QStringLiteral("sent 0%"));
        QCOMPARE(taken(), QStringLiteral("\rsent 0% [......................]\x1b[K"));
        display.progress(ProgressPhase::Sending, 50, QStringLiteral("sent 50%"));
        QCOMPARE(taken(), QStringLiteral("\rsent 50% [##########...........]\x1b[K"));
        display.progress(ProgressPhase::Sending, 100, QStringLiteral("sent 100%"));
        QCOMPARE(taken(), QStringLiteral("\rsent 100% [####################]\x1b[K"));
        display.close();
        QCOMPARE(taken(), QStringLiteral("\n"));
        display.close();
        QCOMPARE(taken(), QString());
    }

    void sameBarIsNotDrawnAgain()
    {
        ProgressDisplay display(terminal(80), writer());
        display.progress(ProgressPhase::Sending, 7, QStringLiteral("sent 7%"));
        taken();
        display.progress(ProgressPhase::Sending, 7, QStringLiteral("sent 7%"));
        QCOMPARE(taken(), QString());
    }

    void eachPhaseKeepsItsBar()
    {
        ProgressDisplay display(terminal(33), writer());
        display.progress(ProgressPhase::Sending, 100, QStringLiteral("sent 100%"));
        taken();
        display.progress(ProgressPhase::Installing, 0, QStringLiteral("installed 0%"));
        QCOMPARE(taken(), QStringLiteral("\n\rinstalled 0% [.................]\x1b[K"));
    }

    void messageScrollsByAboveTheBar()
    {
        ProgressDisplay display(terminal(33), writer());
        display.message(QStringLiteral("begin"));
        QCOMPARE(taken(), QStringLiteral("begin\n"));
        display.progress(ProgressPhase::Sending, 0, QStringLiteral("sent 0%"));
        taken();
        display.message(QStringLiteral("news"));
        QCOMPARE(taken(), QStringLiteral("\r\x1b[Knews\nsent 0% [......................]"));
    }

    void narrowTerminal_data()
    {
        QTest::addColumn<int>("columns");
        QTest::addColumn<QString>("line");

        QTest::newRow("narrowest bar") << 21 << "sent 0% [..........]";
        QTest::newRow("no room for a bar") << 20 << "sent 0%";
        QTest::newRow("no room for the label") << 5 << "sent";
        QTest::newRow("bars have a greatest width")
            << 200 << "sent 0% [........................................]";
    }
    void narrowTerminal()
    {
        QFETCH(int, columns);
        QFETCH(QString, line);
        ProgressDisplay display(terminal(columns), writer());
        display.progress(ProgressPhase::Sending, 0, QStringLiteral("sent 0%"));
        QCOMPARE(taken(), QStringLiteral("\r%1\x1b[K").arg(line));
    }

    void resizedTerminal()
    {
        int columns = 33;
        auto style = terminal(0);
        style.columns = [&columns] {
            return columns;
        };
        ProgressDisplay display(style, writer());
        display.progress(ProgressPhase::Sending, 0, QStringLiteral("sent 0%"));
        taken();
        columns = 21;
        display.progress(ProgressPhase::Sending, 0, QStringLiteral("sent 0%"));
        QCOMPARE(taken(), QStringLiteral("\rsent 0% [..........]\x1b[K"));
    }

    void coloursOnRequest()
    {
        ProgressDisplay display(terminal(21, true), writer());
        display.progress(ProgressPhase::Sending, 50, QStringLiteral("sent 5%"));
        QCOMPARE(taken(), QStringLiteral("\rsent 5% [\x1b[32m#####\x1b[0m.....]\x1b[K"));
    }

    void percentIsClamped()
    {
        ProgressDisplay display(terminal(21), writer());
        display.progress(ProgressPhase::Installing, 255, QStringLiteral("at 255%"));
        QCOMPARE(taken(), QStringLiteral("\rat 255% [##########]\x1b[K"));
        display.progress(ProgressPhase::Installing, -1, QStringLiteral("at   -1"));
        QCOMPARE(taken(), QStringLiteral("\rat   -1 [..........]\x1b[K"));
    }

    void textsAreMadePrintable()
    {
        ProgressDisplay display(OutputStyle(), writer());
        display.message(QStringLiteral("a\x1b[2Jb"));
        display.progress(ProgressPhase::Sending, 0, QStringLiteral("c\nd"));
        QCOMPARE(taken(), QStringLiteral("a\\x1b[2Jb\nc\\x0ad\n"));
    }

    void lineIsEndedWithTheDisplay()
    {
        {
            ProgressDisplay display(terminal(33), writer());
            display.progress(ProgressPhase::Sending, 0, QStringLiteral("sent 0%"));
            taken();
        }
        QCOMPARE(taken(), QStringLiteral("\n"));
    }

    void styleOfAFile()
    {
        QTemporaryFile file;
        QVERIFY(file.open());
        std::FILE *stream = std::fopen(qPrintable(file.fileName()), "w");
        QVERIFY(stream);
        const auto style = OutputStyle::of(stream);
        std::fclose(stream);
        QVERIFY(!style.redraws);
        QVERIFY(!style.colours);
        QCOMPARE(style.columns(), 80);
    }
};

QTEST_GUILESS_MAIN(tst_ProgressDisplay)
#include "tst_progressdisplay.moc"
