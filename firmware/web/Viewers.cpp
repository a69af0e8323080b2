#include "firmware/web/Viewers.h"

#include <arpa/inet.h>
#include <libwebsockets.h>
#include <netinet/in.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "testbed/Descriptor.h"

namespace mpm::web {

namespace {

constexpr size_t kPiece = 64u << 10;
// Bytes that wait for one end; with more, the other end is not read from.
constexpr size_t kMostWaiting = 256u << 10;

// On the loopback interface it is there at once, unless too many wait for the port.
int OutcomeOf(const testbed::Descriptor& socket) {
    constexpr int kPatience = 200;  // milliseconds
    pollfd wait{socket.Get(), POLLOUT, 0};
    if (poll(&wait, 1, kPatience) != 1) return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

testbed::Descriptor ConnectLoopback(const LoopbackAddress& address) {
    const bool isV6 = address.host == "::1";
    testbed::Descriptor socket(
        ::socket(isV6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(address.port);
    four.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(address.port);
    six.sin6_addr = in6addr_loopback;
    const auto* place =
        isV6 ? reinterpret_cast<const sockaddr*>(&six) : reinterpret_cast<const sockaddr*>(&four);
    int error = connect(socket.Get(), place, isV6 ? sizeof six : sizeof four) == 0 ? 0 : errno;
    if (error == EINPROGRESS) error = OutcomeOf(socket);
    if (error != 0)
        throw std::runtime_error("the KVM port takes no viewer: " + std::string(std::strerror(error)));
    return socket;
}

}  // namespace

void Viewers::Serve(lws_vhost* host, LoopbackAddress port) {
    m_host = host;
    m_port = std::move(port);
}

lws* Viewers::Connect() {
    testbed::Descriptor socket = ConnectLoopback(*m_port);
    lws_sock_file_fd_type descriptor{};
    descriptor.sockfd = socket.Get();
    // The library closes the descriptor, also when it does not take it.
    lws* const connection =
        lws_adopt_descriptor_vhost(m_host, LWS_ADOPT_SOCKET, descriptor, kProtocol, nullptr);
    (void)socket.Release();
    if (!connection) throw std::runtime_error("there are too many connections");
    return connection;
}

int Viewers::Open(lws* socket) {
    lws* const connection = Connect();
    m_ends[socket] = {connection, true, false, false, {}};
    m_ends[connection] = {socket, false, false, false, {}};
    return 0;
}

int Viewers::Receive(lws* from, std::string_view bytes) {
    const auto found = m_ends.find(from);
    if (found == m_ends.end()) return from == m_held ? 0 : -1;
    lws* const to = found->second.other;
    if (!to) return -1;
    End& end = m_ends.at(to);
    end.waiting += bytes;
    if (end.waiting.size() > kMostWaiting && !end.otherIsPaused) {
        end.otherIsPaused = true;
        lws_rx_flow_control(from, 0);
    }
    lws_callback_on_writable(to);
    return 0;
}

int Viewers::Write(lws* to) {
    const auto found = m_ends.find(to);
    if (found == m_ends.end()) return 0;
    End& end = found->second;
    if (end.waiting.empty()) return end.otherHasEnded ? -1 : 0;
    const size_t size = std::min(kPiece, end.waiting.size());
    std::vector<unsigned char> buffer(LWS_PRE + size);
    std::memcpy(buffer.data() + LWS_PRE, end.waiting.data(), size);
    end.waiting.erase(0, size);
    const auto kind = end.isSocket ? LWS_WRITE_BINARY : LWS_WRITE_RAW;
    if (lws_write(to, buffer.data() + LWS_PRE, size, kind) < int(size)) return -1;
    if (end.otherIsPaused && end.waiting.size() <= kMostWaiting / 2 && end.other) {
        end.otherIsPaused = false;
        lws_rx_flow_control(end.other, 1);
    }
    if (!end.waiting.empty() || end.otherHasEnded) lws_callback_on_writable(to);
    return 0;
}

void Viewers::Close(lws* end) {
    if (end == m_held) {
        m_held = nullptr;
        m_heldChanged(false);
    }
    const auto found = m_ends.find(end);
    if (found == m_ends.end()) return;
    if (lws* const other = found->second.other) {
        End& left = m_ends.at(other);
        left.other = nullptr;
        left.otherHasEnded = true;
        lws_callback_on_writable(other);  // which ends it too, once all bytes are out
    }
    m_ends.erase(found);
}

void Viewers::Hold(bool hold) {
    if (hold == Holds()) return;
    if (hold) {
        m_held = Connect();
        return m_heldChanged(true);
    }
    lws_set_timeout(m_held, PENDING_TIMEOUT_USER_REASON_BASE, LWS_TO_KILL_ASYNC);
    m_held = nullptr;
    m_heldChanged(false);
}

}  // namespace mpm::web
