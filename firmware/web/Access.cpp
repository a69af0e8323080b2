#include "firmware/web/Access.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <charconv>
#include <initializer_list>
#include <stdexcept>

#include "firmware/Hex.h"

namespace mpm::web {

namespace {

constexpr size_t kTokenBytes = 16;
constexpr std::string_view kScheme = "http://";

}  // namespace

LoopbackAddress LoopbackAddress::Parse(const std::string& text) {
    LoopbackAddress address{"127.0.0.1"};
    std::string_view port = text;
    for (const std::string_view host : {"127.0.0.1", "[::1]", "localhost"})
        if (text.starts_with(std::string(host) + ":")) {
            port.remove_prefix(host.size() + 1);
            if (host == "[::1]") address.host = "::1";
        }
    const auto [stop, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
    if (error != std::errc() || stop != port.data() + port.size())
        throw std::invalid_argument("\"" + text + "\" is not PORT, 127.0.0.1:PORT or [::1]:PORT");
    return address;
}

std::string LoopbackAddress::Text() const {
    return (host == "::1" ? "[::1]" : host) + ":" + std::to_string(port);
}

std::string MakeToken() {
    uint8_t bytes[kTokenBytes];
    if (RAND_bytes(bytes, sizeof bytes) != 1) throw std::runtime_error("there are no random numbers");
    return ToHex(bytes);
}

Access::Access(std::string token, LoopbackAddress address)
    : m_token(std::move(token)), m_address(std::move(address)) {}

std::string Access::Url() const {
    return std::string(kScheme) + m_address.Text() + "/" + m_token + "/";
}

bool Access::IsOwnHost(std::string_view host) const {
    for (const char* name : {"127.0.0.1:", "localhost:", "[::1]:"})
        if (host == name + std::to_string(m_address.port)) return true;
    return false;
}

bool Access::IsOwnOrigin(std::string_view origin) const {
    return origin.starts_with(kScheme) && IsOwnHost(origin.substr(kScheme.size()));
}

std::optional<std::string> Access::Below(std::string_view path) const {
    const size_t length = m_token.size() + 2;
    if (path.size() < length || path[0] != '/' || path[length - 1] != '/') return std::nullopt;
    if (CRYPTO_memcmp(path.data() + 1, m_token.data(), m_token.size()) != 0) return std::nullopt;
    return std::string(path.substr(length));
}

}  // namespace mpm::web
