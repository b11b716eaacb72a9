#include "device/deviceaddress.h"

#include "show/printable.h"

#include <algorithm>

namespace Velmar::Host {

namespace {

bool isHostCharacter(QChar c)
{
    // Covers names, IPv4, IPv6 and the zone of a link-local address.
    return c.isLetterOrNumber() || QStringLiteral(".-_:%").contains(c);
}

} // namespace

std::optional<DeviceAddress> DeviceAddress::parse(const QString &text, quint16 defaultPort,
                                                  QString &errorText)
{
    DeviceAddress address { text, defaultPort };
    QString port;
    bool hasPort = false;
    if (text.startsWith(QLatin1Char('['))) {
        const int end = text.indexOf(QLatin1Char(']'));
        const QString rest = text.mid(end + 1);
        if (end < 0 || (!rest.isEmpty() && !rest.startsWith(QLatin1Char(':')))) {
            errorText = QStringLiteral("\"%1\" is no address: a bracketed host looks like [::1] or "
                                       "[::1]:9720")
                            .arg(printable(text));
            return std::nullopt;
        }
        address.host = text.mid(1, end - 1);
        hasPort = !rest.isEmpty();
        port = rest.mid(1);
    } else if (text.count(QLatin1Char(':')) == 1) {
        address.host = text.section(QLatin1Char(':'), 0, 0);
        hasPort = true;
        port = text.section(QLatin1Char(':'), 1);
    }
    if (address.host.isEmpty()
        || !std::all_of(address.host.cbegin(), address.host.cend(), isHostCharacter)) {
        errorText =
            QStringLiteral("\"%1\" is no address: give HOST or HOST:PORT").arg(printable(text));
        return std::nullopt;
    }
    if (hasPort) {
        bool isNumber = false;
        address.port = port.toUShort(&isNumber);
        if (!isNumber || address.port == 0) {
            errorText = QStringLiteral("\"%1\" is no port: give a number from 1 to 65535")
                            .arg(printable(port));
            return std::nullopt;
        }
    }
    return address;
}

QString DeviceAddress::toString() const
{
    const auto form =
        host.contains(QLatin1Char(':')) ? QStringLiteral("[%1]:%2") : QStringLiteral("%1:%2");
    return form.arg(host, QString::number(port)); // at once: a zone of IPv6 may be "%2"
}

} // namespace Velmar::Host
