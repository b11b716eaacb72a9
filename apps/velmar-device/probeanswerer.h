#ifndef VELMARDEVICE_PROBEANSWERER_H
#define VELMARDEVICE_PROBEANSWERER_H

#include <QCborMap>
#include <QHostAddress>
#include <QObject>
#include <QUdpSocket>

namespace Velmar::Simulator {

class Trace;

/*! Answers hosts that look for devices. */
class ProbeAnswerer : public QObject
{
    Q_OBJECT

public:
    /*! \a trace has to outlive this object. */
    explicit ProbeAnswerer(Trace &trace);

    /*!
        Answers probes to \a address and to the loopback broadcast address with \a description, on
        \a port, 0 for any. False, with \a errorText set, if the port cannot be had.
    */
    bool start(const QHostAddress &address, quint16 port, const QCborMap &description,
               QString &errorText);

    /*! The port that is answered on. */
    quint16 port() const { return m_own.localPort(); }

    void stop();

private:
    void answerAll(QUdpSocket &socket);

    Trace &m_trace;
    QCborMap m_description;
    QUdpSocket m_own; // all answers come from here, so from the device's address
    QUdpSocket m_broadcast;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_PROBEANSWERER_H
