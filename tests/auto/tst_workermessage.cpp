#include "worker/workermessage.h"
#include "worker/workerorder.h"

#include <QtTest>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

Plan smallPlan()
{
    Plan plan;
    plan.device.address = { QStringLiteral("192.0.2.7"), 9720 };
    plan.device.modelId = 0x7701;
    plan.device.modelName = QStringLiteral("Strata S8 (0x7701)");
    plan.device.serial = QStringLiteral("S-1");
    plan.packagePath = QStringLiteral("/packages/a");
    return plan;
}

ProtoModel::Auxiliary::s_UpgradePercent progress()
{
    ProtoModel::Auxiliary::s_UpgradePercent record;
    record.rate = 40;
    record.result = 1;
    record.subSections.rate = 3;
    record.parts.resize(1);
    record.parts[0].type = 2;
    record.parts[0].slotId = 5;
    record.parts[0].rate = 41;
    record.parts[0].result = 1;
    record.parts[0].section = { { 0x101, 42, -7 } };
    return record;
}

LinkTraffic traffic()
{
    LinkTraffic record;
    record.requests = 12;
    record.answers = 11;
    record.sentBytes = 4294967296;
    record.totalBytes = 4294967297;
    record.overdue = 1;
    record.result = 2;
    record.isOrdered = true;
    record.isEndTold = true;
    return record;
}

WorkerOrder order()
{
    WorkerOrder order;
    order.mode = WorkerMode::Upgrade;
    order.road = Road::Http;
    order.packagePath = QStringLiteral("/packages/\u00e4 \"b\"\n");
    order.device = { QStringLiteral("fe80::1%eth0"), 9720 };
    order.cataloguePath = QStringLiteral("/c.json");
    order.keyFilePath = QStringLiteral("/k");
    order.wish = { { QStringLiteral("MCU"), QString() }, { QStringLiteral("main") } };
    order.upload = { QStringLiteral("192.0.2.8"), QStringLiteral("/image"), true };
    order.mayRestart = true;
    order.timeLimit = std::chrono::seconds(90);
    order.silenceLimit = std::chrono::seconds(3);
    return order;
}

QByteArray json(QByteArray text)
{
    return text.replace('\'', '"') + '\n';
}

} // namespace

