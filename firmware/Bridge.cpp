#include "firmware/Bridge.h"

#include <netdb.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace mpm {

Bridge::Bridge(EventLoop& loop, const std::string& server, std::chrono::milliseconds pause,
               PacedSender::Send send, std::function<bool()> hostIsBehind,
               std::function<void(const std::string&)> ended)
    : Bridge(loop, testbed::Descriptor(), pause, std::move(send), std::move(hostIsBehind), std::move(ended)) {
    Connect(server);
}

Bridge::Bridge(EventLoop& loop, testbed::Descriptor server, std::chrono::milliseconds pause,
               PacedSender::Send send, std::function<bool()> hostIsBehind,
               std::function<void(const std::string&)> ended)
    : m_loop(loop),
      m_sender(loop, pause, std::move(send), [this] { Drained(); }),
      m_hostIsBehind(std::move(hostIsBehind)),
      m_ended(std::move(ended)),
      m_socket(std::move(server)) {
    if (m_socket) Watch();
}

Bridge::~Bridge() {
    if (m_watch) m_loop.Unwatch(m_watch);
    if (m_endTimer) m_loop.Cancel(m_endTimer);
}

void Bridge::Connect(const std::string& server) {
    const size_t colon = server.rfind(':');
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error =
        getaddrinfo(server.substr(0, colon).c_str(), server.substr(colon + 1).c_str(), &hints, &found);
    if (error) return End(server + ": " + gai_strerror(error));
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> addresses(found, freeaddrinfo);
    m_socket = testbed::Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(m_socket.Get(), found->ai_addr, found->ai_addrlen) != 0 && errno != EINPROGRESS)
        return End(server + ": " + std::strerror(errno));
    Watch();
}

void Bridge::Watch() {
    m_watch = m_loop.Watch(m_socket.Get(), EPOLLIN | EPOLLOUT, [this](uint32_t events) { OnReady(events); });
}

void Bridge::Take(std::span<const uint8_t> bytes) {
    m_sender.OnClientBytes();
    if (!m_reason.empty()) return;
    if (m_toServer.size() + bytes.size() > kMaxWaiting) return End("the server does not read");
    m_toServer.insert(m_toServer.end(), bytes.begin(), bytes.end());
    Write();
}

void Bridge::HostHasRead() {
    if (m_reason.empty()) UpdateEvents();
}

void Bridge::OnReady(uint32_t events) {
    int error = 0;
    socklen_t size = sizeof error;
    if (events & EPOLLERR && getsockopt(m_socket.Get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error)
        return End(std::strerror(error));
    if (events & (EPOLLIN | EPOLLHUP)) Read();
    if (m_reason.empty()) Write();
}

void Bridge::Read() {
    uint8_t block[65536];
    const ssize_t count = recv(m_socket.Get(), block, sizeof block, 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) return End(count == 0 ? "the server has closed" : std::strerror(errno));
    m_sender.Append({block, size_t(count)});
}

void Bridge::Write() {
    if (!m_toServer.empty()) {
        const ssize_t count = send(m_socket.Get(), m_toServer.data(), m_toServer.size(), MSG_NOSIGNAL);
        if (count > 0) m_toServer.erase(m_toServer.begin(), m_toServer.begin() + count);
    }
    UpdateEvents();
}

void Bridge::UpdateEvents() {
    const bool mayRead = m_sender.Waiting() <= kMaxWaiting && !m_hostIsBehind();
    m_loop.ChangeEvents(m_watch, (m_toServer.empty() ? 0u : EPOLLOUT) | (mayRead ? EPOLLIN : 0u));
}

void Bridge::End(const std::string& reason) {
    if (m_watch) m_loop.Unwatch(std::exchange(m_watch, 0));
    m_socket.Close();
    m_toServer.clear();
    m_reason = reason;
    // Not from within the caller, who may be the constructor.
    if (m_sender.Idle()) m_endTimer = m_loop.After({}, [this] { Drained(); });
}

void Bridge::Drained() {
    if (m_reason.empty()) return UpdateEvents();
    m_endTimer = 0;
    m_ended(m_reason);
}

}  // namespace mpm
