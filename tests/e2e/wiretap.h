#ifndef TESTS_E2E_WIRETAP_H
#define TESTS_E2E_WIRETAP_H

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QTcpServer>
#include <QVector>

class QTcpSocket;

/*! A request or an answer on a device link, and where it lies in its direction of the connection. */
struct TappedMessage {
    int connection = 0; //!< from 1, in the order in which hosts connected
    bool isAnswer = false;
    QString operation; //!< of the answer's request for an answer
    qint64 begin = 0; //!< its first byte
    qint64 end = 0; //!< the byte behind its last
};

/*! Passes the connections of hosts on to a device, and notes what it sees. Needs an event loop. */
class WireTap : public QTcpServer
{
public:
    /*! In front of \a device, ADDR:PORT; listens at 127.0.0.1. */
    explicit WireTap(const QString &device);

    QString address() const; //!< ADDR:PORT for hosts

    const QVector<TappedMessage> &messages() const { return m_messages; }

private:
    struct Direction {
        int connection = 0;
        bool isAnswer = false;
        qint64 passed = 0; // bytes in whole messages
        QByteArray rest;
    };

    void takeConnection();
    void pass(QTcpSocket *from, QTcpSocket *to, Direction &direction,
              QHash<quint32, QString> &operations);

    const QString m_deviceHost;
    const quint16 m_devicePort;
    int m_connections = 0;
    QVector<TappedMessage> m_messages;
};

#endif // TESTS_E2E_WIRETAP_H
