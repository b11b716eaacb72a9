#ifndef VELMARSSPROXY_LINKMESSAGES_H
#define VELMARSSPROXY_LINKMESSAGES_H

#include "velmarssproxy_export.h"

#include <QCborMap>
#include <QString>

namespace Velmar::SSProxy {

/*! What a device says to a request, beside 0 for "accepted". */
enum class LinkAck : quint16 {
    Accepted = 0,
    Refused = 1, //!< the error text says why
    UnknownOperation = 2,
    WrongArguments = 3, //!< missing or of the wrong type
    NotNow = 4, //!< not possible in the device's present state
    WrongContents = 5, //!< the contents of a file are wrong
};

/*! A request as it stands in a message from host to device. */
struct VELMARSSPROXY_EXPORT RequestMessage {
    quint32 label = 0;
    QString operation;
    QCborMap arguments;

    QCborMap toCbor() const;

    /*! False, with \a errorText set, if \a message has not the shape of a request. */
    bool fromCbor(const QCborMap &message, QString &errorText);
};

/*! An answer as it stands in a message from device to host. */
struct VELMARSSPROXY_EXPORT AnswerMessage {
    quint32 label = 0; //!< that of the request
    quint16 ack = 0; //!< a number of LinkAck, or the word of a register bank
    QCborMap values;
    QString errorText; //!< why the request was refused; only written if ack is not 0

    QCborMap toCbor() const;

    /*! False, with \a errorReason set, if \a message has not the shape of an answer. */
    bool fromCbor(const QCborMap &message, QString &errorReason);
};

} // namespace Velmar::SSProxy

#endif // VELMARSSPROXY_LINKMESSAGES_H
