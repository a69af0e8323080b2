#include "companions/nubaapi/Sockets.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <system_error>

// From posix/ or windows/.
#include "SystemSockets.h"

namespace {

// Aligned, as a text's bytes need not be.
struct AddressSpace {
    explicit AddressSpace(const Address& address) : size(static_cast<socklen_t>(address.size())) {
        std::memcpy(&storage, address.data(), std::min(address.size(), sizeof storage));
    }
    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    int Family() const { return storage.ss_family; }

    sockaddr_storage storage{};
    socklen_t size;
};

std::ptrdiff_t Taken(std::ptrdiff_t result) {
    if (result > 0) return result;
    return result < 0 && IsForLater(LastSocketError()) ? 0 : -1;
}

}  // namespace

std::vector<Address> Resolve(const std::string& host, const std::string& port) {
    StartSockets();
    addrinfo hints{}, *found = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    if (const int error = getaddrinfo(host.c_str(), port.c_str(), &hints, &found))
        throw std::runtime_error(host + ": " + gai_strerror(error));
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
    std::vector<Address> addresses;
    for (const addrinfo* item = found; item; item = item->ai_next)
        addresses.emplace_back(reinterpret_cast<const char*>(item->ai_addr), item->ai_addrlen);
    return addresses;
}

Address Loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return {reinterpret_cast<const char*>(&address), sizeof address};
}

int Socket::Open(int family, int type) {
    StartSockets();
    Close();
    m_value = static_cast<std::intptr_t>(OpenSystemSocket(family, type));
    return m_value == kNone ? LastSocketError() : 0;
}

void Socket::Close() {
    if (m_value != kNone) CloseSystemSocket(static_cast<SystemSocket>(std::exchange(m_value, kNone)));
}

int Socket::Connect(const Address& address) {
    const AddressSpace space(address);
    if (const int error = Open(space.Family(), SOCK_STREAM)) return error;
    if (connect(static_cast<SystemSocket>(m_value), space.Get(), space.size) == 0) return 0;
    const int error = LastSocketError();
    return IsForLater(error) ? 0 : error;
}

int Socket::ConnectError() const {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(static_cast<SystemSocket>(m_value), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error),
               &size);
    return error;
}

std::ptrdiff_t Socket::Receive(char* bytes, size_t size) const {
    return Taken(recv(static_cast<SystemSocket>(m_value), bytes, static_cast<int>(size), 0));
}

std::ptrdiff_t Socket::Send(std::string_view bytes) const {
    return Taken(
        send(static_cast<SystemSocket>(m_value), bytes.data(), static_cast<int>(bytes.size()), kSendFlags));
}

// A datagram socket that is connected to itself, which every system can wait for together with connections.
Wakeup::Wakeup() {
    int error = Open(AF_INET, SOCK_DGRAM);
    AddressSpace own(Loopback(0));
    const auto value = static_cast<SystemSocket>(m_value);
    const bool isConnected = !error && bind(value, own.Get(), own.size) == 0 &&
                             getsockname(value, reinterpret_cast<sockaddr*>(&own.storage), &own.size) == 0 &&
                             connect(value, own.Get(), own.size) == 0;
    if (isConnected) return;
    if (!error) error = LastSocketError();
    throw std::runtime_error("no socket: " + ErrorText(error));
}

bool AwaitSockets(std::vector<SocketWait>& waits, int milliseconds) {
    std::vector<pollfd> polled;
    for (const SocketWait& wait : waits) {
        if (!wait.wanted) continue;
        const int events = (wait.wanted & kReadable ? POLLIN : 0) | (wait.wanted & kWritable ? POLLOUT : 0);
        polled.push_back({static_cast<SystemSocket>(wait.socket->m_value), static_cast<short>(events), 0});
    }
    if (PollSockets(polled, milliseconds) < 0) return IsForLater(LastSocketError());
    auto answer = polled.begin();
    for (SocketWait& wait : waits) {
        if (!wait.wanted) continue;
        const int events = answer++->revents;
        wait.ready =
            (events & (POLLIN | POLLHUP | POLLERR) ? kReadable : 0U) | (events & POLLOUT ? kWritable : 0U);
    }
    return true;
}

std::string ErrorText(int error) {
    return std::system_category().message(error);
}
