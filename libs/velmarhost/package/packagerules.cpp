#include "package/packagerules.h"

#include <algorithm>

namespace Velmar::Host {

const QString McuSection = QStringLiteral("MCU");
const QString DataCommand = QStringLiteral("SendFileData");
const QString CardCommand = QStringLiteral("SendCardIndex");
const QString DeviceCommand = QStringLiteral("SendDeviceID");

namespace {

const QLatin1String FontEnding("font12.dat");

} // namespace

const QStringList &commandNames()
{
    static const QStringList names {
        CardCommand,
        DeviceCommand,
        QStringLiteral("SendSenderFileType"),
        QStringLiteral("SendFileLength"),
        QStringLiteral("SendFileCount"),
        DataCommand,
        QStringLiteral("SendSubCarIndex"),
    };
    return names;
}

bool isGoldenFile(const QString &fileName)
{
    return fileName.endsWith(QLatin1String("Golden.dat"));
}

bool isEncipheredFile(const QString &fileName)
{
    return fileName.endsWith(QLatin1String(".dat")) && !fileName.endsWith(FontEnding);
}

bool isMcuDataFile(const QString &path)
{
    return path.endsWith(QLatin1String(".json")) || path.endsWith(FontEnding);
}

bool isTarget(const QString &target)
{
    return !target.trimmed().isEmpty() && target.size() <= LongestTarget
        && std::all_of(target.begin(), target.end(), [](QChar character) {
               return character.unicode() >= 0x20 && character.unicode() <= 0x7E;
           });
}

} // namespace Velmar::Host
