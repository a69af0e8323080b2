#include "winhost/io/LinkSocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstring>
#include <string_view>

namespace winhost {

namespace {

// The largest message and its header fit, so that a request seldom finds the socket full.
constexpr int kSendBuffer = 1 << 20;

int ConnectTo(const void* address, socklen_t size, int family) {
    const int socket = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket < 0) return -1;
    if (connect(socket, static_cast<const sockaddr*>(address), size) != 0) {
        close(socket);
        return -1;
    }
    setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    return socket;
}

int ConnectUnix(std::string_view path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) return -1;
    std::memcpy(address.sun_path, path.data(), path.size());
    return ConnectTo(&address, sizeof address, AF_UNIX);
}

int ConnectTcp(const std::string& host, std::string_view port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    uint16_t number = 0;
    const auto parsed = std::from_chars(port.data(), port.data() + port.size(), number);
    if (parsed.ec != std::errc() || parsed.ptr != port.data() + port.size()) return -1;
    address.sin_port = htons(number);
    if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) return -1;
    const int socket = ConnectTo(&address, sizeof address, AF_INET);
    const int on = 1;
    if (socket >= 0) setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return socket;
}

}  // namespace

int ConnectLink(const std::string& address) {
    if (address.starts_with("unix:")) return ConnectUnix(std::string_view(address).substr(5));
    const size_t colon = address.rfind(':');
    if (!address.starts_with("tcp:") || colon < 4) return -1;
    return ConnectTcp(address.substr(4, colon - 4), std::string_view(address).substr(colon + 1));
}

}  // namespace winhost
