#include "show/runrecord.h"

#include "show/recordedrun.h"
#include "support/eventcheck.h"
#include "support/unprivileged.h"

#include <QJsonDocument>
#include <QtTest>

#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>

using namespace Velmar::Host;

class tst_RunRecord : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_folder;

    RunRecordOptions options() const
    {
        RunRecordOptions options;
        options.baseFolder = m_folder->filePath(QStringLiteral("state/runs"));
        return options;
    }

    static QString runId(int number)
    {
        return QStringLiteral("20260102T030405%1Z-0123abcd").arg(number, 3, 10, QLatin1Char('0'));
    }

    static RunEvent event(RunEvent::Kind kind, const QString &text = QString())
    {
        RunEvent event;
        event.kind = kind;
        event.text = text;
        event.time = QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5, 678), Qt::UTC);
        return event;
    }

    static RunEvent progress(int percent)
    {
        auto progress = event(RunEvent::Kind::Progress);
        progress.phase = Phase::Sending;
        progress.place = 5;
        progress.places = 8;
        progress.percent = percent;
        return progress;
    }

    static RunEvent end()
    {
        auto end = event(RunEvent::Kind::Verdict);
        end.summary.emplace();
        end.summary->verdict = verdict(VerdictCode::Confirmed, QStringLiteral("All is well."));
        return end;
    }

    static QByteArray content(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("not there");
    }

    static int mode(const QString &path)
    {
        struct stat status = {};
        return ::lstat(QFile::encodeName(path).constData(), &status) == 0
            ? int(status.st_mode & 07777)
            : -1;
    }

    std::unique_ptr<RunRecord> begin(int number, const RunRecordOptions &options)
    {
        QString errorText;
        auto record = RunRecord::begin(runId(number), options, errorText);
        if (!record)
            qWarning("%s", qPrintable(errorText));
        return record;
    }

    QStringList ids() const
    {
        QStringList ids;
        for (const auto &entry : runRecords(options().baseFolder))
            ids.append(entry.id);
        return ids;
    }

