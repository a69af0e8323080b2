#include "firmware/link/LinkServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <stdexcept>

#include "firmware/Firmware.h"
#include "firmware/link/LinkConnection.h"
#include "testbed/Sockets.h"

namespace mpm {

namespace {

[[noreturn]] void Malformed(const std::string& address, const std::string& why) {
    throw std::invalid_argument("\"" + address + "\" is no address to listen on: " + why);
}

[[noreturn]] void Fail(const std::string& address, int error) {
    throw std::runtime_error("cannot listen on \"" + address +
                             "\": " + (error == EADDRINUSE ? "it is in use" : std::strerror(error)));
}

testbed::Descriptor ListenUnix(const std::string& address, const std::string& path) {
    testbed::Descriptor socket = testbed::ListenUnix(path, 64, SOCK_STREAM | SOCK_NONBLOCK);
    if (!socket && errno == ENAMETOOLONG) Malformed(address, "the path is empty or too long");
    if (!socket) Fail(address, errno);
    return socket;
}

testbed::Descriptor ListenTcp(const std::string& address, const std::string& host, const std::string& port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    uint16_t number = 0;
    const auto [stop, error] = std::from_chars(port.data(), port.data() + port.size(), number);
    if (error != std::errc() || stop != port.data() + port.size() || port.empty())
        Malformed(address, "the port is no number");
    if (inet_pton(AF_INET, host.c_str(), &name.sin_addr) != 1)
        Malformed(address, "the host is no IPv4 address");
    name.sin_port = htons(number);
    testbed::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (!socket || bind(socket.Get(), reinterpret_cast<sockaddr*>(&name), sizeof name) ||
        listen(socket.Get(), 64))
        Fail(address, errno);
    return socket;
}

}  // namespace

LinkServer::LinkServer(EventLoop& loop, Events events) : m_loop(loop), m_events(std::move(events)) {}

LinkServer::~LinkServer() {
    Close();
}

std::string LinkServer::Listen(const std::string& address) {
    Close();
    std::string real = address;
    if (address.starts_with("unix:")) {
        m_listener = ListenUnix(address, address.substr(5));
        m_unixPath = address.substr(5);
    } else if (address.starts_with("tcp:") && address.rfind(':') > 4) {
        const size_t colon = address.rfind(':');
        m_listener = ListenTcp(address, address.substr(4, colon - 4), address.substr(colon + 1));
        real = address.substr(0, colon + 1) + std::to_string(PortOf(m_listener));
    } else {
        Malformed(address, "it is neither unix:/path nor tcp:address:port");
    }
    m_listenerWatch = m_loop.Watch(m_listener.Get(), EPOLLIN, [this](uint32_t) { Accept(); });
    return real;
}

void LinkServer::Close() {
    if (m_listenerWatch) m_loop.Unwatch(std::exchange(m_listenerWatch, 0));
    m_listener.Close();
    if (!m_unixPath.empty()) unlink(std::exchange(m_unixPath, "").c_str());
    m_waiting.clear();
    while (!m_connections.empty())
        Drop(m_connections.begin()->first, "");
}

void LinkServer::Accept() {
    testbed::Descriptor socket(accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) return;
    const int on = 1;
    setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // a Unix socket knows no such delay
    const uint64_t number = m_nextConnection++;
    const auto connection = std::make_shared<LinkConnection>(*this, number, std::move(socket));
    m_connections.emplace(number, connection);
    connection->Start();
}

void LinkServer::OnFrame(LinkConnection& from, const mpmlink::Header& header,
                         std::span<const uint8_t> payload) {
    switch (header.kind) {
        case mpmlink::Kind::Request:
            return m_events.request({from.Number(), header.id, header.code, header.value, payload});
        case mpmlink::Kind::Cancel:
            return m_events.cancelled(from.Number(), header.id);
        case mpmlink::Kind::Listen:
            return StartListening(from);
        case mpmlink::Kind::Response:
        case mpmlink::Kind::Message:
        case mpmlink::Kind::LargeRequest:  // has become a Request
        case mpmlink::Kind::LargeMessage:
            break;
    }
    Drop(from.Number(), "a frame of kind " + std::to_string(uint32_t(header.kind)));
}

void LinkServer::StartListening(LinkConnection& connection) {
    // The latest handle that reads gets the messages: an older one belongs to a host that has gone or is
    // about to.
    m_listening = connection.Number();
    const auto waiting = std::exchange(m_waiting, {});
    for (const auto& message : waiting)
        Send(message, {});
    m_events.listening(true);
}

void LinkServer::Drop(uint64_t number, const std::string& why) {
    const auto found = m_connections.find(number);
    if (found == m_connections.end()) return;
    const auto connection = found->second;
    m_connections.erase(found);
    connection->Close();
    if (!why.empty()) m_events.complaint("connection closed for " + why);
    m_events.closed(number);
    if (m_listening != number) return;
    m_listening = 0;
    m_events.listening(false);
}

bool LinkServer::Answer(const LinkRequest& request, uint32_t error, std::span<const uint8_t> output) {
    const auto found = m_connections.find(request.connection);
    if (found == m_connections.end()) return false;
    found->second->SendFrame(
        {uint32_t(output.size()), mpmlink::Kind::Response, request.id, request.code, error}, output);
    return true;
}

void LinkServer::Send(std::span<const uint8_t> payload, std::span<const uint8_t> trailer) {
    const size_t size = payload.size() + trailer.size();
    if (size > mpmlink::kMaxPayload)
        throw std::length_error("a message of " + std::to_string(size) + " bytes is too long");
    const auto found = m_connections.find(m_listening);
    if (found == m_connections.end()) return Keep(payload, trailer);
    if (found->second->Unsent() + size > kMaxUnreadBytes)
        return m_events.complaint("a message is lost: the host does not read");
    found->second->SendFrame({uint32_t(size), mpmlink::Kind::Message, 0, 0, 0}, payload, trailer);
}

void LinkServer::Keep(std::span<const uint8_t> payload, std::span<const uint8_t> trailer) {
    std::vector<uint8_t> message(payload.begin(), payload.end());
    message.insert(message.end(), trailer.begin(), trailer.end());
    m_waiting.push_back(std::move(message));
    if (m_waiting.size() <= kMaxWaitingMessages) return;
    m_waiting.pop_front();
    m_events.complaint("the oldest waiting message is lost: no host listens");
}

size_t LinkServer::UnreadBytes() const {
    const auto found = m_connections.find(m_listening);
    return found == m_connections.end() ? 0 : found->second->Unsent();
}

}  // namespace mpm
