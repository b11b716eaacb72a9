#include "package/sendingfault.h"

#include "package/destinations.h"
#include "package/packagerules.h"
#include "package/plan.h"

#include <tzcryptrc2/convertfile.h>
#include <upgradeimage/imagereader.h>

#include <QPair>
#include <QSet>

#include <algorithm>
#include <limits>

namespace Velmar::Host {

namespace {

constexpr qint64 LargestImage = std::numeric_limits<int>::max(); // what an announcement can tell
constexpr std::size_t MostFiles = std::numeric_limits<quint16>::max();
constexpr int LowestRegisterVersion = 3; // first number of a unit's version

qint64 imageOverhead(const Plan &plan)
{
    return UpgradeImage::HeaderSize + UpgradeImage::SumSize
        + UpgradeImage::RecordSize * static_cast<qint64>(plan.files.size());
}

// A device keeps the last of several files for one place, for whichever card that is.
QString placeFault(const Plan &plan)
{
    Destinations places;
    QSet<QPair<QString, QString>> placed; // of a data file the library does not look for others
    for (const auto &file : plan.files) {
        if (file.target.isEmpty())
            return QStringLiteral("%1 has no place on the device").arg(file.file);
        if (!isTarget(file.target))
            return QStringLiteral("%1 has a place on the device of other than 1 to %2 ASCII "
                                  "characters")
                .arg(file.file, QString::number(LongestTarget));
        if (placed.contains({ file.file, file.target }))
            continue;
        placed.insert({ file.file, file.target });
        const QString clash = places.add(file.target, QStringLiteral("that of %1").arg(file.file));
        if (!clash.isEmpty())
            return QStringLiteral("The place of %1 on the device, \"%2\", %3")
                .arg(file.file, file.target, clash);
    }
    return {};
}

QString imageFault(const Plan &plan)
{
    const QString place = placeFault(plan);
    if (!place.isEmpty())
        return place;
    // Deciphered files are a little shorter, which is no use so near to the limits.
    return plan.files.size() > MostFiles || plan.totalSize() > LargestImage - imageOverhead(plan)
        ? QStringLiteral("The files are too many or too large for one image")
        : QString();
}

QString registerFault(const Plan &plan, const QString &unitVersion)
{
    for (const auto &file : plan.files) {
        if (isEncipheredFile(file.file))
            continue; // the check of the package has tried
        const auto outcome =
            TZ::checkEncipheredFile(plan.packagePath + QLatin1Char('/') + file.file);
        if (outcome.result != TZ::ConvertOutcome::Result::Done)
            return QStringLiteral("%1 cannot be deciphered: %2").arg(file.file, outcome.cause);
    }
    if (unitVersion.section(QLatin1Char('.'), 0, 0).toInt() < LowestRegisterVersion)
        return QStringLiteral("The unit's version is \"%1\", and only versions from %2 can be "
                              "written by registers")
            .arg(unitVersion, QString::number(LowestRegisterVersion));
    return {};
}

} // namespace

QString sendingFault(const Plan &plan, const QString &unitVersion)
{
    const auto empty = std::find_if(plan.files.cbegin(), plan.files.cend(),
                                    [](const PlannedFile &file) { return file.size == 0; });
    if (empty != plan.files.cend())
        return QStringLiteral("%1 is missing, empty or no file").arg(empty->file);
    if (plan.road == Road::Registers)
        return registerFault(plan, unitVersion);
    return plan.upload.filePath.isEmpty() ? imageFault(plan) : QString();
}

} // namespace Velmar::Host
