#ifndef VELMARBIZMODEL_DEVICELINK_H
#define VELMARBIZMODEL_DEVICELINK_H

#include "velmarbizmodel_export.h"

#include <QCborMap>
#include <QString>

namespace Velmar::BizModel {

/*! One question or order to a device. */
struct LinkRequest {
    QString operation; //!< what is asked, for instance "version.read"
    QCborMap arguments;
    int timeout = 0; //!< milliseconds to wait for the answer; 0: the link's own default
};

/*! What became of a LinkRequest. */
struct LinkAnswer {
    enum class Outcome {
        Answered, //!< the device answered; ack and values are its words
        NotDelivered, //!< proven: the device never got the whole request, so it may be repeated
        TimedOut, //!< sent, but no answer came in time; the device may have acted on it
        Lost, //!< sent, then the connection broke; the device may have acted on it
        Unsendable, //!< never sent, and it never can be: it is longer than the link can carry
    };

    Outcome outcome = Outcome::NotDelivered;
    quint16 ack = 0; //!< 0: accepted; otherwise why the device refused
    QCborMap values;
    quint32 label = 0; //!< the number that the link gave the request
    QString errorText; //!< for people: the device's refusal or the link's trouble

    bool isAccepted() const { return outcome == Outcome::Answered && ack == 0; }
};

/*!
    The one way from a device object to its hardware: a request goes in, an answer comes out.

    All functions may be called from any thread, several at a time, and every wait is finite. A link
    repeats nothing by itself: whoever sends a request knows whether it may be repeated.
*/
class VELMARBIZMODEL_EXPORT DeviceLink
{
public:
    virtual ~DeviceLink();

    /*! Connects, unless connected already. False, with \a errorText set, if that fails in
        \a timeout milliseconds. */
    virtual bool open(int timeout, QString &errorText) = 0;

    /*! Closes the connection; waiting callers get LinkAnswer::Outcome::Lost. */
    virtual void close() = 0;

    virtual bool isOpen() const = 0;

    /*! Sends \a request and blocks until its answer, its time-out or the end of the connection. A
        closed link answers LinkAnswer::Outcome::NotDelivered at once. */
    virtual LinkAnswer send(const LinkRequest &request) = 0;

    /*! Stops the keep-alive for at most \a milliseconds and tells the device so. */
    virtual void pauseHeartbeat(int milliseconds) = 0;

    /*! Starts the keep-alive again. */
    virtual void restartHeartbeat() = 0;

protected:
    DeviceLink() = default;
    Q_DISABLE_COPY_MOVE(DeviceLink)
};

} // namespace Velmar::BizModel

#endif // VELMARBIZMODEL_DEVICELINK_H
