#include "show/jsonevents.h"

#include "support/eventcheck.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

using namespace Velmar::Host;
using std::chrono::milliseconds;

class tst_JsonEvents : public QObject
{
    Q_OBJECT

    const QString m_run = QStringLiteral("20260102T030405678Z-0123abcd");
    QByteArray m_lines;

    JsonEvents events()
    {
        m_lines.clear();
        return JsonEvents(m_run, [this](const QByteArray &line) { m_lines += line; });
    }

    static RunEvent event(RunEvent::Kind kind, const QString &text = QString())
    {
        RunEvent event;
        event.kind = kind;
        event.text = text;
        event.time = QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5, 678), Qt::UTC);
        return event;
    }

    static RunEvent placed(RunEvent::Kind kind, Phase phase, int place)
    {
        auto placed = event(kind);
        placed.phase = phase;
        placed.place = place;
        placed.places = 8;
        return placed;
    }

    static RunEvent end(VerdictCode code)
    {
        auto end = event(RunEvent::Kind::Verdict);
        end.summary.emplace();
        end.summary->verdict = verdict(code, QStringLiteral("It ended."));
        return end;
    }

    QJsonObject last() const
    {
        return QJsonDocument::fromJson(m_lines.trimmed().split('\n').last()).object();
    }

private Q_SLOTS:
    void aRunIsLinesOfTheSchema()
    {
        auto json = events();
        auto phase = placed(RunEvent::Kind::Phase, Phase::Sending, 5);
        phase.silence = std::chrono::seconds(60);
        json.take(phase);
        auto progress = placed(RunEvent::Kind::Progress, Phase::Sending, 5);
        progress.percent = 42;
        progress.bytesSent = 420;
        progress.bytesTotal = 1000;
        json.take(progress);
        progress = placed(RunEvent::Kind::Progress, Phase::Installing, 6);
        progress.parts = { { QStringLiteral("Slot 3"), 100, QStringLiteral("done") } };
        json.take(progress);
        json.take(event(RunEvent::Kind::Message, QStringLiteral("Hello")));
        auto warning = event(RunEvent::Kind::Message, QStringLiteral("Mind the gap"));
        warning.code = QStringLiteral("warning");
        json.take(warning);
        auto log = event(RunEvent::Kind::Log, QStringLiteral("open file"));
        log.code = QStringLiteral("debug");
        json.take(log);
        auto plan = event(RunEvent::Kind::Plan);
        plan.data = QJsonObject { { "format", 1 } };
        json.take(plan);
        json.take(end(VerdictCode::Confirmed));

        QCOMPARE(eventFaults(m_lines), QByteArray());
        const auto lines = m_lines.split('\n');
        QCOMPARE(lines.at(0),
                 QByteArray(R"({"event":"phase","phase":"send","place":5,"places":8,)"
                            R"("run":"20260102T030405678Z-0123abcd","schema":1,"seq":1,)"
                            R"("silenceSeconds":60,"text":"","time":"2026-01-02T03:04:05.678Z"})"));
        QCOMPARE(lines.at(1),
                 QByteArray(R"({"bytesSent":420,"bytesTotal":1000,"event":"progress","percent":42,)"
                            R"("phase":"send","place":5,"places":8,)"
                            R"("run":"20260102T030405678Z-0123abcd","schema":1,"seq":2,"text":"",)"
                            R"("time":"2026-01-02T03:04:05.678Z"})"));
        QCOMPARE(json.sequence(), 8);
    }

    void answersAreLinesOfTheSchema()
    {
        using Kind = RunEvent::Kind;
        const QByteArray device = R"("address":"127.0.0.1:9720","modelId":30465,)"
                                  R"("model":"Strata S8","name":"wall","serial":"S8")";
        const QByteArray cards =
            R"(,"cards":[{"boardId":2,"model":"card","modelId":30722,"slotId":1}])";
        const std::vector<std::pair<Kind, QByteArray>> answers = {
            { Kind::Devices, "[{" + device + "}]" },
            { Kind::Versions,
              "{" + device + cards + R"(,"brief":"","version":"1.0","parts":[{"brief":"",)"
                  + R"("modelId":30465,"slotId":0,"type":1,"version":"1.0","sections":[{)"
                  + R"("brief":"","code":257,"name":"MCU","version":"1.0"}]}]})" },
            { Kind::Status, "{" + device + cards + R"(,"percent":37,"state":"installing"})" },
            { Kind::Inspection,
              R"({"package":"p","units":[{"folder":"gone","problem":"empty"},{"folder":"main",)"
              R"("modelId":30465,"model":"Strata S8","stepType":0,"version":"1.0","files":[{)"
              R"("section":"MCU","file":"mcu.bin","boardId":0,"bytes":null}]}]})" },
            { Kind::Inspection,
              R"({"package":"p","units":[],"target":{"model":"Strata S8","modelId":30465},)"
              R"("parts":[{"part":"main control","slotId":0,"boardId":0,"modelId":30465,)"
              R"("sections":[{"code":257,"name":"MCU"}]}]})" },
            { Kind::Inspection, R"({"imageConfiguration":"i","target":{)" + device + cards + "}}" },
            // Those behind this one are none.
            { Kind::Devices, "[{" + device + R"(,"colour":"blue"}])" },
            { Kind::Status, "{" + device + cards + R"(,"percent":37})" },
            { Kind::Inspection, R"({"package":"p"})" },
            { Kind::Versions, "[]" },
        };
        auto json = events();
        QStringList words;
        for (const auto &[kind, document] : answers) {
            auto answer = event(kind);
            const auto told = QJsonDocument::fromJson(document);
            answer.data = told.isArray() ? QJsonValue(told.array()) : QJsonValue(told.object());
            json.take(answer);
            words.append(last().value("event").toString());
            QCOMPARE(last().value("data"), answer.data);
        }
        QCOMPARE(words.mid(0, 4), QStringList({ "devices", "versions", "status", "inspect" }));
        json.take(end(VerdictCode::Answered));
        auto faults = eventFaults(m_lines).trimmed().split('\n');
        QVERIFY2(faults.size() == 4, faults.join("; ").constData());
        QVERIFY2(faults.at(0).startsWith("line 7: data/0: Unevaluated properties"),
                 faults.at(0).constData());
        QCOMPARE(faults.at(1), QByteArray("line 8: data: 'state' is a required property"));
        QVERIFY2(faults.at(2).startsWith("line 9: data: "), faults.at(2).constData());
        QCOMPARE(faults.at(3), QByteArray("line 10: data: [] is not of type 'object'"));
    }

    void verdictTellsTheWhole()
    {
        auto json = events();
        auto event = end(VerdictCode::InstallFailed);
        auto &summary = *event.summary;
        summary.causes = QStringList { QStringLiteral("slot 3: 0xff") };
        summary.versions = {
            { QStringLiteral("Slot 3"), QStringLiteral("FPGA"), QStringLiteral("1.0"), QString(),
              QStringLiteral("1.1") },
            { QStringLiteral("Slot 4"), QStringLiteral("MCU"), QStringLiteral("2.0"), QString(),
              QString() },
        };
        summary.bytesSent = 5'000'000'000;
        summary.durations = { { Phase::Copying, milliseconds(12) },
                              { Phase::Sending, milliseconds(3456) } };
        summary.wholeDuration = milliseconds(4000);

        json.take(event);

        QCOMPARE(eventFaults(m_lines), QByteArray());
        QCOMPARE(last().value("code").toString(), QStringLiteral("install-failed"));
        QCOMPARE(last().value("text").toString(), QStringLiteral("It ended."));
        const auto data = last().value("data").toObject();
        QCOMPARE(data.value("kind").toString(), QStringLiteral("failed"));
        QCOMPARE(data.value("code").toString(), QStringLiteral("install-failed"));
        QCOMPARE(data.value("sentence").toString(), QStringLiteral("It ended."));
        QVERIFY(data.value("advice").toString().startsWith(QStringLiteral("Upgrade again when")));
        QCOMPARE(data.value("exitCode").toInt(), 1);
        QCOMPARE(data.value("causes").toArray(), QJsonArray { "slot 3: 0xff" });
        const QJsonObject before { { "part", "Slot 3" },
                                   { "section", "FPGA" },
                                   { "version", "1.0" } };
        const QJsonObject beforeToo { { "part", "Slot 4" },
                                      { "section", "MCU" },
                                      { "version", "2.0" } };
        const QJsonObject after { { "part", "Slot 3" },
                                  { "section", "FPGA" },
                                  { "version", "1.1" } };
        QCOMPARE(data.value("versionsBefore").toArray(), (QJsonArray { before, beforeToo }));
        QCOMPARE(data.value("versionsAfter").toArray(), QJsonArray { after });
        QCOMPARE(data.value("bytesSent").toVariant().toLongLong(), 5'000'000'000);
        QCOMPARE(data.value("durations").toObject(),
                 (QJsonObject { { "copy", 12 }, { "send", 3456 }, { "whole", 4000 } }));
    }

    void everyVerdictIsInTheSchema()
    {
        QStringList words;
        for (int code = int(VerdictCode::Confirmed); code <= int(VerdictCode::Internal); ++code) {
            auto json = events();
            json.take(end(VerdictCode(code)));
            words.append(last().value("data").toObject().value("code").toString());
        }
        auto known = schemaWords();
        words.sort();
        known.sort();
        QCOMPARE(words.join(QLatin1Char(' ')), known.join(QLatin1Char(' ')));
    }

    void everyKindIsOnThePage()
    {
        QFile file(QStringLiteral(VELMAR_TEST_DATA "/../../docs/host/events.md"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QStringList told;
        for (const auto &line : QString::fromUtf8(file.readAll()).split('\n')) {
            const auto words = line.section('|', 1, 1).split('`');
            for (int i = 1; i < words.size(); i += 2)
                told.append(words.at(i));
        }
        for (int kind = int(RunEvent::Kind::Phase); kind <= int(RunEvent::Kind::Verdict); ++kind) {
            const auto word = runEventWord(RunEvent::Kind(kind));
            QVERIFY2(!word.isEmpty() && told.contains(word), qPrintable(word));
        }
    }

    void nothingBehindTheVerdict()
    {
        auto json = events();
        json.take(end(VerdictCode::SendFailed));
        json.take(event(RunEvent::Kind::Message, QStringLiteral("late")));
        json.take(end(VerdictCode::Confirmed));
        QCOMPARE(m_lines.count('\n'), 1);
        QCOMPARE(last().value("code").toString(), QStringLiteral("send-failed"));
    }

    void verdictWithoutASummaryIsTheHostsFault()
    {
        auto json = events();
        json.take(event(RunEvent::Kind::Verdict));
        QCOMPARE(last().value("code").toString(), QStringLiteral("internal"));
        QCOMPARE(eventFaults(m_lines), QByteArray());
    }

    void percentIsNeverTheWhole_data()
    {
        QTest::addColumn<int>("percent");
        QTest::addColumn<int>("told");

        QTest::newRow("begun") << 0 << 0;
        QTest::newRow("last") << 99 << 99;
        QTest::newRow("all") << 100 << 99;
        QTest::newRow("more than all") << 255 << 99;
        QTest::newRow("less than nothing") << -1 << 0;
    }
    void percentIsNeverTheWhole()
    {
        QFETCH(int, percent);
        auto json = events();
        auto progress = placed(RunEvent::Kind::Progress, Phase::Installing, 6);
        progress.percent = percent;
        json.take(progress);
        QTEST(last().value("percent").toInt(), "told");
    }

    void textsCannotDisturbATerminal_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("told");

        QTest::newRow("escape") << QStringLiteral("a\x1b[2Jb") << QStringLiteral("a\\x1b[2Jb");
        QTest::newRow("line break") << QStringLiteral("a\nb") << QStringLiteral("a\\x0ab");
        QTest::newRow("C1") << QString(QChar(0x9b)) << QStringLiteral("\\x9b");
        QTest::newRow("delete") << QString(QChar(0x7f)) << QStringLiteral("\\x7f");
        QTest::newRow("zero") << QString(QChar(0)) << QStringLiteral("\\x00");
        QTest::newRow("right to left") << QString(QChar(0x202e)) << QStringLiteral("\\u{202e}");
        QTest::newRow("line separator") << QString(QChar(0x2028)) << QStringLiteral("\\u{2028}");
        QTest::newRow("half a character") << QString(QChar(0xd83d)) << QString(QChar(0xfffd));
        QTest::newRow("letters") << QStringLiteral("Wand \u00e4\u4e2d")
                                 << QStringLiteral("Wand \u00e4\u4e2d");
        QTest::newRow("long") << QString(500, QLatin1Char('x'))
                              << QString(400, QLatin1Char('x')) + QChar(0x2026);
    }
    void textsCannotDisturbATerminal()
    {
        QFETCH(QString, text);
        QFETCH(QString, told);
        auto json = events();
        json.take(event(RunEvent::Kind::Message, text));
        QCOMPARE(last().value("text").toString(), told);
    }

    void noTextBreaksTheSchema()
    {
        auto json = events();
        const QString text = QStringLiteral("a\x1b[2J\n\x7f%1%2%3")
                                 .arg(QChar(0x9b))
                                 .arg(QChar(0x202e))
                                 .arg(QChar(0x2028))
            + QString(500, QChar(0x202e));
        auto progress = placed(RunEvent::Kind::Progress, Phase::Installing, 6);
        progress.parts = { { text, 7, text } };
        json.take(progress);
        auto plan = event(RunEvent::Kind::Plan, text);
        plan.data = QJsonObject { { "file", text }, { text, 1 } };
        json.take(plan);
        // A file name of the plan stays what it is, and only its bytes are harmless.
        QCOMPARE(last().value("data").toObject().value("file").toString(), text);
        auto bad = end(VerdictCode::PackageRefused);
        bad.summary->verdict.sentence = text;
        bad.summary->verdict.advice = text;
        bad.summary->causes = QStringList { text };
        bad.summary->versions = { { text, text, text, text, text } };
        json.take(bad);

        QCOMPARE(eventFaults(m_lines), QByteArray());
    }

    void faultsAreFound()
    {
        const QByteArray begin = R"({"schema":1,"run":"20260102T030405678Z-0123abcd","seq":)";
        const QByteArray time = R"(,"time":"2026-01-02T03:04:05.678Z","event":)";
        const QByteArray text = R"(,"text":"Hello")";
        const QByteArray faults = eventFaults(
            begin + "2" + time + R"("message")" + text + "}\n" // numbers begin with 1
            + "Hello\n" + "{\"seq\":1,\"seq\":1}\n" + begin + "4" + time + R"("news")" + text
            + "}\n" + begin + "5" + time + R"("progress","phase":"send","place":1,"places":1)"
            + text + R"(,"percent":100})" + "\n" + begin + "6" + time
            + "\"message\",\"text\":\"\xc2\x9b\"}\n" + begin + "7" + time + R"("verdict")" + text
            + "}\n" + begin + "8" + time + R"("message")" + text + "}");
        const auto found = faults.split('\n');
        QCOMPARE(found.at(0), QByteArray("line 1: seq is 2"));
        QVERIFY(found.at(1).startsWith("line 2: Expecting value"));
        QCOMPARE(found.at(2), QByteArray("line 3: a name stands twice"));
        QVERIFY(found.at(3).startsWith("line 4: event: 'news' is not one of"));
        QVERIFY(found.at(4).startsWith("line 5: percent: 100 is greater than"));
        QCOMPARE(found.at(5), QByteArray("line 6: raw characters U+009B"));
        QVERIFY(found.at(6).startsWith("line 6: text:"));
        QVERIFY(faults.contains("line 7: : 'code' is a required property"));
        QVERIFY(faults.contains("line 7: : 'data' is a required property"));
        QVERIFY(faults.contains("line 8: behind the verdict"));
        QVERIFY(faults.contains("the last line is no verdict"));
        QVERIFY(faults.contains("the last line has no end"));
    }

    void runWithoutAVerdict()
    {
        auto json = events();
        json.take(event(RunEvent::Kind::Message));
        QCOMPARE(eventFaults(m_lines), QByteArray("the last line is no verdict\n"));
        QCOMPARE(eventFaults(m_lines, true), QByteArray());
    }

    void idsAreSortableAndDiffer()
    {
        const QString id = makeRunId();
        QVERIFY2(isRunId(id), qPrintable(id));
        QVERIFY(makeRunId() != id);
        const QString earlier = QStringLiteral("20260102T030405678Z-ffffffff");
        QVERIFY(earlier < id);
    }

    void formOfAnId_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("isId");

        QTest::newRow("an id") << "20260102T030405678Z-0123abcd" << true;
        QTest::newRow("nothing") << "" << false;
        QTest::newRow("short") << "20260102T030405678Z-0123abc" << false;
        QTest::newRow("long") << "20260102T030405678Z-0123abcde" << false;
        QTest::newRow("capitals") << "20260102T030405678Z-0123ABCD" << false;
        QTest::newRow("letter in the time") << "2026010aT030405678Z-0123abcd" << false;
        QTest::newRow("up") << "../../02T030405678Z-0123abcd" << false;
    }
    void formOfAnId()
    {
        QFETCH(QString, text);
        QTEST(isRunId(text), "isId");
    }

private:
    static QStringList schemaWords()
    {
        QFile file(
            QStringLiteral(VELMAR_TEST_DATA "/../../docs/velmar-upgrade-events.schema.json"));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        const auto schema = QJsonDocument::fromJson(file.readAll()).object();
        const auto summary = schema.value("$defs").toObject().value("summary").toObject();
        const auto code = summary.value("properties").toObject().value("code").toObject();
        QStringList words;
        for (const auto &word : code.value("enum").toArray())
            words.append(word.toString());
        return words;
    }
};

QTEST_GUILESS_MAIN(tst_JsonEvents)
#include "tst_jsonevents.moc"
