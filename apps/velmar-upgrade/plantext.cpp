#include "plantext.h"

#include "show/printable.h"

#include <algorithm>

using namespace Velmar::Host;

namespace {

QString partName(bool isMainControl, int slotId)
{
    return isMainControl ? QStringLiteral("main control") : QStringLiteral("card %1").arg(slotId);
}

QString sectionText(const PlannedSection &section)
{
    const auto unknown = QStringLiteral("?");
    return QStringLiteral("%1 (%2 -> %3)")
        .arg(printable(section.name),
             section.versionBefore.isEmpty() ? unknown : printable(section.versionBefore),
             section.versionExpected.isEmpty() ? unknown : printable(section.versionExpected));
}

QString fileText(const PlannedFile &file)
{
    auto text =
        QStringLiteral("  %1  %2 bytes").arg(printable(file.file), QString::number(file.size));
    if (!file.target.isEmpty())
        text += QStringLiteral("  -> %1").arg(printable(file.target));
    if (!file.section.isEmpty())
        text += QStringLiteral("  (%1, %2)")
                    .arg(printable(file.section), partName(file.isMainControl, file.slotId));
    return text;
}

} // namespace

QStringList planSummary(const Plan &plan)
{
    QStringList lines { QStringLiteral("%1 \"%2\", serial %3, at %4 gets:")
                            .arg(printable(plan.device.modelName), printable(plan.device.name),
                                 printable(plan.device.serial), plan.device.address.toString()) };
    QString part;
    QStringList sections;
    const auto endPart = [&] {
        if (!sections.isEmpty())
            lines.append(QStringLiteral("  %1: %2").arg(part, sections.join(QStringLiteral(", "))));
        sections.clear();
    };
    for (const auto &section : plan.sections) { // those of a part stand together
        const auto name = partName(section.isMainControl, section.slotId);
        if (name != part)
            endPart();
        part = name;
        sections.append(sectionText(section));
    }
    endPart();
    if (!plan.leftOut.empty())
        lines.append(QStringLiteral("Left out: %1 of what the package lists; \"velmar-upgrade "
                                    "plan\" tells why")
                         .arg(plan.leftOut.size()));
    return lines;
}

QStringList planText(const Plan &plan)
{
    auto lines = planSummary(plan);
    if (!plan.leftOut.empty())
        lines.removeLast(); // the reasons follow
    lines.append(QStringLiteral("What is sent, in this order:"));
    for (const auto &file : plan.files)
        lines.append(fileText(file));
    if (!plan.leftOut.empty())
        lines.append(QStringLiteral("What is left out:"));
    for (const auto &item : plan.leftOut)
        lines.append(
            QStringLiteral("  %1: %2").arg(leftOutWord(item.reason), printable(item.text)));
    return lines;
}
