#include "fuzz/support/Loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace fuzz {

bool LoopbackClient::Connect(uint16_t port) {
    m_socket = testbed::Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return true;
    m_socket = {};
    return false;
}

void LoopbackClient::Send(Bytes bytes) {
    if (m_socket) send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void LoopbackClient::Drain() {
    char dropped[16384];
    while (m_socket && recv(m_socket.Get(), dropped, sizeof dropped, MSG_DONTWAIT) > 0) {
    }
}

void LoopbackClient::FinishSending() {
    if (m_socket) shutdown(m_socket.Get(), SHUT_WR);
}

void LoopbackClient::Close(bool reset) {
    const linger atOnce{1, 0};
    if (m_socket && reset) setsockopt(m_socket.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    m_socket = {};
}

uint16_t UnusedPort() {
    const testbed::Descriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t size = sizeof address;
    if (bind(probe.Get(), reinterpret_cast<const sockaddr*>(&address), size) != 0) return 0;
    getsockname(probe.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

size_t CountThreads() {
    struct stat tasks;
    return stat("/proc/self/task", &tasks) == 0 ? tasks.st_nlink - 2 : 0;
}

}  // namespace fuzz
