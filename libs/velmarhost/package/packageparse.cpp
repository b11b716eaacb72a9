#include "package/packageparse.h"

#include "run/workerwatch.h"

#include "upgradefileparsed.h"

#include <QFileInfo>

#include <utility>

namespace Velmar::Host {

namespace {

// Between its last signal and its end a worker has nothing left to do.
constexpr std::chrono::seconds WorkerEndLimit { 5 };

// Without a device the library reads the destinations in this mode only.
constexpr unsigned char ReadDataPaths = 1;

} // namespace

PackageParse::PackageParse(const QString &path)
    : m_path(path)
    , m_worker(std::make_shared<WorkerWatch>())
{
    m_timeLimit.setSingleShot(true);
    connect(&m_timeLimit, &QTimer::timeout, this, &PackageParse::slotTimeLimit);
}

PackageParse::~PackageParse()
{
    if (m_isRunning || m_isWorkerLeftBehind)
        keepForWorker(std::move(m_parser));
}

void PackageParse::start(std::chrono::milliseconds timeLimit)
{
    start(false, 0, timeLimit);
}

void PackageParse::startForModel(quint16 modelId, std::chrono::milliseconds timeLimit)
{
    start(true, modelId, timeLimit);
}

void PackageParse::start(bool isGivenModel, quint16 modelId, std::chrono::milliseconds timeLimit)
{
    Q_ASSERT(!m_parser);
    m_parser = std::make_unique<Firmware::UpgradeFileParsed>(m_path, isImageFile(), isGivenModel,
                                                             modelId, ReadDataPaths);
    using Parser = Firmware::UpgradeFileParsed;
    connect(m_parser.get(), &Parser::signalParsedUpgradeFileFinished,
            [worker = m_worker] { worker->noteWorker(); });
    connect(m_parser.get(), &Parser::signalParsedUpgradeFileFinished, this,
            &PackageParse::slotFinished, Qt::QueuedConnection);
    m_isRunning = true;
    m_timeLimit.start(timeLimit);
    m_parser->startParseFile();
}

bool PackageParse::isImageFile() const
{
    return QFileInfo(m_path).isFile();
}

bool PackageParse::isWorkerLeftBehind() const
{
    return m_isWorkerLeftBehind;
}

const QVector<Firmware::UpgradeCfg> &PackageParse::units() const
{
    return m_units;
}

const QVector<Firmware::DataFilePath> &PackageParse::dataFilePaths() const
{
    return m_dataFilePaths;
}

void PackageParse::slotFinished(bool result, const QString &errorText)
{
    if (!m_isRunning)
        return; // the time limit has passed before
    m_isRunning = false;
    m_timeLimit.stop();
    m_isWorkerLeftBehind = !m_worker->waitForEnd(WorkerEndLimit);
    if (result) {
        QVector<QPair<int, QString>> sections; // said again, with their files, by the units
        m_parser->upgradeFileParam(m_units, m_dataFilePaths, sections);
    }
    Q_EMIT signalEnded(result, errorText);
}

void PackageParse::slotTimeLimit()
{
    m_isRunning = false;
    m_isWorkerLeftBehind = true;
    Q_EMIT signalEnded(false,
                       QStringLiteral("Reading the package took longer than the time limit."));
}

} // namespace Velmar::Host