class tst_WorkerMessage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writes_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("hello") << toLine(HelloTell { 1 }) << json("{'protocol':1,'tell':'hello'}");
        QTest::newRow("phase") << toLine(PhaseTell { Phase::Installing })
                               << json("{'phase':'install','tell':'phase'}");
        QTest::newRow("refused") << toLine(RefusedTell { VerdictCode::NothingFits, "no" })
                                 << json("{'code':'nothing-fits','tell':'refused','text':'no'}");
        QTest::newRow("status") << toLine(StatusTell { "a\nb" })
                                << json("{'tell':'status','text':'a\\nb'}");
        QTest::newRow("sending") << toLine(SendingTell { 5, 50, 1000 })
                                 << json("{'percent':5,'sent':50,'tell':'sending','total':1000}");
        QTest::newRow("installing")
            << toLine(InstallingTell { progress() })
            << json("{'parts':[{'rate':41,'result':1,'sections':[{'code':257,'rate':42,"
                    "'result':-7}],'slot':5,'type':2}],'rate':40,'result':1,'subRate':3,"
                    "'tell':'installing'}");
        QTest::newRow("traffic")
            << toLine(TrafficTell { traffic() })
            << json("{'answers':11,'isEndTold':true,'isIdle':false,'isOrdered':true,"
                    "'isRestartOrdered':false,'overdue':1,'requests':12,'result':2,"
                    "'sent':4294967296,'tell':'traffic','total':4294967297}");
        QTest::newRow("log") << toLine(LogTell { QtWarningMsg, "w" })
                             << json("{'level':'warning','tell':'log','text':'w'}");
        QTest::newRow("stop") << toLine(StopTell { true })
                              << json("{'isTaken':true,'tell':'stop'}");
        QTest::newRow("end") << toLine(EndTell { true, "done" })
                             << json("{'result':true,'tell':'end','text':'done'}");
        QTest::newRow("go") << commandLine(WorkerCommand::Go) << json("{'do':'go'}");
        QTest::newRow("stop command") << commandLine(WorkerCommand::Stop) << json("{'do':'stop'}");
    }
    void writes()
    {
        QFETCH(QByteArray, line);
        QTEST(line, "expected");
    }

    // What is read is written again: each kind keeps all that it has.
    void readsBack_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("hello") << toLine(HelloTell { 1 });
        for (const auto phase : { Phase::Planning, Phase::Preparing, Phase::Sending,
                                  Phase::Installing, Phase::Restarting })
            QTest::newRow(qPrintable(phaseWord(phase))) << toLine(PhaseTell { phase });
        QTest::newRow("plan") << toLine(PlanTell { smallPlan() });
        QTest::newRow("refused") << toLine(RefusedTell { VerdictCode::PlanMismatch, "text" });
        QTest::newRow("status") << toLine(StatusTell { QStringLiteral("\u00e4\u0001\U0001f600") });
        QTest::newRow("sending") << toLine(SendingTell { 100, 9007199254740991, -1 });
        QTest::newRow("installing") << toLine(InstallingTell { progress() });
        QTest::newRow("traffic") << toLine(TrafficTell { traffic() });
        for (const auto level : { QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg, QtFatalMsg })
            QTest::addRow("log %d", int(level)) << toLine(LogTell { level, "line" });
        QTest::newRow("stop") << toLine(StopTell { false });
        QTest::newRow("end") << toLine(EndTell { false, QString() });
    }
    void readsBack()
    {
        QFETCH(QByteArray, line);
        QString errorText;
        const auto message = readWorkerMessage(line, errorText);
        QVERIFY2(message, qPrintable(errorText));
        QCOMPARE(toLine(*message), line);
    }

    void readsValues()
    {
        QString errorText;
        auto message = readWorkerMessage(toLine(TrafficTell { traffic() }), errorText);
        QVERIFY(message);
        QVERIFY(std::get<TrafficTell>(*message).traffic == traffic());
        message = readWorkerMessage(toLine(InstallingTell { progress() }), errorText);
        QVERIFY(message);
        const auto &told = std::get<InstallingTell>(*message).progress;
        QCOMPARE(int(told.parts.at(0).slotId), 5);
        QCOMPARE(told.parts.at(0).section.at(0).result, -7);
    }

    void refuses_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("fault");
        const auto noPercent = QStringLiteral("\"percent\" of the message is no number from 0 to "
                                              "100");
        QTest::newRow("nothing") << QByteArray("\n") << "it is no JSON: illegal value";
        QTest::newRow("no JSON") << QByteArray("Segmentation fault\n")
                                 << "it is no JSON: illegal value";
        QTest::newRow("cut") << json("{'tell':'stop'") << "it is no JSON: unterminated object";
        QTest::newRow("two objects") << json("{'tell':'stop','isTaken':true}{}")
                                     << "it is no JSON: garbage at the end of the document";
        QTest::newRow("a list") << json("['stop']") << "it is no JSON object";
        QTest::newRow("no kind") << json("{'isTaken':true}") << "it is no message that is known";
        QTest::newRow("another kind")
            << json("{'tell':'song'}") << "it is no message that is known";
        QTest::newRow("a kind that is no text")
            << json("{'tell':1}") << "it is no message that is known";
        QTest::newRow("a missing key")
            << json("{'tell':'stop'}") << "\"isTaken\" of the message is missing";
        QTest::newRow("an unknown key") << json("{'tell':'stop','isTaken':true,'why':1}")
                                        << "the message has an unknown key \"why\"";
        QTest::newRow("no flag") << json("{'tell':'stop','isTaken':1}")
                                 << "\"isTaken\" of the message is neither true nor false";
        QTest::newRow("no text") << json("{'tell':'status','text':null}")
                                 << "\"text\" of the message is no text";
        QTest::newRow("no phase") << json("{'tell':'phase','phase':'nap'}")
                                  << "\"phase\" of the message is no phase";
        QTest::newRow("no level") << json("{'tell':'log','level':'loud','text':''}")
                                  << "\"level\" of the message is no level";
        QTest::newRow("no verdict") << json("{'tell':'refused','code':'bad','text':''}")
                                    << "\"code\" of the message is no verdict";
        QTest::newRow("101 percent")
            << json("{'tell':'sending','percent':101,'sent':0,'total':0}") << noPercent;
        QTest::newRow("half a percent")
            << json("{'tell':'sending','percent':0.5,'sent':0,'total':0}") << noPercent;
        QTest::newRow("endless percent")
            << json("{'tell':'sending','percent':1e999,'sent':0,'total':0}")
            << "it is no JSON: illegal number";
        QTest::newRow("a percentage as text")
            << json("{'tell':'sending','percent':'5','sent':0,'total':0}") << noPercent;
        QTest::newRow("less than no bytes")
            << json("{'tell':'sending','percent':1,'sent':-1,'total':0}")
            << "\"sent\" of the message is no number from 0 to 9223372036854775807";
        QTest::newRow("a rate of 256")
            << json("{'tell':'installing','rate':256,'result':1,'subRate':0,'parts':[]}")
            << "\"rate\" of the message is no number from 0 to 255";
        QTest::newRow("parts that are none")
            << json("{'tell':'installing','rate':1,'result':1,'subRate':0,'parts':{}}")
            << "\"parts\" of the message is no list";
        QTest::newRow("a part that is none")
            << json("{'tell':'installing','rate':1,'result':1,'subRate':0,'parts':[7]}")
            << "\"parts\" of the message is at fault: \"type\" of the part is missing";
        QTest::newRow("a section that is none")
            << json("{'tell':'installing','rate':1,'result':1,'subRate':0,'parts':[{'type':1,"
                    "'slot':0,'rate':0,'result':1,'sections':[{'code':65536,'rate':0,"
                    "'result':0}]}]}")
            << "\"parts\" of the message is at fault: \"code\" of the section is no number from 0 "
               "to 65535";
    }
    void refuses()
    {
        QFETCH(QByteArray, line);
        QString errorText;
        QVERIFY(!readWorkerMessage(line, errorText));
        QTEST(errorText, "fault");
    }

    void refusesPlan()
    {
        QString errorText;
        QVERIFY(!readWorkerMessage(json("{'tell':'plan','plan':{}}"), errorText));
        QVERIFY2(errorText.startsWith("\"plan\" of the message is none: "), qPrintable(errorText));
    }

    void cutsTexts()
    {
        QString errorText;
        const auto text = [&](const QString &told) {
            const auto message = readWorkerMessage(toLine(StatusTell { told }), errorText);
            return message ? std::get<StatusTell>(*message).text : QString();
        };
        QCOMPARE(text(QString(20000, 'x')).size(), 16384);
        // Not within a character of two units.
        const auto cut = text(QString(16383, 'x') + QStringLiteral("\U0001f600"));
        QCOMPARE(cut, QString(16383, 'x'));
        // The longest line that a text can make.
        QVERIFY(toLine(LogTell { QtDebugMsg, QString(20000, QChar(1)) }).size() < 100000);
    }

    // A device may send what is no text at all; the line stays one.
    void halfACharacter()
    {
        QString errorText;
        const auto line = toLine(StatusTell { QString(QChar(0xd83d)) + 'x' });
        QCOMPARE(line.count('\n'), 1);
        QVERIFY2(readWorkerMessage(line, errorText), qPrintable(errorText));
    }

    void orderReadsBack()
    {
        QString errorText;
        const auto line = order().toLine();
        QCOMPARE(line.count('\n'), 1);
        const auto read = WorkerOrder::fromLine(line, errorText);
        QVERIFY2(read, qPrintable(errorText));
        QCOMPARE(read->toLine(), line);
        QVERIFY(read->mode == WorkerMode::Upgrade);
        QVERIFY(read->road == Road::Http);
        QCOMPARE(read->packagePath, QStringLiteral("/packages/\u00e4 \"b\"\n"));
        QCOMPARE(read->device.host, QStringLiteral("fe80::1%eth0"));
        QCOMPARE(read->device.port, quint16(9720));
        QCOMPARE(read->wish.sections, QStringList({ "MCU", "" }));
        QCOMPARE(read->upload.filePath, QStringLiteral("/image"));
        QVERIFY(read->upload.isCompatible);
        QVERIFY(read->mayRestart);
        QCOMPARE(qint64(read->timeLimit.count()), qint64(90000));
        QVERIFY(!read->modelId);

        WorkerOrder model;
        model.packagePath = QStringLiteral("/p");
        model.modelId = 0x7701;
        const auto readModel = WorkerOrder::fromLine(model.toLine(), errorText);
        QVERIFY2(readModel, qPrintable(errorText));
        QCOMPARE(*readModel->modelId, quint16(0x7701));
    }

    void orderRefuses_data()
    {
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<QByteArray>("to");
        QTest::addColumn<QString>("fault");
        QTest::newRow("another protocol")
            << QByteArray("\"protocol\":1") << QByteArray("\"protocol\":2")
            << "\"protocol\" of the order is no number from 1 to 1";
        QTest::newRow("no mode") << QByteArray("\"mode\":\"upgrade\"")
                                 << QByteArray("\"mode\":\"destroy\"")
                                 << "\"mode\" of the order is no mode";
        QTest::newRow("no road") << QByteArray("\"road\":\"http\"")
                                 << QByteArray("\"road\":\"mud\"")
                                 << "\"road\" of the order is no road";
        QTest::newRow("a port of 65536")
            << QByteArray("\"port\":9720") << QByteArray("\"port\":65536")
            << "\"port\" of the order is no number from 0 to 65535";
        QTest::newRow("no host") << QByteArray("fe80::1%eth0") << QByteArray()
                                 << "\"host\" of the order and a model exclude each other";
        QTest::newRow("no cards") << QByteArray("[\"main\"]") << QByteArray("[7]")
                                  << "\"cards\" of the order holds what is no text";
        QTest::newRow("no time") << QByteArray("\"limitMs\":90000") << QByteArray("\"limitMs\":0")
                                 << "\"limitMs\" of the order is no number from 1 to 2147483647";
        QTest::newRow("a model to upgrade")
            << QByteArray("\"protocol\":1") << QByteArray("\"protocol\":1,\"model\":7")
            << "\"model\" of the order is for a plan alone";
        QTest::newRow("an unknown key")
            << QByteArray("\"protocol\":1") << QByteArray("\"protocol\":1,\"zeal\":7")
            << "the order has an unknown key \"zeal\"";
        QTest::newRow("no order") << QByteArray("{") << QByteArray("[")
                                  << "it is no JSON: missing value separator";
    }
    void orderRefuses()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        auto line = order().toLine();
        QVERIFY(line.contains(from));
        line.replace(line.indexOf(from), from.size(), to);
        QString errorText;
        QVERIFY(!WorkerOrder::fromLine(line, errorText));
        QTEST(errorText, "fault");
    }

    void noPackage()
    {
        WorkerOrder watch;
        watch.mode = WorkerMode::Watch;
        watch.device = { QStringLiteral("h"), 1 };
        QString errorText;
        QVERIFY(WorkerOrder::fromLine(watch.toLine(), errorText));
        watch.mode = WorkerMode::Upgrade;
        QVERIFY(!WorkerOrder::fromLine(watch.toLine(), errorText));
        QCOMPARE(errorText, QStringLiteral("\"package\" of the order is empty"));
    }

    void commands_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<int>("command"); // -1: none
        QTest::newRow("go") << json("{'do':'go'}") << int(WorkerCommand::Go);
        QTest::newRow("stop") << json("{ 'do' : 'stop' }") << int(WorkerCommand::Stop);
        QTest::newRow("another") << json("{'do':'dance'}") << -1;
        QTest::newRow("more") << json("{'do':'go','now':true}") << -1;
        QTest::newRow("no text") << json("{'do':1}") << -1;
        QTest::newRow("empty") << json("{}") << -1;
        QTest::newRow("no JSON") << json("go") << -1;
    }
    void commands()
    {
        QFETCH(QByteArray, line);
        const auto command = readCommandLine(line);
        QTEST(command ? int(*command) : -1, "command");
    }

    void cutsLines()
    {
        LineCutter lines(4);
        QVERIFY(!lines.next());
        lines.add("a");
        QVERIFY(!lines.next());
        lines.add("b\nc\n\nd");
        QCOMPARE(*lines.next(), QByteArray("ab\n"));
        QCOMPARE(*lines.next(), QByteArray("c\n"));
        lines.add("e");
        QCOMPARE(*lines.next(), QByteArray("\n"));
        QVERIFY(!lines.next());
        lines.add("\n");
        QCOMPARE(*lines.next(), QByteArray("de\n"));
        QVERIFY(!lines.isOverLimit());
    }

    void limitOfALine()
    {
        LineCutter lines(4);
        lines.add("x\nabc\ny\n");
        QCOMPARE(*lines.next(), QByteArray("x\n"));
        QCOMPARE(*lines.next(), QByteArray("abc\n"));
        QCOMPARE(*lines.next(), QByteArray("y\n"));
        QVERIFY(!lines.isOverLimit());

        LineCutter longLine(4);
        longLine.add("abcd\ny\n");
        QVERIFY(!longLine.next());
        QVERIFY(longLine.isOverLimit());
        QVERIFY(!longLine.next());

        LineCutter unended(4);
        unended.add("abcde");
        QVERIFY(!unended.next());
        QVERIFY(unended.isOverLimit());
    }
};

QTEST_GUILESS_MAIN(tst_WorkerMessage)
#include "tst_workermessage.moc"
