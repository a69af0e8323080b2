// The access check of the page: a request needs the token, and has to be addressed to the loopback address of
// this machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mpm::web {

// A place on the loopback interface.
struct LoopbackAddress {
    std::string host;  // "127.0.0.1" or "::1"
    uint16_t port = 0;

    // "127.0.0.1:80", "[::1]:80", or with the port alone the former. Throws std::invalid_argument for
    // anything else: the page controls the PC, and no other machine may reach it.
    static LoopbackAddress Parse(const std::string& text);
    std::string Text() const;
};

// 128 random bits in hexadecimal. Throws std::runtime_error.
std::string MakeToken();

class Access {
  public:
    Access(std::string token, LoopbackAddress address);

    // Where people go: http://127.0.0.1:PORT/TOKEN/
    std::string Url() const;
    // Another host is one of a name that an attacker's name server has pointed at the loopback address.
    bool IsOwnHost(std::string_view host) const;
    // The origin of the page that opens a WebSocket, which a browser does for every page.
    bool IsOwnOrigin(std::string_view origin) const;
    // What follows "/TOKEN/" in the path; nothing for any other path. Takes equally long for all wrong
    // tokens.
    std::optional<std::string> Below(std::string_view path) const;

  private:
    const std::string m_token;
    const LoopbackAddress m_address;
};

}  // namespace mpm::web
