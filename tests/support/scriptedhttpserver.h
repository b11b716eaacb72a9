#ifndef TESTS_SUPPORT_SCRIPTEDHTTPSERVER_H
#define TESTS_SUPPORT_SCRIPTEDHTTPSERVER_H

#include <QHash>
#include <QObject>
#include <QQueue>
#include <QTcpServer>
#include <QVector>

class QTcpSocket;

/*!
    An HTTP service that records requests byte by byte and does with each what the test prepared.

    A request gets the first queued reaction for its path, else the standing one, else 404. For the
    thread that made it, which runs an event loop.
*/
class ScriptedHttpServer : public QObject
{
    Q_OBJECT

public:
    struct Request {
        QByteArray head; //!< request line and header lines, each with its line end
        QByteArray body;
    };

    struct Reaction {
        enum class Kind {
            Answer, //!< sends the bytes, and waits for further requests
            AnswerAndClose, //!< sends the bytes, and closes
            Reset, //!< ends the connection with a reset, without an answer
            Silence, //!< neither answers nor closes
            Endless, //!< sends the bytes, and then more for as long as the connection lasts
        };
        Kind kind = Kind::Answer;
        QByteArray bytes;
        QByteArray more {}; //!< for Kind::Endless, over and over
        int paceMs = 0; //!< between two of them; 0: as fast as they are taken
    };

    /*! An answer with its length told. */
    static Reaction answer(const QByteArray &body, const QByteArray &status = "200 OK",
                           const QByteArray &headers = QByteArray());

    /*! An answer of which half of the \a body arrives before the connection closes. */
    static Reaction truncatedAnswer(const QByteArray &body);
    static Reaction reset();
    static Reaction closeWithoutAnswer();
    static Reaction silence();
    static Reaction endless(const QByteArray &bytes, const QByteArray &more, int paceMs = 0);

    ~ScriptedHttpServer() override;

    /*! Listens on \a address; the port of the service is fixed. False if somebody has it. */
    bool listen(const QString &address);

    /*! Listens no more and ends all connections. */
    void close();

    void queue(const QByteArray &path, const Reaction &reaction);
    void always(const QByteArray &path, const Reaction &reaction);

    /*! Stops to read: a body of some megabytes stays on its way. */
    void setReading(bool isReading);

    /*! Answers the oldest request that met Kind::Silence and is still open; false without one. */
    bool answerSilent(const Reaction &reaction);

    const QVector<Request> &requests() const { return m_requests; } //!< whole ones, in order
    int count(const QByteArray &path) const; //!< of requests()
    int connections() const { return m_connectionCount; } //!< so far
    int openConnections() const { return m_buffers.size(); }

private:
    void accept();
    void read(QTcpSocket *socket);
    void react(QTcpSocket *socket, const Reaction &reaction);
    static void sendOn(QTcpSocket *socket, const QByteArray &more, int paceMs);
    Reaction reactionFor(const QByteArray &path);

    QTcpServer m_server;
    QHash<QTcpSocket *, QByteArray> m_buffers; // of the open connections
    QQueue<QTcpSocket *> m_silent;
    QHash<QByteArray, QQueue<Reaction>> m_queued;
    QHash<QByteArray, Reaction> m_standing;
    QVector<Request> m_requests;
    bool m_isReading = true;
    int m_connectionCount = 0;
};

Q_DECLARE_METATYPE(ScriptedHttpServer::Reaction)

#endif // TESTS_SUPPORT_SCRIPTEDHTTPSERVER_H
