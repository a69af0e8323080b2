// Sockets that never block, and a wait for several of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The system's form of an address and a port.
using Address = std::string;

// All addresses of a host, in the order in which to try them. Throws std::runtime_error when there is none.
std::vector<Address> Resolve(const std::string& host, const std::string& port);
Address Loopback(uint16_t port);

struct SocketWait;

class Socket {
  public:
    Socket() = default;
    Socket(Socket&& other) noexcept : m_value(std::exchange(other.m_value, kNone)) {}
    Socket& operator=(Socket&& other) noexcept {
        std::swap(m_value, other.m_value);
        return *this;
    }
    ~Socket() { Close(); }
    explicit operator bool() const { return m_value != kNone; }

    // Begins a TCP connection, which is complete when the socket is ready. Returns 0 or the error.
    int Connect(const Address& address);
    // Returns the error of a connection that is complete, or 0.
    int ConnectError() const;
    // Each returns the number of bytes, 0 when none can be taken at present, and -1 when the connection is
    // over.
    std::ptrdiff_t Receive(char* bytes, size_t size) const;
    std::ptrdiff_t Send(std::string_view bytes) const;

  protected:
    static constexpr std::intptr_t kNone = -1;
    // Returns 0 or the error.
    int Open(int family, int type);

    std::intptr_t m_value = kNone;

  private:
    friend bool AwaitSockets(std::vector<SocketWait>& waits, int milliseconds);
    void Close();
};

// Makes a wait end, on any thread: it is readable from the first Set() on.
class Wakeup : public Socket {
  public:
    // Throws std::runtime_error.
    Wakeup();
    void Set() const { Send("!"); }
};

inline constexpr unsigned kReadable = 1, kWritable = 2;

struct SocketWait {
    const Socket* socket;
    unsigned wanted;  // a socket of which nothing is wanted is left out
    unsigned ready = 0;
};

// Waits until one of the sockets is ready, or the time is over. A socket whose connection has ended or failed
// is readable. Returns false when the system cannot wait.
bool AwaitSockets(std::vector<SocketWait>& waits, int milliseconds);

std::string ErrorText(int error);
