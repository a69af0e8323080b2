// The kernel's routing service.
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>

#include "testbed/Descriptor.h"

namespace winhost {

// The attributes of one message, by their number; valid as long as the message is.
class Attributes {
  public:
    Attributes(const void* first, size_t size);

    bool Has(uint16_t type) const { return m_values.contains(type); }
    // 0 when there is none.
    uint32_t Number(uint16_t type) const;
    // Up to its NUL.
    std::string Text(uint16_t type) const;
    // "192.168.1.2"; empty when there is none.
    std::string Address(uint16_t type) const;
    // "00:11:22:33:44:55"; empty when there is none or it has another length.
    std::string Mac(uint16_t type) const;

  private:
    struct Bytes {
        const unsigned char* data;
        size_t size;
    };
    std::map<uint16_t, Bytes> m_values;
};

class Netlink {
  public:
    // Throws std::system_error, as Dump does.
    Netlink();

    // Each object of a kind. Header is the fixed part of its messages: ifinfomsg, ifaddrmsg, rtmsg. Starts
    // again, with `restart`, when the kernel's picture changed meanwhile.
    template <class Header>
    void Dump(uint16_t type, unsigned char family, const std::function<void()>& restart,
              const std::function<void(const Header&, const Attributes&)>& each) {
        Header header{};
        std::memcpy(&header, &family, sizeof(family));  // the first field of all three
        for (int tries = 0; tries < kMaxTries; ++tries) {
            restart();
            if (Exchange(type, &header, sizeof(header), Unpack<Header>(each))) return;
        }
    }

  private:
    using Each = std::function<void(const nlmsghdr&)>;
    static constexpr int kMaxTries = 5;

    template <class Header>
    static Each Unpack(const std::function<void(const Header&, const Attributes&)>& each) {
        return [&each](const nlmsghdr& message) {
            if (message.nlmsg_len < NLMSG_SPACE(sizeof(Header))) return;
            const auto* bytes = reinterpret_cast<const unsigned char*>(&message);
            Header header;
            std::memcpy(&header, bytes + NLMSG_HDRLEN, sizeof(header));
            const size_t used = NLMSG_SPACE(sizeof(Header));
            each(header, Attributes(bytes + used, message.nlmsg_len - used));
        };
    }
    // False when the dump was cut by a change.
    bool Exchange(uint16_t type, const void* header, size_t size, const Each& each);
    void Send(uint16_t type, const void* header, size_t size);

    const testbed::Descriptor m_socket;
    uint32_t m_sequence = 0;
};

}  // namespace winhost
