#include "hostprocess.h"
#include "programs.h"
#include "sidebyside.h"
#include "trial.h"
#include "wiretap.h"

#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t SideBySide = 48; // trials, which mostly wait
constexpr int FirstNetwork = 97;
constexpr int TrialsOfANetwork = 200;
constexpr int InstallationLimitMs = 4000; // of a device that goes on by itself
constexpr int Everything = 14; // files of the example package

const QStringList SlowInstallation { "--install-ms", "2500" };

/*! Something that goes wrong on the way to a device or in it, while that can be bricked. */
struct Fault {
    QString name;
    Trial::Road road = Trial::Road::Native;
    QStringList faults;
    QStringList relay;
    const char *renewal = ""; //!< phase in which the relay ends and begins anew; empty: in none
};

/*! What came of it. */
struct Outcome {
    bool isReady = false;
    QString code; //!< of the verdict
    int exitCode = -1;
    QString output;
    DeviceAftermath device;
};

QStringList limits()
{
    return { "--json",           "--no-config", "--stall-timeout", "4",
             "--return-timeout", "4",           "--timeout",       "40" };
}

Outcome suffer(const Fault &fault, const ExamplePackage &package, int number)
{
    Outcome outcome;
    Trial trial(fault.road,
                { QStringList { "brick" } + fault.faults, fault.relay, SlowInstallation },
                FirstNetwork + number / TrialsOfANetwork, number % TrialsOfANetwork + 1);
    outcome.isReady = trial.isReady();
    if (!outcome.isReady)
        return outcome;
    const HostFolders folders;
    HostProcess host(trial.runArguments(package.path()) + limits(), folders);
    if (qstrlen(fault.renewal) > 0 && host.waitForPhase(QLatin1String(fault.renewal), 1))
        trial.renewRelay();
    host.finish();
    outcome.code = host.verdict();
    outcome.exitCode = host.exitCode();
    outcome.output = host.output();
    outcome.device = trial.aftermath(InstallationLimitMs);
    return outcome;
}

/*! The faults of a relay at \a at bytes of a direction of the host's \a connection. */
Fault onTheWay(const QString &place, const char *kind, bool isAnswer, qint64 at, int connection)
{
    Fault fault;
    fault.name = QStringLiteral("%1 %2").arg(QLatin1String(kind), place);
    fault.relay = QStringList { "--fault", kind, "--at", QString::number(at), "--pace", "20000" };
    if (isAnswer)
        fault.relay << "--answers";
    if (connection > 0)
        fault.relay << "--connection" << QString::number(connection);
    return fault;
}

/*! Everything that a native upgrade without faults says and hears. */
QVector<TappedMessage> course(const ExamplePackage &package)
{
    DeviceProgram device(SlowInstallation);
    if (!device.waitForReady())
        return {};
    const WireTap tap(device.address());
    std::atomic<bool> isOver { false };
    std::thread host([&] {
        const HostFolders folders;
        HostProcess(QStringList { "run", package.path(), "--yes", "--device", tap.address() }
                        + limits(),
                    folders)
            .finish();
        isOver = true;
    });
    while (!isOver)
        QTest::qWait(10);
    host.join();
    return tap.messages();
}

/*! The first, a middle and the last of each row of messages of one operation on the connection that
    upgrades. */
QVector<TappedMessage> marked(const QVector<TappedMessage> &course, int connection)
{
    QMap<QPair<bool, QString>, QVector<TappedMessage>> rows;
    for (const auto &message : course) {
        if (message.connection == connection)
            rows[{ message.isAnswer, message.operation }].append(message);
    }
    QVector<TappedMessage> marked;
    for (const auto &row : std::as_const(rows)) {
        QVector<int> places { 0 };
        if (row.size() > 1)
            places.append(row.size() - 1);
        if (row.size() > 2)
            places.append(row.size() / 2);
        for (const int place : std::as_const(places)) {
            marked.append(row.at(place));
            marked.last().operation += QStringLiteral(" %1 of %2").arg(place + 1).arg(row.size());
        }
    }
    return marked;
}

