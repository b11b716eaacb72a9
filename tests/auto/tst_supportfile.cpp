#include "show/supportfile.h"

#include "show/redaction.h"
#include "show/runrecord.h"
#include "support/eventcheck.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Velmar::Host;

class tst_SupportFile : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_folder;

    std::unique_ptr<RunRecord> begin()
    {
        RunRecordOptions options;
        options.baseFolder = m_folder->filePath(QStringLiteral("runs"));
        QString errorText;
        return RunRecord::begin(QStringLiteral("20260102T030405678Z-0123abcd"), options, errorText);
    }

    RunRecordEntry entry() const { return runRecords(m_folder->filePath("runs")).front(); }

    QJsonObject made() const
    {
        QString errorText;
        return QJsonDocument::fromJson(supportFile(entry(), errorText)).object();
    }

    static RunEvent event(RunEvent::Kind kind, const QString &text = QString(),
                          const QString &code = QString())
    {
        RunEvent event;
        event.kind = kind;
        event.text = text;
        event.code = code;
        event.time = QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5, 678), Qt::UTC);
        return event;
    }

    static QByteArray lines(const QJsonArray &events)
    {
        QByteArray lines;
        for (const auto &event : events)
            lines += QJsonDocument(event.toObject()).toJson(QJsonDocument::Compact) + '\n';
        return lines;
    }

