#include "tests/support/ConsoleClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using Clock = std::chrono::steady_clock;

namespace {

sockaddr_in Address(uint32_t host, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(host);
    address.sin_port = htons(port);
    return address;
}

uint16_t LocalPort(int socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

int Connect(uint16_t port, uint32_t ownAddress) {
    const sockaddr_in address = Address(INADDR_LOOPBACK, port);
    const sockaddr_in own = Address(ownAddress, 0);
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(client, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
        connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return client;
    close(client);
    return -1;
}

}  // namespace

ConsoleClient::ConsoleClient(uint16_t port, const char* ownAddress) {
    const uint32_t own = ntohl(inet_addr(ownAddress));
    const auto deadline = Clock::now() + kPatience;
    while ((m_socket = Connect(port, own)) < 0) {
        if (Clock::now() > deadline)
            throw std::runtime_error("no process listens on port " + std::to_string(port));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    m_port = LocalPort(m_socket);
}

ConsoleClient::ConsoleClient(ConsoleClient&& other) noexcept
    : m_socket(std::exchange(other.m_socket, -1)), m_port(other.m_port) {}

ConsoleClient::~ConsoleClient() {
    Close();
}

bool ConsoleClient::Await(short events, Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd entry{m_socket, events, 0};
    return poll(&entry, 1, static_cast<int>(std::max<int64_t>(left.count(), 0))) == 1;
}

bool ConsoleClient::Send(std::string_view bytes) {
    const auto deadline = Clock::now() + kPatience;
    while (!bytes.empty()) {
        if (!Await(POLLOUT, deadline)) return false;
        const ssize_t sent = send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) return false;
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

std::string ConsoleClient::Receive(size_t size) {
    const auto deadline = Clock::now() + kPatience;
    std::string bytes(size, '\0');
    size_t received = 0;
    while (received < size && Await(POLLIN, deadline)) {
        const ssize_t count = recv(m_socket, bytes.data() + received, size - received, MSG_DONTWAIT);
        if (count <= 0) break;
        received += static_cast<size_t>(count);
    }
    bytes.resize(received);
    return bytes;
}

bool ConsoleClient::AwaitClose(std::chrono::milliseconds patience) {
    const auto deadline = Clock::now() + patience;
    std::vector<char> dropped(65536);
    while (Await(POLLIN, deadline)) {
        if (recv(m_socket, dropped.data(), dropped.size(), MSG_DONTWAIT) <= 0) return true;
    }
    return false;
}

bool ConsoleClient::IsQuiet() {
    return !Await(POLLIN, Clock::now());
}

void ConsoleClient::FinishSending() {
    shutdown(m_socket, SHUT_WR);
}

void ConsoleClient::Close() {
    if (m_socket >= 0) close(std::exchange(m_socket, -1));
}

void ConsoleClient::Reset() {
    const linger now{1, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    Close();
}

TakenPort::TakenPort() : TakenPort(FreePort()) {}

TakenPort::TakenPort(uint16_t port) : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = Address(INADDR_ANY, port);
    if (bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        listen(m_socket, 1) == 0) {
        m_port = port;
    }
}

TakenPort::~TakenPort() {
    close(m_socket);
}

namespace {

// Tests run side by side, and take a port some time after they have chosen it: a name that only one of them
// can bind keeps it for this process until its end.
bool Reserve(uint16_t port) {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const int length = std::snprintf(name.sun_path + 1, sizeof name.sun_path - 1, "zel-port-%u", port);
    const int reservation = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
    if (bind(reservation, reinterpret_cast<const sockaddr*>(&name), size) == 0) return true;
    close(reservation);
    return false;
}

}  // namespace

uint16_t FreePort() {
    // Below the ports that the kernel gives to clients.
    static std::atomic<uint32_t> next{static_cast<uint32_t>(getpid()) * 16};
    while (true) {
        const auto port = static_cast<uint16_t>(10000 + next++ % 20000);
        if (Reserve(port) && TakenPort(port).Port() == port) return port;
    }
}

int BacklogOf(uint16_t port) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename().string());
        tcp_info info{};
        socklen_t size = sizeof info;
        if (getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 &&
            info.tcpi_state == TCP_LISTEN && LocalPort(descriptor) == port)
            // Of a listener this field is the length of its queue.
            return static_cast<int>(info.tcpi_sacked);
    }
    return -1;
}
