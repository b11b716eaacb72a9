#include "proof.h"

#include "hostprocess.h"
#include "programs.h"
#include "sidebyside.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <csignal>
#include <memory>
#include <utility>

namespace {

constexpr std::size_t SideBySide = 14; // trials, which mostly wait
constexpr int InstallationLimitMs =
    5000; // of a device that goes on with one; one that is gone never ends
constexpr int RestartLimitMs = 15000;
constexpr int LookPauseMs = 50;
constexpr int SecondHostLimitMs = 10000; // far below the limits of an upgrade that waits

// More than the example package, its image and the room that a copy asks for; much less than a
// trial may take.
constexpr const char *SmallDisk = "1m";
constexpr const char *RoomyDisk = "200m";
constexpr int LargestFileBlocks = 1024; // of 512 bytes

/*! Names, lengths and contents of what is in a folder. */
QMap<QString, QByteArray> contentsOf(const QString &folder)
{
    QMap<QString, QByteArray> contents;
    QDirIterator entries(folder, QDir::Files | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        QFile file(entries.next());
        const bool isOpen = file.open(QIODevice::ReadOnly);
        contents.insert(QDir(folder).relativeFilePath(file.fileName()),
                        isOpen ? file.readAll() : QByteArray("(cannot be opened)"));
    }
    return contents;
}

/*! Whether a process may have file systems of its own here. */
bool mayMount()
{
    static const bool may = [] {
        const QTemporaryDir folder;
        return runProgram(QStringLiteral("unshare"),
                          { QStringLiteral("-rm"), QStringLiteral("mount"), QStringLiteral("-t"),
                            QStringLiteral("tmpfs"), QStringLiteral("none"), folder.path() })
                   .exitCode
            == 0;
    }();
    return may;
}

/*! The words in front of a host's for \a blow. */
QStringList surroundings(Blow blow, const HostFolders &folders, const QString &package)
{
    const QStringList apart { QStringLiteral("unshare"), QStringLiteral("-rm"),
                              QStringLiteral("sh"), QStringLiteral("-c") };
    const QString mountDisk =
        QStringLiteral("mount -t tmpfs -o size=$1 none \"$2\" && shift 2 && exec \"$@\"");
    switch (blow) {
    case Blow::DiskTooSmall:
        return apart
            + QStringList { mountDisk, QStringLiteral("sh"), QLatin1String(SmallDisk),
                            folders.cache() };
    case Blow::DiskFilled:
        return apart
            + QStringList { mountDisk, QStringLiteral("sh"), QLatin1String(RoomyDisk),
                            folders.cache() };
    case Blow::PackageReadOnly:
        if (!mayMount())
            return {}; // its mode is enough for whoever is not root
        return apart
            + QStringList { QStringLiteral("mount --bind \"$1\" \"$1\" && "
                                           "mount -o remount,bind,ro \"$1\" && shift && "
                                           "exec \"$@\""),
                            QStringLiteral("sh"), package };
    case Blow::FileSizeLimited:
        return { QStringLiteral("sh"), QStringLiteral("-c"),
                 QStringLiteral("ulimit -f $1 && shift && exec \"$@\""), QStringLiteral("sh"),
                 QString::number(LargestFileBlocks) };
    case Blow::None:
    case Blow::HostKilled:
    case Blow::WorkerKilled:
    case Blow::SecondHost:
        break;
    }
    return {};
}

void setWritable(const QString &folder, bool isWritable)
{
    const auto file =
        isWritable ? QFile::ReadOwner | QFile::WriteOwner : QFile::Permissions(QFile::ReadOwner);
    QStringList folders { folder };
    QDirIterator entries(folder, QDir::AllEntries | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QString path = entries.next();
        if (entries.fileInfo().isDir())
            folders.append(path);
        else
            QFile::setPermissions(path, file);
    }
    for (const auto &path : std::as_const(folders))
        QFile::setPermissions(path, file | QFile::ExeOwner);
}

/*! One row while it is tried. */
class Attempt
{
public:
    Attempt(const ProofRow &row, Trial::Road road, int network, int place)
        : m_row(row)
        , m_trial(road, row.adversity, network, place)
    {
        if (row.kernelSize > 0) {
            QFile kernel(m_package.path() + QStringLiteral("/controller/kernel.bin"));
            if (!kernel.open(QIODevice::WriteOnly) || !kernel.resize(row.kernelSize))
                m_outcome.trouble = QStringLiteral("The package cannot be made larger");
        }
        m_packageBefore = contentsOf(m_package.path());
    }

