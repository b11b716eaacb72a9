#ifndef VELMARHOST_DEVICEADDRESS_H
#define VELMARHOST_DEVICEADDRESS_H

#include <QString>

#include <optional>

namespace Velmar::Host {

/*! Where a device, or its answer to a probe, is to be found. */
struct DeviceAddress {
    QString host; //!< name or numeric address, an IPv6 one without brackets
    quint16 port = 0;

    /*!
        Reads HOST, HOST:PORT, [IPV6] or [IPV6]:PORT; a bare IPv6 address is one without a port.

        \a defaultPort is taken where none is given. Nothing, with \a errorText saying what is
        wrong, if the host is missing or the port is no number from 1 to 65535. Names are not looked
        up.
    */
    static std::optional<DeviceAddress> parse(const QString &text, quint16 defaultPort,
                                              QString &errorText);

    /*! In the form that parse() reads, always with its port. */
    QString toString() const;
};

} // namespace Velmar::Host

#endif // VELMARHOST_DEVICEADDRESS_H