/*! The connection on which the device was told to install. */
int upgradingConnection(const QVector<TappedMessage> &course)
{
    for (const auto &message : course) {
        if (message.operation == QLatin1String("upgrade.configure"))
            return message.connection;
    }
    return 0;
}

/*! Faults at and in the messages of \a course. Not all of them, unless \a isWhole: every message is
    reset at each of its places, and meets one of the other kinds. */
std::vector<Fault> nativeFaults(const QVector<TappedMessage> &course, bool isWhole)
{
    std::vector<Fault> faults;
    const int connection = upgradingConnection(course);
    std::size_t turn = 0;
    const auto messages = marked(course, connection);
    for (const auto &message : messages) {
        const QString direction =
            message.isAnswer ? QStringLiteral("answer to ") : QStringLiteral("request ");
        const QVector<QPair<QString, qint64>> places {
            { QStringLiteral("before "), message.begin },
            { QStringLiteral("within "), (message.begin + message.end) / 2 },
            { QStringLiteral("behind "), message.end },
        };
        const QVector<const char *> kinds { "close", "stall", "trickle" };
        for (const auto &place : places) {
            const QString name = place.first + direction + message.operation;
            // What is before a message is behind another one.
            if (isWhole || place.first != QLatin1String("before "))
                faults.push_back(
                    onTheWay(name, "reset", message.isAnswer, place.second, connection));
            for (const char *kind : kinds) {
                if (isWhole)
                    faults.push_back(
                        onTheWay(name, kind, message.isAnswer, place.second, connection));
            }
        }
        if (!isWhole)
            faults.push_back(onTheWay(places.at(1).first + direction + message.operation,
                                      kinds.at(int(turn++ % 3)), message.isAnswer,
                                      places.at(1).second, connection));
    }
    return faults;
}

std::vector<Fault> otherFaults()
{
    std::vector<Fault> faults;
    // On every connection, those of a host that looks for the device as well.
    for (const qint64 at : { 100, 300, 600, 1000, 2000, 4000 })
        faults.push_back(onTheWay(QStringLiteral("answers of each connection, at %1").arg(at),
                                  "reset", true, at, 0));
    for (const char *fault :
         { "drop-progress=1",   "drop-progress=2",   "drop-progress=3", "refuse-progress=1",
           "refuse-progress=2", "refuse-progress=3", "silent=send",     "silent=install",
           "silent=done",       "silent=restart",    "cut-transfer=10", "cut-transfer=100",
           "refuse-announce",   "refuse-configure",  "refuse-restart",  "install-fails",
           "never-ends",        "slow-link=400000",  "no-return",       "lie",
           "old-result=2:1",    "old-result=3:1",    "old-result=2:0",  "old-result=3:0" }) {
        faults.push_back({ QLatin1String(fault), Trial::Road::Native, { fault }, {}, "" });
    }
    for (const char *phase : { "send", "install" })
        faults.push_back({ QStringLiteral("relay begins anew: ") + QLatin1String(phase),
                           Trial::Road::Native,
                           { "slow-link=1000000" },
                           { "--at", "0" },
                           phase });
    return faults;
}

/*! Faults on the other roads, whose devices restart by themselves: there a host has nothing to
    order. */
std::vector<Fault> faultsOn(Trial::Road road, const QVector<qint64> &offsets,
                            const QStringList &words)
{
    const QString name =
        road == Trial::Road::Http ? QStringLiteral("HTTP: ") : QStringLiteral("registers: ");
    std::vector<Fault> faults;
    for (const char *kind : { "reset", "stall" }) {
        for (const qint64 at : offsets) {
            for (const bool isAnswer : { false, true }) {
                if (isAnswer && at > 1000)
                    continue; // they are short
                const QString place =
                    QStringLiteral("%1 at %2")
                        .arg(isAnswer ? QStringLiteral("answers") : QStringLiteral("requests"));
                auto fault = onTheWay(name + place.arg(at), kind, isAnswer, at,
                                      road == Trial::Road::Http ? 0 : 2);
                fault.road = road;
                faults.push_back(fault);
            }
        }
    }
    for (const auto &word : words)
        faults.push_back({ name + word, road, { word }, {}, "" });
    return faults;
}

