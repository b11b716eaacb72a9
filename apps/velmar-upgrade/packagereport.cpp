#include "packagereport.h"

#include "show/printable.h"

#include <QJsonArray>

#include <utility>

using namespace Velmar;
using namespace Velmar::Host;

namespace {

// Step types of units, as their descriptions have them.
constexpr int MainStep = 0;
constexpr int CardStep = 1;

/*! One file of one section for one board or for any. */
QString fileKey(const QString &sectionName, const QString &filePath, int boardId)
{
    return QStringLiteral("%1\n%2\n%3").arg(QString::number(boardId), sectionName, filePath);
}

QString kindOf(const ListedUnit &unit)
{
    switch (unit.stepType) {
    case MainStep:
        return QStringLiteral("main control");
    case CardStep:
        return QStringLiteral("card");
    default:
        return QStringLiteral("step type %1, which nothing takes,").arg(unit.stepType);
    }
}

} // namespace

PackageReport::PackageReport(QString packagePath, PackageListing listing, ModelNames names)
    : m_packagePath(std::move(packagePath))
    , m_listing(std::move(listing))
    , m_names(std::move(names))
{
}

void PackageReport::setFitting(const Target &target, const std::vector<PartOffer> &parts)
{
    m_target = target;
    m_parts = parts;
    for (const auto &part : parts) {
        for (const auto &section : part.sections) {
            for (const auto &item : section.items) {
                auto &takers = m_takers[fileKey(item.sectionName, item.filePath, item.extendNum)];
                if (!takers.parts.contains(partName(part)))
                    takers.parts.append(partName(part));
                if (!item.targetPath.isEmpty() && !takers.targetPaths.contains(item.targetPath))
                    takers.targetPaths.append(item.targetPath);
            }
        }
    }
}

bool PackageReport::isMatched(const ListedUnit &unit) const
{
    return m_target && (m_target->hasCards || unit.stepType != CardStep);
}

PackageReport::Takers PackageReport::takers(const ListedFile &file) const
{
    return m_takers.value(fileKey(file.sectionName, file.filePath, file.boardId));
}

QString PackageReport::fileLine(const ListedUnit &unit, const ListedFile &file) const
{
    const auto size = file.size < 0 ? QStringLiteral("missing") : QString::number(file.size);
    QString line = QStringLiteral("  %1 %2 %3")
                       .arg(printable(file.sectionName).leftJustified(12),
                            printable(file.fileName).leftJustified(24), size.rightJustified(14));
    if (file.boardId != 0)
        line += QStringLiteral("  board %1").arg(file.boardId);
    if (!isMatched(unit))
        return line;
    const auto fitting = takers(file);
    if (fitting.parts.isEmpty())
        return line + QStringLiteral("  does not fit");
    line += QStringLiteral("  fits ") + fitting.parts.join(QLatin1String(", "));
    if (!fitting.targetPaths.isEmpty())
        line += QStringLiteral(" -> ") + printable(fitting.targetPaths.join(QLatin1String(", ")));
    return line;
}

QString PackageReport::text() const
{
    QString text = QStringLiteral("Package %1\n").arg(printable(m_packagePath));
    for (const auto &unit : m_listing.units()) {
        text += QStringLiteral("\nUnit %1: ").arg(printable(unit.folder));
        if (!unit.problem.isEmpty()) {
            text += QStringLiteral("cannot be read: %1\n").arg(printable(unit.problem));
            continue;
        }
        text +=
            QStringLiteral("%1 %2").arg(kindOf(unit), printable(m_names.describe(unit.modelId)));
        if (!unit.version.isEmpty())
            text += QStringLiteral(", version ") + printable(unit.version);
        if (m_target && !isMatched(unit))
            text += QStringLiteral("; whether it fits is known with a device alone");
        text += QLatin1Char('\n');
        for (const auto &file : unit.files)
            text += fileLine(unit, file) + QLatin1Char('\n');
    }
    if (m_target) {
        text += QStringLiteral("\nWhat fits %1:\n").arg(printable(m_target->text));
        for (const auto &part : m_parts)
            text += QStringLiteral("  %1\n").arg(summary({ part }));
        if (m_parts.empty())
            text += QStringLiteral("  nothing\n");
    }
    return text;
}

QJsonObject PackageReport::unitObject(const ListedUnit &unit) const
{
    QJsonObject object { { QStringLiteral("folder"), unit.folder } };
    if (!unit.problem.isEmpty()) {
        object.insert(QStringLiteral("problem"), unit.problem);
        return object;
    }
    QJsonArray files;
    for (const auto &file : unit.files) {
        QJsonObject entry {
            { QStringLiteral("section"), file.sectionName },
            { QStringLiteral("file"), file.fileName },
            { QStringLiteral("boardId"), file.boardId },
            { QStringLiteral("bytes"),
              file.size < 0 ? QJsonValue() : QJsonValue(double(file.size)) },
        };
        if (isMatched(unit)) {
            const auto fitting = takers(file);
            entry.insert(QStringLiteral("fits"), QJsonArray::fromStringList(fitting.parts));
            entry.insert(QStringLiteral("targetPaths"),
                         QJsonArray::fromStringList(fitting.targetPaths));
        }
        files.append(entry);
    }
    object.insert(QStringLiteral("modelId"), unit.modelId);
    object.insert(QStringLiteral("model"), m_names.describe(unit.modelId));
    object.insert(QStringLiteral("stepType"), unit.stepType);
    object.insert(QStringLiteral("version"), unit.version);
    object.insert(QStringLiteral("files"), files);
    return object;
}

QJsonObject PackageReport::json() const
{
    QJsonArray units;
    for (const auto &unit : m_listing.units())
        units.append(unitObject(unit));
    QJsonObject object {
        { QStringLiteral("package"), m_packagePath },
        { QStringLiteral("units"), units },
    };
    if (m_target) {
        QJsonArray parts;
        for (const auto &part : m_parts) {
            QJsonArray sections;
            for (const auto &section : part.sections)
                sections.append(QJsonObject { { QStringLiteral("name"), section.name },
                                              { QStringLiteral("code"), section.code } });
            parts.append(QJsonObject {
                { QStringLiteral("part"), partName(part) },
                { QStringLiteral("slotId"), part.slotId },
                { QStringLiteral("boardId"), part.boardId },
                { QStringLiteral("modelId"), part.modelId },
                { QStringLiteral("sections"), sections },
            });
        }
        object.insert(QStringLiteral("target"), m_target->description);
        object.insert(QStringLiteral("parts"), parts);
    }
    return object;
}
