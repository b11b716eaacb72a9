#include "run/sendingpercent.h"

#include <QCoreApplication>

namespace Velmar::Host {

namespace {

std::optional<int> percentIn(const QString &statusText, const QString &pattern)
{
    const int place = pattern.indexOf(QLatin1String("%1"));
    const auto before = pattern.left(place);
    const auto after = pattern.mid(place + 2);
    const int length = statusText.size() - before.size() - after.size();
    if (place < 0 || length <= 0 || !statusText.startsWith(before) || !statusText.endsWith(after))
        return std::nullopt;
    bool isNumber = false;
    const int percent = statusText.midRef(place, length).toInt(&isNumber);
    return isNumber ? std::make_optional(percent) : std::nullopt;
}

} // namespace

std::optional<int> sendingPercent(const QString &statusText)
{
    return percentIn(
        statusText,
        QCoreApplication::translate("Velmar::Firmware::Internal::UpgradeProcessPrivate",
                                    "Sending upgrade files,current progress is %1%"));
}

std::optional<int> uploadPercent(const QString &statusText)
{
    return percentIn(
        statusText,
        QCoreApplication::translate("Velmar::Firmware::Internal::UpgradeFileOfHTTPPrivate",
                                    "Upload file progress: %1%"));
}

} // namespace Velmar::Host