void append(std::vector<Fault> &faults, const std::vector<Fault> &more)
{
    faults.insert(faults.end(), more.begin(), more.end());
}

} // namespace

/*! A device that is bricked if it restarts while it installs, against every fault on the way to it:
    it never is, and what the host says of its firmware is true. */
class tst_NoBrick : public QObject
{
    Q_OBJECT

    const ExamplePackage m_package;
    std::vector<Fault> m_faults;
    std::vector<Outcome> m_outcomes;

private Q_SLOTS:
    void initTestCase()
    {
        const auto messages = course(m_package);
        QSet<QString> operations;
        for (const auto &message : messages) {
            if (message.connection == upgradingConnection(messages))
                operations.insert(message.operation);
        }
        // The faults below are to meet each of them.
        for (const char *operation :
             { "hello", "version.read", "file.announce", "file.data", "file.close",
               "upgrade.configure", "upgrade.progress", "device.shutdown" })
            QVERIFY2(operations.contains(QLatin1String(operation)), operation);

        const bool isWhole = qEnvironmentVariableIsSet("VELMAR_EVERY_FAULT");
        m_faults = otherFaults(); // some of which last until the time limit
        append(m_faults, nativeFaults(messages, isWhole));
        append(m_faults,
               faultsOn(Trial::Road::Http, { 0, 60, 300, 700000, 1390000 },
                        { "silent=send", "silent=install", "silent=done", "silent=restart",
                          "http-stall", "http-truncate", "poll-status=500" }));
        append(m_faults,
               faultsOn(Trial::Road::Registers, { 0, 100, 700, 50000, 98000, 102000 },
                        { "silent=send", "silent=install", "silent=done", "register-cut=30",
                          "register-silent=30", "register-not-ready=30" }));
        m_outcomes.resize(m_faults.size());
        workSideBySide(m_faults.size(), SideBySide, [this](std::size_t i) {
            m_outcomes.at(i) = suffer(m_faults.at(i), m_package, int(i));
        });
    }

    void fault_data()
    {
        QTest::addColumn<int>("index");
        for (std::size_t i = 0; i < m_faults.size(); ++i)
            QTest::newRow(qPrintable(m_faults.at(i).name)) << int(i);
    }
    void fault()
    {
        QFETCH(int, index);
        const Outcome &outcome = m_outcomes.at(std::size_t(index));
        QVERIFY(outcome.isReady);
        const DeviceAftermath &device = outcome.device;
        QVERIFY2(!device.isBricked && !device.wasRestartedEarly, qPrintable(outcome.output));
        QVERIFY(device.isRunning);

        const bool isByRegisters = m_faults.at(std::size_t(index)).road == Trial::Road::Registers;
        const int files =
            isByRegisters ? device.registerFirmware.size() : device.installedFiles.size();
        const QString told = QStringLiteral("\"%1\" with %2 files installed\n%3")
                                 .arg(outcome.code)
                                 .arg(files)
                                 .arg(outcome.output);
        QVERIFY2(!outcome.code.isEmpty(), qPrintable(told));
        switch (outcome.exitCode) {
        case 0:
            QVERIFY2(files == (isByRegisters ? 1 : Everything), qPrintable(told));
            break;
        case 1:
        case 3:
        case 4:
            QVERIFY2(files == 0, qPrintable(told));
            break;
        default: // the host does not say which
            QVERIFY2(outcome.exitCode == 5, qPrintable(told));
        }
    }
};

QTEST_GUILESS_MAIN(tst_NoBrick)
#include "tst_nobrick.moc"
