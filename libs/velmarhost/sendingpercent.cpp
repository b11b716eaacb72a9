#include "sendingpercent.h"

#include <QCoreApplication>

namespace Velmar::Host {

std::optional<int> sendingPercent(const QString &statusText)
{
    const auto pattern =
        QCoreApplication::translate("Velmar::Firmware::Internal::UpgradeProcessPrivate",
                                    "Sending upgrade files,current progress is %1%");
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

} // namespace Velmar::Host
