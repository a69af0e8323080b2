#include "winhost/net/Socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

sockaddr_in ToSockaddr(Endpoint endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = endpoint.address;
    address.sin_port = endpoint.port;
    return address;
}

Endpoint FromSockaddr(const sockaddr_in& address) {
    return {address.sin_addr.s_addr, address.sin_port};
}

void AllowOldConnections(int descriptor, bool allow) {
    const int value = allow;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &value, sizeof(value));
}

// SO_REUSEADDR lets a port be bound that only old connections remember, as Windows does unasked, but also one
// that another such socket has bound and does not listen on yet. A socket therefore carries the option only
// while it binds and from its listen on (its accepted sockets inherit it).
int BindAsWindows(int descriptor, const sockaddr_in& address) {
    const auto* name = reinterpret_cast<const sockaddr*>(&address);
    if (bind(descriptor, name, sizeof(address)) == 0) return 0;
    if (errno != EADDRINUSE) return -errno;
    AllowOldConnections(descriptor, true);
    const int error = bind(descriptor, name, sizeof(address)) == 0 ? 0 : errno;
    AllowOldConnections(descriptor, false);
    return -error;
}

template <class Call>
auto UntilDone(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

}  // namespace

std::shared_ptr<Socket> Socket::Open() {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    return descriptor < 0 ? nullptr : std::shared_ptr<Socket>(new Socket(descriptor));
}

Socket::~Socket() {
    close(m_descriptor);
}

void Socket::OnClose() {
    m_closed = true;
    shutdown(m_descriptor, SHUT_RDWR);
}

int Socket::Bind(Endpoint endpoint) {
    if (m_state != State::Fresh) return -EINVAL;
    const PcDescription pc = Pc::Instance().Description();
    Endpoint real = endpoint;
    if (const auto found = pc.ports.find(ntohs(endpoint.port)); found != pc.ports.end()) {
        real.port = htons(found->second);
        if (real.address == htonl(INADDR_ANY) && !pc.openPorts) real.address = htonl(INADDR_LOOPBACK);
    }
    const int result = BindAsWindows(m_descriptor, ToSockaddr(real));
    if (result != 0) return Failure(-result);
    if (real.port != endpoint.port) m_askedPort = endpoint.port;
    m_askedAny = real.address != endpoint.address;
    m_state = State::Bound;
    return 0;
}

int Socket::Listen(int backlog) {
    const State state = m_state;
    if (state == State::Fresh) return -EINVAL;
    if (state == State::Connected) return -EISCONN;
    AllowOldConnections(m_descriptor, true);
    if (listen(m_descriptor, backlog) != 0) return Failure(errno);
    m_state = State::Listening;
    return 0;
}

int Socket::Accept(std::shared_ptr<Socket>& accepted, Endpoint& peer) {
    if (m_state != State::Listening) return -EINVAL;
    sockaddr_in address{};
    const bool nonBlocking = m_nonBlocking;
    const int descriptor = UntilDone([&] {
        socklen_t length = sizeof(address);
        return accept4(m_descriptor, reinterpret_cast<sockaddr*>(&address), &length,
                       SOCK_CLOEXEC | (nonBlocking ? SOCK_NONBLOCK : 0));
    });
    if (descriptor < 0) return Failure(errno == ECONNABORTED ? ECONNRESET : errno);
    accepted.reset(new Socket(descriptor));
    accepted->m_nonBlocking = nonBlocking;
    accepted->m_askedPort = m_askedPort.load();
    accepted->m_state = State::Connected;
    peer = FromSockaddr(address);
    return 0;
}

int Socket::Connect(Endpoint peer) {
    const State state = m_state;
    if (state == State::Listening) return -EINVAL;
    if (state == State::Connected) return -EISCONN;
    const sockaddr_in address = ToSockaddr(peer);
    const int result = connect(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    const int error = result == 0 ? 0 : errno;
    if (error == 0 || error == EINPROGRESS) m_state = State::Connected;
    return error == 0 ? 0 : Failure(error);
}

int Socket::SetNonBlocking(bool nonBlocking) {
    int value = nonBlocking;
    if (ioctl(m_descriptor, FIONBIO, &value) != 0) return -errno;
    m_nonBlocking = nonBlocking;
    return 0;
}

int Socket::Receive(void* buffer, size_t size, bool peek) {
    if (m_receiveShutDown) return -ESHUTDOWN;
    const int flags = peek ? MSG_PEEK : 0;
    const ssize_t received = UntilDone([&] { return recv(m_descriptor, buffer, size, flags); });
    if (received > 0) return static_cast<int>(received);
    if (received < 0) {
        if (errno == ECONNRESET) m_reset = true;
        return Failure(errno);
    }
    if (m_closed) return -EINTR;
    if (m_receiveShutDown) return -ESHUTDOWN;
    return m_reset && size != 0 ? -ECONNRESET : 0;
}

int Socket::Send(const void* data, size_t size) {
    if (m_state != State::Connected) return -ENOTCONN;
    const ssize_t sent = UntilDone([&] { return send(m_descriptor, data, size, MSG_NOSIGNAL); });
    if (sent >= 0) return static_cast<int>(sent);
    if (errno == ECONNRESET) m_reset = true;
    if (errno != EPIPE) return Failure(errno);
    if (m_sendShutDown) return Failure(ESHUTDOWN);
    return Failure(m_reset ? ECONNRESET : ECONNABORTED);
}

int Socket::Shutdown(int how) {
    if (how < SHUT_RD || how > SHUT_RDWR) return -EINVAL;
    if (m_state != State::Connected) return -ENOTCONN;
    if (how != SHUT_WR) m_receiveShutDown = true;
    if (how != SHUT_RD) m_sendShutDown = true;
    return shutdown(m_descriptor, how) == 0 ? 0 : Failure(errno);
}

int Socket::LocalName(Endpoint& endpoint) const {
    if (m_state == State::Fresh) return -EINVAL;
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    if (getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) return -errno;
    endpoint = FromSockaddr(address);
    if (const uint16_t asked = m_askedPort) endpoint.port = asked;
    if (m_askedAny) endpoint.address = htonl(INADDR_ANY);
    return 0;
}

}  // namespace winhost
