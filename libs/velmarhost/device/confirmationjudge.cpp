#include "device/confirmationjudge.h"

#include "show/printable.h"

#include <QStringList>

#include <algorithm>
#include <cstddef>

namespace Velmar::Host {

namespace {

// What a device tells of its last installation.
constexpr int Forgotten = 0; // it has restarted since
constexpr int Installing = 1;

constexpr std::size_t MostNamed = 3;

QString secondsText(std::chrono::milliseconds time)
{
    return QStringLiteral("%1 s").arg(
        std::chrono::duration_cast<std::chrono::seconds>(time).count());
}

QString sectionName(const PlannedSection &section)
{
    const auto part = section.isMainControl
        ? QStringLiteral("the main control")
        : QStringLiteral("the card in slot %1").arg(section.slotId);
    return QStringLiteral("\"%1\" of %2").arg(section.name, part);
}

QString deviationText(const VersionComparison::Deviation &deviation)
{
    auto text = sectionName(deviation.section);
    if (deviation.versionNow.isEmpty())
        return text;
    text += QStringLiteral(" has %1").arg(deviation.versionNow);
    if (!deviation.section.versionExpected.isEmpty())
        text += QStringLiteral(" instead of %1").arg(deviation.section.versionExpected);
    return text;
}

/*! The first few of \a deviations, and how many more there are. */
QString listed(const std::vector<VersionComparison::Deviation> &deviations)
{
    QStringList texts;
    for (std::size_t i = 0; i < std::min(deviations.size(), MostNamed); ++i)
        texts.append(deviationText(deviations[i]));
    if (deviations.size() > MostNamed)
        texts.append(QStringLiteral("and %1 more").arg(deviations.size() - MostNamed));
    return texts.join(QStringLiteral(", "));
}

Verdict told(VerdictCode code, const QString &sentence)
{
    return verdict(code, printable(sentence));
}

} // namespace

ConfirmationJudge::ConfirmationJudge(const ConfirmationOrder &order, const ConfirmationTimes &times)
    : m_order(order)
    , m_times(times)
{
}

void ConfirmationJudge::note(const DeviceLook &look, Time now)
{
    const ToldVersions versions(look.versions);
    const bool isAlike = m_look && !look.isInterrupted && look.kind == m_look->kind
        && look.serial == m_look->serial && look.installation == m_look->installation
        && versions == m_versions;
    const bool wasAnswering = m_look && isOwnDevice();
    // A device that installs before it restarts may be there for longer than it may be away.
    if (wasAnswering && !m_leaving && look.kind == DeviceLook::Kind::Away)
        m_leaving = now;
    m_look = look;
    m_versions = versions;
    if (!isAlike) {
        m_since = now;
        m_comparison = compareVersions(m_order.sections, m_versions);
    }
    if (!wasAnswering || look.isInterrupted)
        m_answering = now;
    if (look.isInterrupted || look.kind == DeviceLook::Kind::Away)
        m_wasInterrupted = true;
    // Only an installation over the link is known to have left a result there.
    if (m_order.road != Road::Native || !isOwnDevice())
        return;
    m_remembers = look.installation && *look.installation != Forgotten;
    if (look.installation == Forgotten)
        m_hasForgotten = true;
}

std::optional<Verdict> ConfirmationJudge::verdictAt(Time now) const
{
    auto end = m_leaving.value_or(Time(0)) + m_order.limit;
    if (isOwnDevice())
        end += m_times.grace + m_times.settle;
    const auto ready = readyVerdictAt(now);
    return ready || now < end ? ready : finalVerdictAt(now);
}

bool ConfirmationJudge::hasReturnedAt(Time now) const
{
    return isOwnDevice() && m_look->kind == DeviceLook::Kind::Versions && hasRestartedAt(now);
}

QString ConfirmationJudge::statusAt(Time now) const
{
    if (!m_look)
        return QStringLiteral("Looking for the device");
    switch (m_look->kind) {
    case DeviceLook::Kind::Away:
        return QStringLiteral("Waiting for the device to come back");
    case DeviceLook::Kind::NoDevice:
        return QStringLiteral("Waiting for the device to answer as one");
    case DeviceLook::Kind::NoVersions:
    case DeviceLook::Kind::Versions:
        break;
    }
    if (!isOwnDevice())
        return printable(QStringLiteral("The device %1 answers instead of %2")
                             .arg(m_look->serial, m_order.serial));
    if (isInstalling())
        return QStringLiteral("The device is still installing");
    if (m_look->kind == DeviceLook::Kind::NoVersions)
        return QStringLiteral("Waiting for the device to tell its versions");
    return hasRestartedAt(now) ? QStringLiteral("Comparing the versions of the device")
                               : QStringLiteral("Waiting for the device to restart");
}

bool ConfirmationJudge::isOwnDevice() const
{
    return m_look
        && (m_look->kind == DeviceLook::Kind::NoVersions
            || m_look->kind == DeviceLook::Kind::Versions)
        && (m_order.serial.isEmpty() || m_look->serial == m_order.serial);
}

bool ConfirmationJudge::isInstalling() const
{
    return m_look->installation == Installing;
}

bool ConfirmationJudge::hasRestartedAt(Time now) const
{
    if (m_hasForgotten)
        return true;
    if (m_remembers) // or it keeps its results over a restart, and was seen to restart
        return m_wasInterrupted && now >= m_times.grace;
    if (m_comparison.changed > 0) // they are told behind a restart alone
        return true;
    switch (m_order.restart) {
    case RestartNews::Taken:
        return m_wasInterrupted || now >= m_times.grace;
    case RestartNews::NotTaken:
        return m_wasInterrupted;
    case RestartNews::Unknown:
        break;
    }
    return false;
}

std::optional<Verdict> ConfirmationJudge::readyVerdictAt(Time now) const
{
    if (!m_look || m_look->kind == DeviceLook::Kind::Away
        || m_look->kind == DeviceLook::Kind::NoDevice)
        return std::nullopt;
    const auto alike = now - m_since;
    const bool isGraceOver = now >= m_times.grace;
    bool isReady = false;
    if (!isOwnDevice())
        isReady = alike >= m_times.settle;
    else if (m_look->kind == DeviceLook::Kind::NoVersions)
        isReady = now - m_answering >= m_times.grace;
    else if (isInstalling())
        isReady = false;
    else if (!hasRestartedAt(now))
        isReady = isGraceOver && alike >= m_times.settle;
    else if (m_comparison.isAsPlanned())
        isReady = alike >= m_times.steady;
    else
        isReady = alike >= m_times.settle && (m_hasForgotten || isGraceOver);
    if (!isReady)
        return std::nullopt;
    return finalVerdictAt(now);
}

Verdict ConfirmationJudge::finalVerdictAt(Time now) const
{
    const auto kind = m_look ? m_look->kind : DeviceLook::Kind::Away;
    if (kind == DeviceLook::Kind::Away || kind == DeviceLook::Kind::NoDevice) {
        auto sentence =
            QStringLiteral("The device has not come back in %1").arg(secondsText(m_order.limit));
        if (m_look && !m_look->errorText.isEmpty())
            sentence += QStringLiteral(": ") + m_look->errorText;
        return told(VerdictCode::NotReturned, sentence);
    }
    if (!isOwnDevice())
        return told(VerdictCode::OtherDevice,
                    QStringLiteral("The device %1 answers at the address of %2")
                        .arg(m_look->serial, m_order.serial));
    if (kind == DeviceLook::Kind::NoVersions)
        return told(VerdictCode::VersionsUnreadable, m_look->errorText);
    if (isInstalling())
        return told(
            VerdictCode::NoProgress,
            QStringLiteral("The device is still installing after %1").arg(secondsText(now)));
    if (hasRestartedAt(now) || (m_comparison.isAsPlanned() && m_comparison.changed > 0))
        return verdictOnVersions();
    return told(VerdictCode::NotRestarted,
                m_order.restart == RestartNews::Unknown
                    ? QStringLiteral("It is not known whether the device has restarted; it tells "
                                     "versions from before")
                    : QStringLiteral("The device has not restarted, and tells versions from "
                                     "before"));
}

Verdict ConfirmationJudge::verdictOnVersions() const
{
    const auto &seen = m_comparison;
    if (seen.count == 0)
        return told(VerdictCode::NotComparable,
                    QStringLiteral("The device is back; it is not known which versions it should "
                                   "have"));
    if (seen.isAsPlanned())
        return told(VerdictCode::Confirmed,
                    seen.changed > 0
                        ? QStringLiteral("The device has the new firmware")
                        : QStringLiteral("The device has the firmware that was planned, of the "
                                         "same version as before"));
    if (!seen.other.empty())
        return told(VerdictCode::VersionsDiffer,
                    QStringLiteral("The device has other versions than planned: ")
                        + listed(seen.other));
    if (!seen.unchanged.empty() && seen.changed == 0 && seen.untold.empty())
        return told(VerdictCode::NotInstalled,
                    QStringLiteral("The device has the versions from before: ")
                        + listed(seen.unchanged));
    if (!seen.unchanged.empty())
        return told(VerdictCode::VersionsDiffer,
                    QStringLiteral("The device has versions from before, but not all: ")
                        + listed(seen.unchanged));
    if (!seen.untold.empty())
        return told(VerdictCode::VersionsUnreadable,
                    QStringLiteral("The device does not tell the version of ")
                        + listed(seen.untold));
    return told(VerdictCode::NotComparable,
                QStringLiteral("No version tells the old firmware from the new: ")
                    + listed(seen.unjudged));
}

} // namespace Velmar::Host
