#include "winhost/tests/PosixPeer.h"

#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "testbed/Sockets.h"

namespace {

testbed::Descriptor Checked(testbed::Descriptor socket, const char* what) {
    if (!socket) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    return socket;
}

}  // namespace

PosixPeer PosixPeer::ConnectTo(uint16_t port) {
    return PosixPeer(Checked(testbed::ConnectTcp(port), "connect"));
}

PosixPeer PosixPeer::ConnectToUnix(const std::string& path) {
    return PosixPeer(Checked(testbed::ConnectUnix(path), "connect"));
}

void PosixPeer::LeaveUnixSocketBehind(const std::string& path) {
    Checked(testbed::ListenUnix(path, 1), "listen").Close();
}

PosixPeer PosixPeer::ListenOn(uint16_t port) {
    return PosixPeer(Checked(testbed::ListenTcp(port, 8), "listen"));
}

uint16_t PosixPeer::Port() const {
    return testbed::PortOf(m_socket);
}

PosixPeer PosixPeer::Accept() {
    return PosixPeer(
        Checked(testbed::Descriptor(accept4(m_socket.Get(), nullptr, nullptr, SOCK_CLOEXEC)), "accept"));
}

void PosixPeer::Send(const std::string& text) {
    if (!testbed::SendAll(m_socket, text.data(), text.size())) throw std::runtime_error("send");
}

std::string PosixPeer::Receive(size_t size) {
    std::string text(size, '\0');
    text.resize(testbed::ReceiveAll(m_socket, text.data(), size));
    return text;
}

std::string PosixPeer::ReceiveLine() {
    std::string line;
    for (char c; recv(m_socket.Get(), &c, 1, 0) == 1 && c != '\n';)
        line += c;
    return line;
}

bool PosixPeer::AwaitEnd() {
    char byte;
    return recv(m_socket.Get(), &byte, 1, 0) <= 0;
}

void PosixPeer::EndSending() {
    shutdown(m_socket.Get(), SHUT_WR);
}

void PosixPeer::Reset() {
    const linger now{1, 0};
    setsockopt(m_socket.Get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
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
