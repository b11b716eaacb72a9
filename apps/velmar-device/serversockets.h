#ifndef VELMARDEVICE_SERVERSOCKETS_H
#define VELMARDEVICE_SERVERSOCKETS_H

#include <mutex>
#include <set>
#include <string>

namespace Velmar::Simulator {

/*!
    The connections of requests that are being served. The HTTP library keeps its sockets to itself,
    but a device that restarts, or is told to reset a connection, does not wait for its peers.

    Any thread.
*/
class ServerSockets
{
public:
    /*! A connection, from a request's arrival until its answer is ready. */
    class Guard
    {
    public:
        /*! \a address and \a port are the peer's, which tell one connection from all others. */
        Guard(ServerSockets &sockets, const std::string &address, int port);
        ~Guard();

        /*! False once the peer has closed or reset it. */
        bool isOpen() const;

        /*! Ends the connection with a reset. */
        void reset() const;

    private:
        Guard(const Guard &) = delete;
        Guard &operator=(const Guard &) = delete;

        ServerSockets &m_sockets;
        const int m_descriptor; // −1 if the peer has gone
    };

    /*! Wakes whoever reads or writes on any of them, now and from now on. */
    void endAll();

private:
    std::mutex m_mutex; // guards all below
    std::multiset<int> m_descriptors;
    bool m_isOver = false;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_SERVERSOCKETS_H
