#include "show/verdicttext.h"

#include "show/printable.h"
#include "show/quantities.h"
#include "show/textcolumns.h"

#include <algorithm>

namespace Velmar::Host {

namespace {

constexpr int NameLength = 32; // in characters
constexpr int VersionLength = 40;

QString versionText(const QString &version)
{
    return version.isEmpty() ? QStringLiteral("not known") : printable(version, VersionLength);
}

QString changeText(const SectionVersion &section)
{
    QString text = versionText(section.before);
    if (!section.after.isEmpty() && section.after == section.before)
        text += QStringLiteral(" (unchanged)");
    else
        text += QStringLiteral(" -> ") + versionText(section.after);
    if (!section.expected.isEmpty() && section.expected != section.after)
        text += QStringLiteral(", planned %1").arg(versionText(section.expected));
    return text;
}

QStringList versionLines(const std::vector<SectionVersion> &versions)
{
    int partColumns = 0;
    int sectionColumns = 0;
    for (const auto &section : versions) {
        partColumns = std::max(partColumns, columnsOf(printable(section.part, NameLength)));
        sectionColumns =
            std::max(sectionColumns, columnsOf(printable(section.section, NameLength)));
    }
    QStringList lines;
    for (const auto &section : versions)
        lines.append(
            QStringLiteral("    %1  %2  %3")
                .arg(filledToColumns(printable(section.part, NameLength), partColumns),
                     filledToColumns(printable(section.section, NameLength), sectionColumns),
                     changeText(section)));
    return lines;
}

/*! False if nothing was done to the device, so that there is nothing to say about its versions. */
bool hasBegun(const RunSummary &summary)
{
    const bool isTold =
        std::any_of(summary.versions.begin(), summary.versions.end(),
                    [](const SectionVersion &section) { return !section.after.isEmpty(); });
    return !summary.versions.empty()
        && (isTold || summary.bytesSent > 0
            || verdictKind(summary.verdict.code) == VerdictKind::Unconfirmed);
}

} // namespace

QStringList verdictLines(const RunSummary &summary)
{
    const auto &end = summary.verdict;
    const QString kind = verdictKindWord(verdictKind(end.code));
    const QString word = verdictWord(end.code);
    QStringList lines;
    lines.append(kind == word ? QStringLiteral("  verdict: %1").arg(word)
                              : QStringLiteral("  verdict: %1 (%2)").arg(kind, word));
    for (const auto &cause : summary.causes)
        lines.append(QStringLiteral("  cause: %1").arg(printable(cause.trimmed())));
    if (!end.advice.isEmpty())
        lines.append(QStringLiteral("  advice: %1").arg(printable(end.advice)));
    if (hasBegun(summary)) {
        lines.append(QStringLiteral("  versions:"));
        lines.append(versionLines(summary.versions));
    }
    lines.append(QStringLiteral("  sent: %1, took %2")
                     .arg(amountText(summary.bytesSent), clockText(summary.wholeDuration)));
    return lines;
}

} // namespace Velmar::Host
