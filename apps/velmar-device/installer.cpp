#include "installer.h"

#include "devicestate.h"
#include "faults.h"
#include "statefolder.h"

#include <algorithm>
#include <csignal>

namespace Velmar::Simulator {

using ProtoModel::Auxiliary::s_SectionPercent;
using ProtoModel::Auxiliary::s_UpgradeCardParts;
using ProtoModel::Auxiliary::s_UpgradePercent;

namespace {

constexpr int SliceMs = 20; // of work at a time, so that questions are answered meanwhile
constexpr qint64 ChunkSize = 65536;
constexpr qint64 WholeShare = 10000;
constexpr qint64 AlmostWhole = 9990; // all but what the record has to say
constexpr int Running = 1;
constexpr int Done = 2;
constexpr int Failed = 3;

quint8 percentage(qint64 share)
{
    return quint8(std::clamp(share * 100 / WholeShare, qint64(0), qint64(100)));
}

/*! Progress of the section at \a index of \a count, of which \a share is done altogether. */
s_SectionPercent sectionProgress(quint16 code, qint64 share, int index, int count, int result)
{
    const qint64 own = share * count - index * WholeShare;
    s_SectionPercent section;
    section.code = code;
    section.rate = percentage(own);
    section.result = result;
    if (result == Running && own < 0)
        section.result = 0; // its turn has not come
    if (result == Running && own >= WholeShare)
        section.result = Done;
    return section;
}

} // namespace

Installer::Installer(const StateFolder &folder, DeviceState &state, const Faults &faults,
                     int durationMs)
    : m_folder(folder)
    , m_state(state)
    , m_faults(faults)
    , m_durationMs(durationMs)
{
    m_timer.setInterval(std::clamp(durationMs / 100, 1, 50));
    connect(&m_timer, &QTimer::timeout, this, &Installer::work);
}

Installer::~Installer() = default;

Outcome Installer::start(const InstallationOrder &order)
{
    const Outcome ready = readiness();
    if (!ready.isAccepted())
        return ready;
    const auto fatalStep = Installation::Step(m_faults.value(Fault::PowerCut, 0));
    auto installation =
        std::make_unique<Installation>(m_folder, m_state, [fatalStep](Installation::Step step) {
            if (step == fatalStep)
                std::raise(SIGKILL);
        });
    InstallationOrder noted = order;
    noted.bricksIfCut = m_faults.isSet(Fault::Brick);
    const Outcome outcome = installation->begin(noted);
    if (!outcome.isAccepted())
        return outcome;
    m_installation = std::move(installation);
    m_isBound = false;
    m_failedUnrecorded = false;
    m_share = 0;
    m_clock.start();
    m_timer.start();
    return outcome;
}

Outcome Installer::readiness() const
{
    if (isRunning())
        return { LinkAck::NotNow, QString::fromLatin1("an installation is running") };
    if (m_state.record().isInstalling())
        return { LinkAck::NotNow, QString::fromLatin1("an installation has not ended") };
    if (m_isRestartDue)
        return { LinkAck::NotNow, QString::fromLatin1("the device is about to restart") };
    return {};
}

void Installer::breakOff()
{
    end();
    m_isRestartDue = false;
}

void Installer::end()
{
    m_timer.stop();
    m_installation.reset();
}

quint32 Installer::run() const
{
    return m_state.record().runs;
}

s_UpgradePercent Installer::progress() const
{
    s_UpgradePercent progress;
    const std::optional<InstallationRecord> &record = m_state.record().installation;
    if (!record)
        return progress;
    const int result = m_failedUnrecorded ? Failed : record->result;
    const qint64 share = result == Done ? WholeShare : m_share;
    progress.result = result;
    progress.rate = percentage(share);
    progress.subSections.rate = progress.rate;
    int count = 0;
    for (const PartOrder &order : record->parts)
        count += int(order.codes.size());
    int index = 0;
    for (const PartOrder &order : record->parts) {
        s_UpgradeCardParts part;
        part.type = order.type;
        part.slotId = order.slotId;
        int sum = 0;
        bool isDone = true;
        for (const quint16 code : order.codes) {
            part.section.push_back(sectionProgress(code, share, index++, count, result));
            sum += part.section.back().rate;
            isDone = isDone && part.section.back().result == Done;
        }
        const int sections = int(order.codes.size());
        part.rate = sections == 0 ? progress.rate : quint8(sum / sections);
        part.result = quint8(result == Running && sections > 0 && isDone ? Done : result);
        progress.parts.push_back(part);
    }
    return progress;
}

void Installer::work()
{
    QString errorText;
    if (m_isBound) {
        if (!placeSome(errorText)) {
            fail(errorText);
        } else if (m_installation->isPlaced()) {
            if (!m_installation->complete(errorText)) {
                fail(errorText);
                return;
            }
            finishWell();
        }
        return;
    }
    if (!stageWhatIsDue(errorText)) {
        fail(errorText);
        return;
    }
    if (m_permission && !m_permission(percentage(m_share))) {
        m_timer.stop();
        return;
    }
    if (m_faults.isSet(Fault::InstallFails)
        && percentage(m_share) >= m_faults.value(Fault::InstallFails, 0)) {
        fail(QString::fromLatin1("the fault \"install-fails\" is set"));
        return;
    }
    if (m_faults.isSet(Fault::NeverEnds)
        && percentage(m_share) >= m_faults.value(Fault::NeverEnds, 0)) {
        m_share = m_faults.value(Fault::NeverEnds, 0) * WholeShare / 100;
        m_timer.stop();
        return;
    }
    if (m_installation->isStaged() && timeShare() == WholeShare) {
        if (m_faults.isSet(Fault::Lie)) {
            if (m_installation->pretend(errorText))
                finishWell();
            else
                fail(errorText);
        } else if (!m_installation->bind(errorText))
            fail(errorText);
        else
            m_isBound = true;
    }
}

void Installer::finishWell()
{
    end();
    Q_EMIT finished(Done, QString());
}

bool Installer::stageWhatIsDue(QString &errorText)
{
    QElapsedTimer slice;
    slice.start();
    const qint64 time = timeShare();
    const qint64 total = m_installation->totalBytes();
    const qint64 due = std::min(total, total * time / WholeShare + 1);
    while (!m_installation->isStaged() && slice.elapsed() < SliceMs
           && (m_installation->stagedBytes() < due || time == WholeShare)) {
        const qint64 wanted = std::clamp(due - m_installation->stagedBytes(), qint64(1), ChunkSize);
        if (!m_installation->stageNext(wanted, errorText))
            return false;
    }
    const qint64 bytes =
        total == 0 ? WholeShare : m_installation->stagedBytes() * WholeShare / total;
    m_share = std::min({ time, bytes, AlmostWhole });
    return true;
}

bool Installer::placeSome(QString &errorText)
{
    QElapsedTimer slice;
    slice.start();
    while (!m_installation->isPlaced() && slice.elapsed() < SliceMs) {
        if (!m_installation->placeNext(errorText))
            return false;
    }
    return true;
}

qint64 Installer::timeShare() const
{
    if (m_durationMs == 0)
        return WholeShare;
    return std::min(WholeShare, m_clock.elapsed() * WholeShare / m_durationMs);
}

void Installer::fail(const QString &errorText)
{
    QString recordError;
    if (!m_installation->takeBack(recordError)) {
        qWarning("%s", qUtf8Printable(recordError));
        m_failedUnrecorded = true;
    }
    end();
    Q_EMIT finished(Failed, errorText);
}

} // namespace Velmar::Simulator
