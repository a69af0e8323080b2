// The object behind a SOCKET: a real IPv4 stream socket of the host.
//
// Numbers are as in a sockaddr, in network byte order. Every call answers 0 or a count, or a negative errno:
// EINTR when the SOCKET was closed under it, ESHUTDOWN when its direction was shut down. This header and its
// source keep away from <winsock2.h>, whose names are the ones of <sys/socket.h>.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "winhost/core/Clock.h"
#include "winhost/core/HandleTable.h"

namespace winhost {

struct Endpoint {
    uint32_t address = 0;
    uint16_t port = 0;
};

class Socket final : public Object {
  public:
    // Null, and the error by errno.
    static std::shared_ptr<Socket> Open();
    // The descriptor lives as long as a thread is in one of the calls below, so that its number cannot become
    // another file's under that thread.
    ~Socket() override;

    bool IsClosedByCloseHandle() const override { return false; }
    // Ends the calls that threads are blocked in.
    void OnClose() override;

    // The port is taken as the PC's description says. A port that somebody listens on, or has bound, is
    // taken; one that only old connections remember is free.
    int Bind(Endpoint endpoint);
    int Listen(int backlog);
    // The new socket, non-blocking if this one is, goes to `accepted`.
    int Accept(std::shared_ptr<Socket>& accepted, Endpoint& peer);
    int Connect(Endpoint peer);
    int SetNonBlocking(bool nonBlocking);
    // Bytes moved. Each costs one system call. A peek leaves the bytes where they are.
    int Receive(void* buffer, size_t size, bool peek = false);
    int Send(const void* data, size_t size);
    // As SD_RECEIVE, SD_SEND and SD_BOTH.
    int Shutdown(int how);
    int LocalName(Endpoint& endpoint) const;

    // Waits until a call on one of the sockets that takes bytes, or a connection, would not block. Answers
    // how many there are, which isReadable says of each; 0 once the deadline is reached, and -ENOTSOCK as
    // soon as one of them is closed.
    static int AwaitReadable(const std::vector<std::shared_ptr<Socket>>& sockets, Clock::Deadline deadline,
                             std::vector<bool>& isReadable);

  private:
    enum class State : uint8_t { Fresh, Bound, Listening, Connected };

    explicit Socket(int descriptor) : m_descriptor(descriptor) {}
    int Failure(int error) const { return m_closed ? -EINTR : -error; }

    const int m_descriptor;
    std::atomic<State> m_state{State::Fresh};
    std::atomic<bool> m_closed{false};
    std::atomic<bool> m_nonBlocking{false};
    // The host reports a reset once, Windows every time.
    std::atomic<bool> m_reset{false};
    std::atomic<bool> m_receiveShutDown{false};
    std::atomic<bool> m_sendShutDown{false};
    std::atomic<uint16_t> m_askedPort{0};  // what Bind was asked for, when the description gave another one
    std::atomic<bool> m_askedAny{false};   // for any address, and bound to the loopback instead
};

}  // namespace winhost
