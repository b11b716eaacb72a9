#include "run/phase.h"
#include "run/road.h"
#include "run/verdict.h"

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

using namespace Velmar::Host;

class TestVerdict : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void code_data();
    void code();
    void tableOfThePage();
    void phasesHaveWords();
    void roadsHaveWords();
    void unknownWordsNameNothing();
};

void TestVerdict::code_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("confirmed") << "confirmed" << 0;
    QTest::newRow("nothing-to-do") << "confirmed" << 0;
    QTest::newRow("answered") << "confirmed" << 0;
    for (const char *word : { "not-returned", "not-restarted", "versions-differ",
                              "versions-unreadable", "not-comparable", "other-device",
                              "no-progress", "device-lost", "time-limit", "worker-lost" })
        QTest::newRow(word) << "unconfirmed" << 5;
    QTest::newRow("left") << "unconfirmed" << 130;
    for (const char *word :
         { "copy-failed", "disk-full", "out-of-time", "worker-died", "prepare-failed",
           "plan-mismatch", "send-failed", "silent-device", "bad-answer", "nothing-sent",
           "install-failed", "not-installed", "internal" })
        QTest::newRow(word) << "failed" << 1;
    for (const char *word :
         { "no-package", "package-refused", "nothing-fits", "not-planned", "plan-outdated" })
        QTest::newRow(word) << "failed" << 3;
    QTest::newRow("usage") << "failed" << 2;
    QTest::newRow("unreachable") << "failed" << 4;
    QTest::newRow("device-busy") << "failed" << 75;
    QTest::newRow("interrupted") << "failed" << 130;
}

void TestVerdict::code()
{
    QFETCH(QString, kind);
    QFETCH(int, exitCode);
    const QString word = QString::fromLatin1(QTest::currentDataTag());

    const auto code = verdictOf(word);

    QVERIFY(code.has_value());
    QCOMPARE(verdictWord(*code), word);
    QCOMPARE(verdictKindWord(verdictKind(*code)), kind);
    QCOMPARE(int(verdictExitCode(*code)), exitCode);
    const auto end = verdict(*code, QStringLiteral("It ended."));
    QCOMPARE(end.sentence, QStringLiteral("It ended."));
    const bool hasAdvice =
        kind != QLatin1String("confirmed") && word != QLatin1String("interrupted");
    QCOMPARE(!end.advice.isEmpty(), hasAdvice);
}

void TestVerdict::tableOfThePage()
{
    QFile page(QStringLiteral(VELMAR_DOCS "/host/verdicts.md"));
    QVERIFY2(page.open(QIODevice::ReadOnly), qPrintable(page.errorString()));
    const QRegularExpression row(
        QStringLiteral("^\\| `([a-z-]+)` \\| ([a-z]+) \\| ([0-9]+) \\| .+ \\|$"),
        QRegularExpression::MultilineOption);
    QSet<QString> words;
    auto rows = row.globalMatch(QString::fromUtf8(page.readAll()));
    while (rows.hasNext()) {
        const auto match = rows.next();
        const auto code = verdictOf(match.captured(1));
        QVERIFY2(code, qPrintable(match.captured(1)));
        QCOMPARE(match.captured(2), verdictKindWord(verdictKind(*code)));
        QCOMPARE(match.captured(3).toInt(), int(verdictExitCode(*code)));
        words.insert(match.captured(1));
    }
    QCOMPARE(words.size(), int(VerdictCode::Internal) + 1); // the last one
}

void TestVerdict::phasesHaveWords()
{
    const QStringList words { QStringLiteral("copy"),    QStringLiteral("check"),
                              QStringLiteral("plan"),    QStringLiteral("prepare"),
                              QStringLiteral("send"),    QStringLiteral("install"),
                              QStringLiteral("restart"), QStringLiteral("confirm") };
    int phase = int(Phase::Copying);
    for (const auto &word : words) {
        QCOMPARE(phaseWord(Phase(phase)), word);
        QVERIFY(phaseOf(word) == Phase(phase));
        QVERIFY(!phaseTitle(Phase(phase)).isEmpty());
        ++phase;
    }
}

void TestVerdict::roadsHaveWords()
{
    QCOMPARE(roadWord(Road::Native), QStringLiteral("native"));
    QCOMPARE(roadWord(Road::Http), QStringLiteral("http"));
    QCOMPARE(roadWord(Road::Registers), QStringLiteral("registers"));
    QVERIFY(roadOf(QStringLiteral("registers")) == Road::Registers);
}

void TestVerdict::unknownWordsNameNothing()
{
    QVERIFY(!verdictOf(QStringLiteral("Confirmed")));
    QVERIFY(!phaseOf(QString()));
    QVERIFY(!roadOf(QStringLiteral("Native")));
}

QTEST_GUILESS_MAIN(TestVerdict)
#include "tst_verdict.moc"
