#include "run/httphost.h"

#include "show/printable.h"

#include <QHostAddress>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>

namespace Velmar::Host {

namespace {

constexpr int MaxNameLength = 253; // of what fits into a question for a name

bool matches(const char *pattern, const QString &text)
{
    return QRegularExpression(QRegularExpression::anchoredPattern(QLatin1String(pattern)))
        .match(text)
        .hasMatch();
}

/*! Four decimal numbers; the shorter and octal forms of the C library mean other addresses to
    other people. */
bool isIpv4(const QString &host)
{
    return matches("(?:(?:25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9]?[0-9])(?:\\.(?!$)|$)){4}", host);
}

/*! The host of an address with an IPv6 one; empty if \a host is none. */
QString urlOfIpv6(const QString &host)
{
    const QString address = host.section(QLatin1Char('%'), 0, 0);
    const QString zone = host.section(QLatin1Char('%'), 1);
    QHostAddress parsed;
    if (!matches("[0-9A-Fa-f:.]+", address) || !parsed.setAddress(address)
        || parsed.protocol() != QAbstractSocket::IPv6Protocol)
        return {};
    if (address.size() == host.size())
        return QStringLiteral("[%1]").arg(address);
    if (!matches("[0-9A-Za-z._-]+", zone))
        return {};
    return QStringLiteral("[%1%25%2]")
        .arg(address, zone); // in an address the '%' is itself escaped
}

bool isName(const QString &host)
{
    const QStringList labels = host.split(QLatin1Char('.'));
    // A last label of digits would be a numeric address, and one that is not whole.
    return host.size() <= MaxNameLength && !matches("[0-9]+", labels.constLast())
        && std::all_of(labels.begin(), labels.end(), [](const QString &label) {
               return matches("[0-9A-Za-z_](?:[0-9A-Za-z_-]{0,61}[0-9A-Za-z_])?", label);
           });
}

} // namespace

std::optional<QString> httpHost(const QString &host, QString &errorText)
{
    if (host.contains(QLatin1Char(':'))) {
        const QString url = urlOfIpv6(host);
        if (!url.isEmpty())
            return url;
    } else if (isIpv4(host) || isName(host)) {
        return host;
    }
    errorText =
        QStringLiteral("\"%1\" is no address of an HTTP service: give a numeric address or a "
                       "host name, without port or path")
            .arg(printable(host));
    return std::nullopt;
}

} // namespace Velmar::Host