    ProofOutcome make()
    {
        if (!m_trial.isReady()) {
            m_outcome.trouble = QStringLiteral("The device does not start");
            return m_outcome;
        }
        const bool needsMount = m_row.blow == Blow::DiskTooSmall || m_row.blow == Blow::DiskFilled;
        if (needsMount && !mayMount()) {
            m_outcome.isSkipped = true;
            m_outcome.trouble = QStringLiteral("No file system can be mounted here");
            return m_outcome;
        }
        endure();
        if (m_outcome.trouble.isEmpty())
            recover();
        return m_outcome;
    }

private:
    QStringList arguments() const
    {
        return m_trial.runArguments(m_package.path())
            + QStringList { QStringLiteral("--json"),           QStringLiteral("--no-config"),
                            QStringLiteral("--stall-timeout"),  QStringLiteral("4"),
                            QStringLiteral("--return-timeout"), QStringLiteral("4"),
                            QStringLiteral("--timeout"),        QStringLiteral("120") };
    }

    void endure()
    {
        const bool isReadOnly = m_row.blow == Blow::PackageReadOnly;
        if (isReadOnly)
            setWritable(m_package.path(), false);
        HostProcess host(arguments(), m_folders,
                         surroundings(m_row.blow, m_folders, m_package.path()));
        if (qstrlen(m_row.moment.phase) > 0 && !strike(host))
            return;
        host.finish();
        m_outcome.code = host.verdict();
        m_outcome.exitCode = host.exitCode();
        m_outcome.output = host.output();
        if (m_worker > 0 && !waitForEndOf(m_worker))
            m_outcome.trouble = QStringLiteral("The worker goes on for ever");
        m_outcome.device = m_trial.aftermath(InstallationLimitMs);
        // A device that restarts by itself may do so later than the host ends.
        const QDeadlineTimer deadline(RestartLimitMs);
        while (m_outcome.device.restarts < m_row.restarts && !deadline.hasExpired()) {
            QThread::msleep(LookPauseMs);
            m_outcome.device = m_trial.aftermath(InstallationLimitMs);
        }
        m_outcome.left = m_folders.left();
        if (isReadOnly)
            setWritable(m_package.path(), true);
        m_outcome.isPackageUntouched = contentsOf(m_package.path()) == m_packageBefore;
    }

    bool strike(HostProcess &host)
    {
        if (!host.waitForPhase(QLatin1String(m_row.moment.phase), m_row.moment.percent)) {
            host.finish();
            m_outcome.trouble = QStringLiteral("The moment has not come:\n") + host.output();
            return false;
        }
        m_worker = host.workerId();
        switch (m_row.blow) {
        case Blow::HostKilled:
            ::kill(host.id(), SIGKILL);
            break;
        case Blow::WorkerKilled:
            ::kill(m_worker, SIGKILL);
            break;
        case Blow::SecondHost: {
            HostProcess second(arguments(), m_folders);
            second.finish(SecondHostLimitMs);
            m_outcome.secondCode = second.verdict();
            m_outcome.secondExitCode = second.exitCode();
            break;
        }
        case Blow::DiskFilled:
            fill(QStringLiteral("/proc/%1/root").arg(host.id()) + m_folders.cache());
            break;
        case Blow::None:
        case Blow::DiskTooSmall:
        case Blow::FileSizeLimited:
        case Blow::PackageReadOnly:
            break;
        }
        return true;
    }

    static void fill(const QString &folder)
    {
        QFile file(folder + QStringLiteral("/filling"));
        const QByteArray block(1024 * 1024, 'f');
        if (file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
            while (file.write(block) == block.size()) { }
        }
    }

