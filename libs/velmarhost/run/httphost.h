#ifndef VELMARHOST_HTTPHOST_H
#define VELMARHOST_HTTPHOST_H

#include <QString>

#include <optional>

namespace Velmar::Host {

/*!
    \a host in the form that stands in an address of the device's HTTP service.

    The library puts the text between "http://" and ":8080" as it comes, so that a port, a path, user
    information or a blank would make another address of it. Good are: four decimal numbers with
    points, an IPv6 address without brackets (with its zone, if it needs one), and a host name of
    ASCII letters, digits, '-' and '_' in labels of 1 to 63, 253 in all.

    Nothing, with \a errorText saying what is wrong, for all else. Names are not looked up.
*/
std::optional<QString> httpHost(const QString &host, QString &errorText);

} // namespace Velmar::Host

#endif // VELMARHOST_HTTPHOST_H
