#include "serversockets.h"

#include <filesystem>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace Velmar::Simulator {

namespace {

bool isPeer(int descriptor, const std::string &address, int port)
{
    sockaddr_in peer {};
    socklen_t length = sizeof(peer);
    if (::getpeername(descriptor, reinterpret_cast<sockaddr *>(&peer), &length) != 0
        || peer.sin_family != AF_INET || ntohs(peer.sin_port) != port)
        return false;
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &peer.sin_addr, text, sizeof(text));
    return address == text;
}

/*! The descriptor of this process for the connection to that peer, −1 if there is none. */
int findDescriptor(const std::string &address, int port)
{
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        const int descriptor = std::stoi(entry.path().filename().string());
        if (isPeer(descriptor, address, port))
            return descriptor;
    }
    return -1;
}

} // namespace

ServerSockets::Guard::Guard(ServerSockets &sockets, const std::string &address, int port)
    : m_sockets(sockets)
    , m_descriptor(findDescriptor(address, port))
{
    const std::lock_guard<std::mutex> lock(m_sockets.m_mutex);
    if (m_sockets.m_isOver)
        ::shutdown(m_descriptor, SHUT_RDWR);
    m_sockets.m_descriptors.insert(m_descriptor);
}

ServerSockets::Guard::~Guard()
{
    const std::lock_guard<std::mutex> lock(m_sockets.m_mutex);
    m_sockets.m_descriptors.erase(m_sockets.m_descriptors.find(m_descriptor));
}

bool ServerSockets::Guard::isOpen() const
{
    // Not by reading: what has arrived before the end may wait to be read, or never be.
    pollfd entry { m_descriptor, POLLRDHUP, 0 };
    return m_descriptor >= 0 && ::poll(&entry, 1, 0) == 0;
}

void ServerSockets::Guard::reset() const
{
    // Dissolving an association resets the connection at once, whatever is still on its way.
    sockaddr none {};
    none.sa_family = AF_UNSPEC;
    // A peer that has gone needs no reset.
    static_cast<void>(::connect(m_descriptor, &none, sizeof(none)));
}

void ServerSockets::endAll()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isOver = true;
    for (const int descriptor : m_descriptors)
        ::shutdown(descriptor, SHUT_RDWR);
}

} // namespace Velmar::Simulator