    void recover()
    {
        m_outcome.isRecovered = m_trial.recover();
        HostProcess host(arguments(), m_folders);
        host.finish();
        m_outcome.cleanCode = host.verdict();
        m_outcome.cleanExitCode = host.exitCode();
        m_outcome.cleanOutput = host.output();
        m_outcome.cleanDevice = m_trial.aftermath();
        m_outcome.cleanLeft = m_folders.left();
        m_outcome.isPackageStillUntouched = contentsOf(m_package.path()) == m_packageBefore;
    }

    const ProofRow &m_row;
    Trial m_trial;
    const ExamplePackage m_package;
    QMap<QString, QByteArray> m_packageBefore;
    const HostFolders m_folders;
    ProofOutcome m_outcome;
    pid_t m_worker = 0; // at the time of the blow
};

QString firmwareWord(Firmware firmware)
{
    return firmware == Firmware::New ? QStringLiteral("new") : QStringLiteral("old");
}

QString firmwareOf(const DeviceAftermath &device, Trial::Road road)
{
    const bool isByRegisters = road == Trial::Road::Registers;
    const int installed =
        isByRegisters ? device.registerFirmware.size() : device.installedFiles.size();
    if (installed == 0)
        return firmwareWord(Firmware::Old);
    const int everything = isByRegisters ? 1 : 14;
    return installed == everything ? firmwareWord(Firmware::New)
                                   : QStringLiteral("(%1 files of) new").arg(installed);
}

} // namespace

Proof::Proof(Trial::Road road, std::vector<ProofRow> rows, int network)
    : m_road(road)
    , m_rows(std::move(rows))
    , m_network(network)
    , m_outcomes(m_rows.size())
{
}

void Proof::run()
{
    workSideBySide(m_rows.size(), SideBySide, [this](std::size_t i) {
        m_outcomes.at(i) = Attempt(m_rows.at(i), m_road, m_network, int(i) + 1).make();
    });
}

void Proof::check(std::size_t index) const
{
    const ProofRow &row = m_rows.at(index);
    const ProofOutcome &outcome = m_outcomes.at(index);
    if (outcome.isSkipped)
        QSKIP(qPrintable(outcome.trouble));
    QVERIFY2(outcome.trouble.isEmpty(), qPrintable(outcome.trouble));

    const QString expected = QStringLiteral("\"%1\", exit code %2, %3 firmware, restarted %4 times")
                                 .arg(QLatin1String(row.code))
                                 .arg(row.exitCode)
                                 .arg(firmwareWord(row.firmware))
                                 .arg(row.restarts);
    const QString found = QStringLiteral("\"%1\", exit code %2, %3 firmware, restarted %4 times")
                              .arg(outcome.code)
                              .arg(outcome.exitCode)
                              .arg(firmwareOf(outcome.device, m_road))
                              .arg(outcome.device.restarts);
    QVERIFY2(
        found == expected,
        qPrintable(QStringLiteral("%1 in place of %2\n%3").arg(found, expected, outcome.output)));
    QVERIFY(!outcome.device.isBricked && !outcome.device.wasRestartedEarly);
    QVERIFY(outcome.isPackageUntouched);
    // A kill leaves what the next run sweeps.
    if (row.blow != Blow::HostKilled)
        QCOMPARE(outcome.left, QStringList());
    if (row.blow == Blow::SecondHost) {
        QCOMPARE(outcome.secondCode, QStringLiteral("device-busy"));
        QCOMPARE(outcome.secondExitCode, 75);
    }

    QVERIFY(outcome.isRecovered);
    QVERIFY2(outcome.cleanCode == QLatin1String("confirmed"), qPrintable(outcome.cleanOutput));
    QCOMPARE(outcome.cleanExitCode, 0);
    QCOMPARE(firmwareOf(outcome.cleanDevice, m_road), firmwareWord(Firmware::New));
    QVERIFY(!outcome.cleanDevice.isBricked && !outcome.cleanDevice.isInstalling);
    QCOMPARE(outcome.cleanLeft, QStringList());
    QVERIFY(outcome.isPackageStillUntouched);
}
