#include "winhost/net/Netlink.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <vector>

namespace winhost {
namespace {

constexpr size_t kMacSize = 6;
constexpr size_t kBufferSize = 64 * 1024;

[[noreturn]] void Throw(int error, const char* what) {
    throw std::system_error(error, std::generic_category(), what);
}

}  // namespace

Attributes::Attributes(const void* first, size_t size) {
    auto left = static_cast<unsigned>(size);
    for (auto* attribute = static_cast<const rtattr*>(first); RTA_OK(attribute, left);
         attribute = RTA_NEXT(attribute, left)) {
        const auto* data = reinterpret_cast<const unsigned char*>(attribute) + RTA_LENGTH(0);
        m_values[attribute->rta_type & NLA_TYPE_MASK] = {data, RTA_PAYLOAD(attribute)};
    }
}

uint32_t Attributes::Number(uint16_t type) const {
    const auto found = m_values.find(type);
    uint32_t number = 0;
    if (found == m_values.end()) return 0;
    if (found->second.size == 1) return found->second.data[0];
    if (found->second.size >= sizeof(number)) std::memcpy(&number, found->second.data, sizeof(number));
    return number;
}

std::string Attributes::Text(uint16_t type) const {
    const auto found = m_values.find(type);
    if (found == m_values.end()) return {};
    const auto* text = reinterpret_cast<const char*>(found->second.data);
    return {text, strnlen(text, found->second.size)};
}

std::string Attributes::Address(uint16_t type) const {
    const auto found = m_values.find(type);
    char text[INET_ADDRSTRLEN] = "";
    if (found == m_values.end() || found->second.size != sizeof(in_addr)) return {};
    inet_ntop(AF_INET, found->second.data, text, sizeof(text));
    return text;
}

std::string Attributes::Mac(uint16_t type) const {
    const auto found = m_values.find(type);
    if (found == m_values.end() || found->second.size != kMacSize) return {};
    const unsigned char* m = found->second.data;
    char text[3 * kMacSize];
    std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
    return text;
}

Netlink::Netlink() : m_socket(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
    if (!m_socket) Throw(errno, "no netlink socket");
}

void Netlink::Send(uint16_t type, const void* header, size_t size) {
    std::vector<unsigned char> request(NLMSG_SPACE(size));
    nlmsghdr message{};
    message.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(size));
    message.nlmsg_type = type;
    message.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message.nlmsg_seq = ++m_sequence;
    std::memcpy(request.data(), &message, sizeof(message));
    std::memcpy(request.data() + NLMSG_HDRLEN, header, size);
    if (send(m_socket.Get(), request.data(), request.size(), 0) < 0) Throw(errno, "netlink request");
}

bool Netlink::Exchange(uint16_t type, const void* header, size_t size, const Each& each) {
    Send(type, header, size);
    std::vector<unsigned char> buffer(kBufferSize);
    bool whole = true;
    while (true) {
        const ssize_t received = recv(m_socket.Get(), buffer.data(), buffer.size(), 0);
        if (received < 0 && errno == EINTR) continue;
        if (received < 0) Throw(errno, "netlink answer");
        auto left = static_cast<unsigned>(received);
        for (auto* message = reinterpret_cast<nlmsghdr*>(buffer.data()); NLMSG_OK(message, left);
             message = NLMSG_NEXT(message, left)) {
            if (message->nlmsg_seq != m_sequence) continue;
            if (message->nlmsg_flags & NLM_F_DUMP_INTR) whole = false;
            if (message->nlmsg_type == NLMSG_DONE) return whole;
            if (message->nlmsg_type == NLMSG_ERROR) {
                int error = 0;
                std::memcpy(&error, reinterpret_cast<unsigned char*>(message) + NLMSG_HDRLEN, sizeof(error));
                Throw(-error, "netlink");
            }
            each(*message);
        }
    }
}

}  // namespace winhost
