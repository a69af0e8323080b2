#include "tests/faults/Wire.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace {
// A listener that is there takes a loopback connection at once, unless its backlog is full.
constexpr int kConnectPatience = 20;  // milliseconds
}  // namespace

Wire::~Wire() {
    Close();
}

bool Wire::Connect(uint16_t port) {
    if (m_socket >= 0) return true;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    m_socket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    pollfd entry{m_socket, POLLOUT, 0};
    int error = 0;
    socklen_t size = sizeof error;
    if (poll(&entry, 1, kConnectPatience) == 1 &&
        getsockopt(m_socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0)
        return true;
    close(std::exchange(m_socket, -1));
    return false;
}

void Wire::Send(std::string_view bytes) {
    if (send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) m_closed = true;
}

const std::string& Wire::Received() {
    char bytes[4096];
    ssize_t count = 0;
    while (m_socket >= 0 && (count = recv(m_socket, bytes, sizeof bytes, MSG_DONTWAIT)) > 0)
        m_received.append(bytes, static_cast<size_t>(count));
    pollfd entry{m_socket, POLLIN, 0};
    if (count == 0 || (poll(&entry, 1, 0) == 1 && entry.revents & (POLLHUP | POLLERR))) m_closed = true;
    return m_received;
}

bool Wire::IsClosed() {
    Received();
    return m_closed;
}

void Wire::Close() {
    if (m_socket >= 0) close(std::exchange(m_socket, -1));
}