private Q_SLOTS:
    void init() { m_folder = std::make_unique<QTemporaryDir>(); }

    void hasTheRunAndNothingElse()
    {
        const auto record = begin();
        QVERIFY(record);
        record->hide(QStringLiteral("package"), QStringLiteral("/media/stick/wall 7"));
        record->hide(QStringLiteral("copy"), QStringLiteral("/var/tmp/velmar/0123"));
        const QString user = QString::fromLocal8Bit(::getpwuid(::geteuid())->pw_name);
        const QString host = QSysInfo::machineHostName();
        record->take(event(RunEvent::Kind::Message,
                           QStringLiteral("Copying /media/stick/wall 7/a.dat of %1 at %2, %3/x")
                               .arg(user, host, QDir::homePath())));
        record->take(event(RunEvent::Kind::Log,
                           QStringLiteral("open \"/var/tmp/velmar/0123/a.dat\""),
                           QStringLiteral("debug")));
        auto plan = event(RunEvent::Kind::Plan);
        plan.data = QJsonObject { { "packagePath", "/media/stick/wall 7" },
                                  { "files", QJsonArray { QJsonObject { { "file", "a.dat" } } } } };
        record->take(plan);
        auto end = event(RunEvent::Kind::Verdict);
        end.summary.emplace();
        end.summary->verdict =
            verdict(VerdictCode::Confirmed, QDir::homePath() + QStringLiteral("/a.dat is well"));
        end.summary->versions = { { "Slot 3", "FPGA", "1.0", "1.1", "1.1" } };
        record->take(end);

        const auto file = made();

        QCOMPARE(file.keys(),
                 (QStringList { "events", "log", "plan", "run", "schema", "versions" }));
        QCOMPARE(file.value("schema").toInt(), 1);
        QCOMPARE(file.value("run").toString(), QStringLiteral("20260102T030405678Z-0123abcd"));
        const auto events = file.value("events").toArray();
        QCOMPARE(events.size(), 3);
        QCOMPARE(events.at(0).toObject().value("text").toString(),
                 QStringLiteral("Copying <package>/a.dat of <user> at <host>, <home>/x"));
        QCOMPARE(events.at(2).toObject().value("data").toObject().value("sentence").toString(),
                 QStringLiteral("<home>/a.dat is well"));
        QCOMPARE(eventFaults(lines(events)), QByteArray());
        QCOMPARE(file.value("log").toArray(),
                 QJsonArray { "2026-01-02T03:04:05.678Z debug open \"<copy>/a.dat\"" });
        QCOMPARE(file.value("plan").toObject().value("packagePath").toString(),
                 QStringLiteral("<package>"));
        const QJsonObject before { { "part", "Slot 3" },
                                   { "section", "FPGA" },
                                   { "version", "1.0" } };
        const QJsonObject after { { "part", "Slot 3" },
                                  { "section", "FPGA" },
                                  { "version", "1.1" } };
        QCOMPARE(file.value("versions").toObject(),
                 (QJsonObject { { "before", QJsonArray { before } },
                                { "after", QJsonArray { after } } }));
    }

    void runWithoutAnEnd()
    {
        QVERIFY(begin());
        const auto file = made();
        QCOMPARE(file.value("events").toArray(), QJsonArray());
        QVERIFY(file.value("versions").isNull());
        QVERIFY(file.value("plan").isNull());
    }

    void damagedRecordIsRefused()
    {
        // Without what has to be hidden nothing may be told.
        const auto record = begin();
        QVERIFY(record);
        QVERIFY(QFile::remove(record->folder() + "/private.json"));
        QString errorText;
        QCOMPARE(supportFile(entry(), errorText), QByteArray());
        QCOMPARE(errorText, QStringLiteral("The record %1 cannot be read.").arg(record->folder()));
    }

    void linkInARecordIsNotFollowed()
    {
        const auto record = begin();
        QVERIFY(record);
        QVERIFY(QFile::remove(record->folder() + "/library.log"));
        QVERIFY(QFile::link("/etc/passwd", record->folder() + "/library.log"));
        QString errorText;
        QCOMPARE(supportFile(entry(), errorText), QByteArray());
    }

    void hidden_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("told");

        const QString home = QStringLiteral("/home/max");
        QTest::newRow("path") << "at /home/max/a"
                              << "at <home>/a";
        QTest::newRow("path at the end") << "at /home/max"
                                         << "at <home>";
        QTest::newRow("path with a slash") << "/home/max/"
                                           << "<home>/";
        QTest::newRow("twice") << "/home/max:/home/max"
                               << "<home>:<home>";
        QTest::newRow("longer name") << "/home/maxine/a"
                                     << "/home/maxine/a";
        QTest::newRow("longest first") << "/home/max/fw \u00e4/a"
                                       << "<package>/a";
        QTest::newRow("quoted by a log") << "\"/home/max/fw \u00e4\""
                                         << "\"<package>\"";
        QTest::newRow("as an address") << "file:///home/max/fw%20%C3%A4/a"
                                       << "file://<package>/a";
        QTest::newRow("cut") << QStringLiteral("at /home/max/fw\u2026")
                             << QStringLiteral("at <package>\u2026");
        QTest::newRow("cut early")
            << QStringLiteral("at /home/m\u2026") << QStringLiteral("at <package>\u2026");
        QTest::newRow("cut elsewhere")
            << QStringLiteral("at /tmp\u2026") << QStringLiteral("at /tmp\u2026");
        QTest::newRow("word") << "for max, please"
                              << "for <user>, please";
        QTest::newRow("word in a path") << "/var/max/x"
                                        << "/var/<user>/x";
        QTest::newRow("word in a word") << "maximum, climax"
                                        << "maximum, climax";
        QTest::newRow("joined words") << "max-wall max_1"
                                      << "<user>-wall <user>_1";
        QTest::newRow("placeholder") << "the user max"
                                     << "the user <user>";
        QTest::newRow("nothing") << ""
                                 << "";
    }
    void hidden()
    {
        QFETCH(QString, text);
        Redaction redaction;
        redaction.hide(QStringLiteral("user"), QStringLiteral("max"));
        redaction.hide(QStringLiteral("home"), QStringLiteral("/home/max"));
        redaction.hide(QStringLiteral("package"), QStringLiteral("/home/max/fw \u00e4/"));
        redaction.hide(QStringLiteral("home"), QStringLiteral("/"));
        redaction.hide(QStringLiteral("host"), QString());
        QTEST(redaction.applied(text), "told");
    }

    void linkedPathIsHiddenAsBoth()
    {
        QVERIFY(QDir(m_folder->path()).mkdir("real"));
        QVERIFY(QFile::link(m_folder->filePath("real"), m_folder->filePath("link")));
        Redaction redaction;
        redaction.hide(QStringLiteral("package"), m_folder->filePath("link"));
        QCOMPARE(redaction.applied(m_folder->filePath("link/a")), QStringLiteral("<package>/a"));
        const QString real = QFileInfo(m_folder->filePath("real")).canonicalFilePath();
        QCOMPARE(redaction.applied(real + "/a"), QStringLiteral("<package>/a"));
    }

    void stableWordsStay()
    {
        Redaction redaction;
        redaction.hide(QStringLiteral("user"), QStringLiteral("plan"));
        const QJsonObject event { { "event", "plan" }, { "phase", "plan" }, { "text", "a plan" } };
        QCOMPARE(
            redaction.applied(QJsonValue(event)).toObject(),
            (QJsonObject { { "event", "plan" }, { "phase", "plan" }, { "text", "a <user>" } }));
    }

    void pathsInNamesOfMembersGo()
    {
        Redaction redaction;
        redaction.hide(QStringLiteral("home"), QStringLiteral("/home/max"));
        const QJsonObject object { { "/home/max/a", QJsonArray { 1, true, "/home/max" } } };
        QCOMPARE(redaction.applied(QJsonValue(object)).toObject(),
                 (QJsonObject { { "<home>/a", QJsonArray { 1, true, "<home>" } } }));
    }

    void writing()
    {
        const QString path = m_folder->filePath("report.json");
        QString errorText;
        QVERIFY(writeSupportFile(path, "one", errorText));
        QVERIFY(writeSupportFile(path, "two", errorText));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("two"));
        QCOMPARE(QDir(m_folder->path()).entryList(QDir::Files), QStringList("report.json"));
    }

    void writingIsRefused_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("errorText");

        QTest::newRow("folder") << "folder"
                                << "%1 is there and no regular file.";
        QTest::newRow("link to a file") << "link"
                                        << "%1 is there and no regular file.";
        QTest::newRow("link to nothing") << "dangling"
                                         << "%1 is there and no regular file.";
        QTest::newRow("pipe") << "pipe"
                              << "%1 is there and no regular file.";
        QTest::newRow("no such folder") << "none/report.json"
                                        << "Cannot write %1: No such file or directory.";
    }
    void writingIsRefused()
    {
        QFETCH(QString, name);
        QFETCH(QString, errorText);
        QVERIFY(QDir(m_folder->path()).mkdir("folder"));
        QFile file(m_folder->filePath("file"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        QVERIFY(QFile::link(m_folder->filePath("file"), m_folder->filePath("link")));
        QVERIFY(QFile::link(m_folder->filePath("nothing"), m_folder->filePath("dangling")));
        QCOMPARE(::mkfifo(qPrintable(m_folder->filePath("pipe")), 0600), 0);

        const QString path = m_folder->filePath(name);
        QString told;
        QVERIFY(!writeSupportFile(path, "content", told));
        QCOMPARE(told, errorText.arg(path));
        QCOMPARE(QFileInfo(m_folder->filePath("file")).size(), 0);
        QVERIFY(!QFile::exists(m_folder->filePath("nothing")));
    }
};

QTEST_GUILESS_MAIN(tst_SupportFile)
#include "tst_supportfile.moc"
