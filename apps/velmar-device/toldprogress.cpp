#include "toldprogress.h"

#include "faults.h"
#include "installer.h"

namespace Velmar::Simulator {

namespace {

constexpr int Done = 2;
constexpr quint8 Whole = 100;

} // namespace

ToldProgress::ToldProgress(const Installer &installer, const Faults &faults)
    : m_installer(installer)
    , m_faults(faults)
{
}

ProtoModel::Auxiliary::s_UpgradePercent ToldProgress::next()
{
    auto progress = m_installer.progress();
    if (!m_faults.isSet(Fault::OldResult) || !isOldOneTold())
        return progress;
    const int result = int(m_faults.value(Fault::OldResult, Done));
    progress.result = result;
    if (result == Done)
        progress.rate = progress.subSections.rate = Whole;
    for (auto &part : progress.parts) {
        part.result = quint8(result);
        part.rate = progress.rate;
        for (auto &section : part.section) {
            section.result = result;
            section.rate = progress.rate;
        }
    }
    return progress;
}

bool ToldProgress::hasRun() const
{
    return !m_faults.isSet(Fault::OldResult);
}

bool ToldProgress::isOldOneTold()
{
    if (!m_installer.isRunning())
        return false;
    if (m_run != m_installer.run()) {
        m_run = m_installer.run();
        m_polls = 0;
    }
    ++m_polls;
    const qint64 limit = m_faults.secondValue(Fault::OldResult);
    return limit == 0 || m_polls <= limit;
}

} // namespace Velmar::Simulator
