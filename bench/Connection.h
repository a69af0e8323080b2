// A blocking TCP connection.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

class Connection {
  public:
    explicit Connection(int descriptor) : m_descriptor(descriptor) {
        if (descriptor < 0) throw std::runtime_error("no connection");
        int on = 1;
        setsockopt(m_descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    ~Connection() {
        if (m_descriptor >= 0) close(m_descriptor);
    }
    Connection(Connection&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    Connection& operator=(Connection&&) = delete;

    static Connection ToLoopback(int port) {
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        peer.sin_port = htons(static_cast<uint16_t>(port));
        peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        Connection made(socket(AF_INET, SOCK_STREAM, 0));
        if (connect(made.m_descriptor, reinterpret_cast<sockaddr*>(&peer), sizeof peer) != 0)
            throw std::runtime_error("cannot connect");
        return made;
    }

    // 0 when the peer has closed.
    size_t Read(std::vector<char>& buffer, size_t most) {
        const ssize_t n = recv(m_descriptor, buffer.data(), std::min(most, buffer.size()), 0);
        if (n < 0) throw std::runtime_error("recv failed");
        return static_cast<size_t>(n);
    }
    void ReadAll(std::vector<char>& buffer, size_t size) {
        while (size > 0) {
            const size_t n = Read(buffer, size);
            if (n == 0) throw std::runtime_error("closed by the peer");
            size -= n;
        }
    }
    void Write(const char* data, size_t size) {
        while (size > 0) {
            const ssize_t n = send(m_descriptor, data, size, MSG_NOSIGNAL);
            if (n < 0) throw std::runtime_error("send failed");
            data += n;
            size -= static_cast<size_t>(n);
        }
    }

  private:
    int m_descriptor;
};
