#include "winhost/tests/PosixPeer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace {

int Checked(int result, const char* call) {
    if (result < 0) throw std::runtime_error(std::string(call) + ": " + std::strerror(errno));
    return result;
}

sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}  // namespace

PosixPeer PosixPeer::ConnectTo(uint16_t port) {
    PosixPeer peer(Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_in address = Loopback(port);
    Checked(connect(peer.m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
            "connect");
    return peer;
}

PosixPeer PosixPeer::ConnectToUnix(const std::string& path) {
    PosixPeer peer(Checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    Checked(connect(peer.m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
            "connect");
    return peer;
}

PosixPeer PosixPeer::ListenOn(uint16_t port) {
    PosixPeer peer(Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_in address = Loopback(port);
    Checked(bind(peer.m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), "bind");
    Checked(listen(peer.m_descriptor, 8), "listen");
    return peer;
}

uint16_t PosixPeer::Port() const {
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    Checked(getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&address), &length), "getsockname");
    return ntohs(address.sin_port);
}

PosixPeer PosixPeer::Accept() {
    return PosixPeer(Checked(accept4(m_descriptor, nullptr, nullptr, SOCK_CLOEXEC), "accept"));
}

void PosixPeer::Send(const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        done += static_cast<size_t>(Checked(
            static_cast<int>(send(m_descriptor, text.data() + done, text.size() - done, MSG_NOSIGNAL)),
            "send"));
    }
}

std::string PosixPeer::Receive(size_t size) {
    std::string text(size, '\0');
    size_t done = 0;
    while (done < size) {
        const ssize_t received = recv(m_descriptor, text.data() + done, size - done, 0);
        if (received <= 0) break;
        done += static_cast<size_t>(received);
    }
    text.resize(done);
    return text;
}

std::string PosixPeer::ReceiveLine() {
    std::string line;
    for (char c; recv(m_descriptor, &c, 1, 0) == 1 && c != '\n';)
        line += c;
    return line;
}

bool PosixPeer::AwaitEnd() {
    char byte;
    return recv(m_descriptor, &byte, 1, 0) <= 0;
}

void PosixPeer::EndSending() {
    Checked(shutdown(m_descriptor, SHUT_WR), "shutdown");
}

void PosixPeer::Close() {
    if (m_descriptor >= 0) close(m_descriptor);
    m_descriptor = -1;
}

void PosixPeer::Reset() {
    const linger now{1, 0};
    Checked(setsockopt(m_descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof(now)), "setsockopt");
    Close();
}

void AwaitBlocked(pid_t thread) {
    const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
    for (int asleep = 0; asleep < 3;) {
        std::string line;
        std::getline(std::ifstream(path), line);
        // The state stands behind the name in parentheses.
        const size_t name = line.rfind(')');
        const bool sleeps = name != std::string::npos && line.size() > name + 2 && line[name + 2] == 'S';
        // More than once, as a thread may also sleep for a moment on its way there.
        asleep = sleeps ? asleep + 1 : 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}