private Q_SLOTS:
    void init() { m_folder = std::make_unique<QTemporaryDir>(); }

    void keepsWhatHappens()
    {
        const auto record = begin(1, options());
        QVERIFY(record);
        QCOMPARE(record->folder(), options().baseFolder + "/20260102T030405001Z-0123abcd");
        record->take(event(RunEvent::Kind::Message, QStringLiteral("Hello")));
        auto log = event(RunEvent::Kind::Log, QStringLiteral("open\nfile"));
        log.code = QStringLiteral("debug");
        record->take(log);
        auto plan = event(RunEvent::Kind::Plan);
        plan.data = QJsonObject { { "format", 1 } };
        record->take(plan);
        record->take(end());

        // All of it while the record is still in use: nothing waits for a later flush.
        const QByteArray events = content(record->folder() + "/events.jsonl");
        QCOMPARE(events.count('\n'), 3);
        QCOMPARE(eventFaults(events), QByteArray());
        QCOMPARE(content(record->folder() + "/library.log"),
                 QByteArray("2026-01-02T03:04:05.678Z debug open\\x0afile\n"));
        QCOMPARE(content(record->folder() + "/plan.json"), QByteArray("{\n    \"format\": 1\n}\n"));
    }

    void isTheOwnersAlone()
    {
        const auto before = ::umask(0);
        const auto record = begin(1, options());
        ::umask(before);
        QVERIFY(record);
        auto plan = event(RunEvent::Kind::Plan);
        record->take(plan);
        QCOMPARE(mode(m_folder->filePath("state")), 0700);
        QCOMPARE(mode(options().baseFolder), 0700);
        QCOMPARE(mode(record->folder()), 0700);
        for (const char *name : { "events.jsonl", "library.log", "plan.json", "private.json" })
            QCOMPARE(mode(record->folder() + '/' + name), 0600);
    }

    void openFolderIsClosedToOthers()
    {
        QVERIFY(QDir().mkpath(options().baseFolder));
        QVERIFY(::chmod(qPrintable(options().baseFolder), 0755) == 0);
        QVERIFY(begin(1, options()));
        QCOMPARE(mode(options().baseFolder), 0700);
    }

    void progressOnlyWhenItChanges()
    {
        const auto record = begin(1, options());
        for (int percent : { 1, 1, 2, 2 })
            record->take(progress(percent));
        auto parts = progress(2);
        parts.parts = { { QStringLiteral("Slot 3"), 1, QString() } };
        record->take(parts);
        record->take(parts);
        const QByteArray events = content(record->folder() + "/events.jsonl");
        QCOMPARE(events.count('\n'), 3);
        QCOMPARE(eventFaults(events, true), QByteArray());
    }

    void killedHostLeavesItsRecord()
    {
        QString folder = options().baseFolder + '/' + runId(1);
        const pid_t child = ::fork();
        if (child == 0) {
            QString errorText;
            const auto record = RunRecord::begin(runId(1), options(), errorText);
            record->take(event(RunEvent::Kind::Message, QStringLiteral("Hello")));
            ::kill(::getpid(), SIGKILL);
        }
        int status = 0;
        QCOMPARE(::waitpid(child, &status, 0), child);
        QVERIFY(WIFSIGNALED(status));

        const QByteArray events = content(folder + "/events.jsonl");
        QCOMPARE(events.count('\n'), 1);
        QCOMPARE(eventFaults(events, true), QByteArray());
        const auto entries = runRecords(options().baseFolder);
        QCOMPARE(entries.size(), std::size_t(1));
        QVERIFY(!entries.front().isInUse);
        QString errorText;
        const auto run = readRunRecord(entries.front(), errorText);
        QVERIFY(run);
        QCOMPARE(run->events.size(), 1);
        QVERIFY(!run->verdict());
        QVERIFY(!run->plan);
    }

    void lineCutByAKillIsLeftOut()
    {
        begin(1, options())->take(event(RunEvent::Kind::Message, QStringLiteral("Hello")));
        QFile file(options().baseFolder + '/' + runId(1) + "/events.jsonl");
        QVERIFY(file.open(QIODevice::Append));
        file.write("{\"event\":\"verd");
        file.close();
        QString errorText;
        const auto run = readRunRecord(runRecords(options().baseFolder).front(), errorText);
        QVERIFY(run);
        QCOMPARE(run->events.size(), 1);
    }

    void oldestGo()
    {
        auto few = options();
        few.keptRuns = 3;
        for (int number : { 4, 1, 3, 2 })
            QVERIFY(begin(number, few));
        // The first was the newest by its time.
        QCOMPARE(ids(), (QStringList { runId(2), runId(3), runId(4) }));
    }

    void oneInUseStays()
    {
        auto few = options();
        few.keptRuns = 2;
        const auto running = begin(1, few);
        for (int number : { 2, 3, 4 })
            QVERIFY(begin(number, few));
        QCOMPARE(ids(), (QStringList { runId(1), runId(4) }));
        const auto entries = runRecords(options().baseFolder);
        QVERIFY(entries.front().isInUse);
        QVERIFY(!entries.back().isInUse);
    }

    void twentyAreKept()
    {
        for (int number = 1; number <= 22; ++number)
            QVERIFY(begin(number, options()));
        QCOMPARE(ids().size(), 20);
        QCOMPARE(ids().first(), runId(3));
    }

    void otherFoldersAreLeftAlone()
    {
        auto few = options();
        few.keptRuns = 1;
        const QString precious = m_folder->filePath("precious");
        QVERIFY(QDir().mkpath(precious));
        QFile file(precious + "/data");
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        QVERIFY(QDir().mkpath(options().baseFolder + "/notes"));
        QVERIFY(QFile::link(precious, options().baseFolder + '/' + runId(0)));
        // What no record has: the folder of such a run stays with it.
        QVERIFY(begin(1, few));
        QVERIFY(QDir().mkpath(options().baseFolder + '/' + runId(1) + "/kept"));

        QVERIFY(begin(2, few));
        QVERIFY(begin(3, few));

        QVERIFY(QFile::exists(precious + "/data"));
        QVERIFY(QFileInfo(options().baseFolder + '/' + runId(0)).isSymLink());
        QVERIFY(QFile::exists(options().baseFolder + "/notes"));
        QVERIFY(QFile::exists(options().baseFolder + '/' + runId(1) + "/kept"));
        QVERIFY(!QFile::exists(options().baseFolder + '/' + runId(2)));
    }

    void logIsCapped()
    {
        auto small = options();
        small.largestLog = 100;
        const auto record = begin(1, small);
        for (int i = 0; i < 5; ++i)
            record->take(event(RunEvent::Kind::Log, QStringLiteral("twenty characters!!!")));
        QCOMPARE(content(record->folder() + "/library.log"),
                 QByteArray("2026-01-02T03:04:05.678Z  twenty characters!!!\n"
                            "2026-01-02T03:04:05.678Z  twenty characters!!!\n"
                            "2026-01-02T03:04:05.678Z warning The log has reached 100 B: no more "
                            "follows.\n"));
    }

    void eventsAreCappedButForTheVerdict()
    {
        auto small = options();
        small.largestEvents = 100;
        const auto record = begin(1, small);
        for (int i = 0; i < 5; ++i)
            record->take(event(RunEvent::Kind::Message, QStringLiteral("Hello")));
        record->take(end());
        const QByteArray events = content(record->folder() + "/events.jsonl");
        QCOMPARE(events.count("Hello"), 1);
        QCOMPARE(events.count("The record has reached 100 B: only the verdict follows."), 1);
        QCOMPARE(events.count('\n'), 3);
        QCOMPARE(eventFaults(events), QByteArray());
    }

    void fullDiskEndsTheRecordWithAWholeLine()
    {
        const auto record = begin(1, options());
        QStringList faults;
        record->setFaultHandler([&faults](const QString &sentence) { faults.append(sentence); });
        record->take(event(RunEvent::Kind::Message, QStringLiteral("Hello")));
        const QByteArray before = content(record->folder() + "/events.jsonl");

        // A limit on the size of files ends a write in its middle, as a full disk does.
        rlimit usual = {};
        QCOMPARE(::getrlimit(RLIMIT_FSIZE, &usual), 0);
        rlimit small = usual;
        small.rlim_cur = rlim_t(before.size() + 50);
        const auto previous = std::signal(SIGXFSZ, SIG_IGN);
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &small), 0);
        record->take(event(RunEvent::Kind::Message, QStringLiteral("lost")));
        record->take(event(RunEvent::Kind::Message, QStringLiteral("lost, too")));
        record->hide(QStringLiteral("package"), QStringLiteral("/package"));
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &usual), 0);
        std::signal(SIGXFSZ, previous);

        QCOMPARE(content(record->folder() + "/events.jsonl"), before);
        QCOMPARE(faults,
                 QStringList(QStringLiteral("The record of this run ends here: cannot write a line "
                                            "in %1: File too large.")
                                 .arg(record->folder())));
    }

    void folderThatCannotBeUsed_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("cause");

        QTest::newRow("a file in the way") << "file/runs"
                                           << "cannot open %1: Not a directory";
        QTest::newRow("a link") << "link"
                                << "cannot open %1: Not a directory";
        QTest::newRow("no right") << "closed/runs"
                                  << "cannot open %1: Permission denied";
        QTest::newRow("another user's") << "other"
                                        << "%1 belongs to another user";
    }
    void folderThatCannotBeUsed()
    {
        QFETCH(QString, base);
        QFETCH(QString, cause);
        QFile file(m_folder->filePath("file"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        QVERIFY(QDir(m_folder->path()).mkdir("target"));
        QVERIFY(QFile::link(m_folder->filePath("target"), m_folder->filePath("link")));
        QVERIFY(QDir(m_folder->path()).mkdir("closed"));
        QVERIFY(QDir(m_folder->path()).mkdir("other"));
        QVERIFY(::chmod(QFile::encodeName(m_folder->path()).constData(), 0755) == 0);
        QVERIFY(::chmod(QFile::encodeName(m_folder->filePath("closed")).constData(), 0) == 0);
        if (base == QLatin1String("other") && ::geteuid() != 0)
            QSKIP("needs a folder of another user");
        auto options = this->options();
        options.baseFolder = m_folder->filePath(base);

        const QByteArray told = Unprivileged::run([&options] {
            QString errorText;
            const auto record = RunRecord::begin(runId(1), options, errorText);
            return record ? QByteArray("a record") : errorText.toUtf8();
        });

        ::chmod(QFile::encodeName(m_folder->filePath("closed")).constData(), 0700);
        QCOMPARE(QString::fromUtf8(told),
                 QStringLiteral("There will be no record of this run: %1.")
                     .arg(cause.arg(options.baseFolder)));
    }

    void sameRunTwice()
    {
        const auto record = begin(1, options());
        QString errorText;
        QVERIFY(!RunRecord::begin(runId(1), options(), errorText));
        QCOMPARE(errorText,
                 QStringLiteral("There will be no record of this run: cannot make %1: File exists.")
                     .arg(runId(1)));
    }

    void finding_data()
    {
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<int>("number");
        QTest::addColumn<QString>("errorText");

        QTest::newRow("the last") << "" << 112 << "";
        QTest::newRow("whole id") << runId(111) << 111 << "";
        QTest::newRow("unique prefix") << "20260102T0304050" << 7 << "";
        QTest::newRow("none") << "2025" << 0 << "There is no record of a run \"2025\".";
        QTest::newRow("several") << "20260102T0304051" << 0
                                 << "More than one run begins with \"20260102T0304051\".";
        QTest::newRow("a path") << "../" << 0 << "There is no record of a run \"../\".";
    }
    void finding()
    {
        QFETCH(QString, prefix);
        QFETCH(int, number);
        for (int run : { 111, 112, 7 })
            QVERIFY(begin(run, options()));
        QString errorText;
        const auto entry = findRunRecord(prefix, options().baseFolder, errorText);
        QTEST(errorText, "errorText");
        QCOMPARE(entry.has_value(), number != 0);
        if (entry) {
            QCOMPARE(entry->id, runId(number));
            QCOMPARE(entry->folder, options().baseFolder + '/' + runId(number));
        }
    }

    void findingWithoutARecord()
    {
        QString errorText;
        QVERIFY(!findRunRecord(QString(), options().baseFolder, errorText));
        QCOMPARE(errorText, QStringLiteral("There is no record of any run."));
    }

    void placeOfTheRecords()
    {
        qputenv("XDG_STATE_HOME", "/state/");
        QCOMPARE(runRecordsFolder(), QStringLiteral("/state/velmar-upgrade/runs"));
        qputenv("XDG_STATE_HOME", "relative");
        QCOMPARE(runRecordsFolder(), QDir::homePath() + "/.local/state/velmar-upgrade/runs");
        qunsetenv("XDG_STATE_HOME");
        QCOMPARE(runRecordsFolder(), QDir::homePath() + "/.local/state/velmar-upgrade/runs");
    }
};

QTEST_GUILESS_MAIN(tst_RunRecord)
#include "tst_runrecord.moc"
