#include "run/workroom.h"

#include "package/packagerules.h"
#include "process/freespace.h"
#include "show/quantities.h"

#include <QFileInfo>

#include <algorithm>

namespace Velmar::Host {

namespace {

qint64 neededRoom(const Plan &plan)
{
    const bool isImageBuilt =
        plan.road == Road::Native || (plan.road == Road::Http && plan.upload.filePath.isEmpty());
    qint64 image = 0;
    qint64 plainCopy = 0;
    for (const auto &file : plan.files) {
        image += file.size;
        if (plan.road == Road::Registers || isEncipheredFile(file.file))
            plainCopy = std::max(plainCopy, file.size);
    }
    if (isImageBuilt)
        return image + plainCopy;
    return plan.road == Road::Registers ? plainCopy : 0;
}

} // namespace

QString roomShortage(const Plan &plan, qint64 writtenBytes, qint64 freeBytes)
{
    const qint64 needed = neededRoom(plan);
    if (freeBytes < 0 || writtenBytes + freeBytes >= needed)
        return {};
    return QStringLiteral("There is not enough room to prepare the firmware: %1 are needed, and %2 "
                          "are free")
        .arg(amountText(needed - writtenBytes), amountText(freeBytes));
}

QString roomShortage(const Plan &plan, const QString &packagePath)
{
    const QFileInfo image(packagePath + QLatin1String("/upgrade"));
    return roomShortage(plan, image.exists() ? image.size() : 0, freeSpaceOf(packagePath));
}

} // namespace Velmar::Host
