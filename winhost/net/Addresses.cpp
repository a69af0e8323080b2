// Byte order, and IPv4 addresses as text.
#include <winsock2.h>

#include <bit>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "winhost/core/Gate.h"

static_assert(std::endian::native == std::endian::little);

u_short htons(u_short hostshort) {
    WINHOST_GATE_PASS("htons");
    return __builtin_bswap16(hostshort);
}

u_short ntohs(u_short netshort) {
    WINHOST_GATE_PASS("ntohs");
    return __builtin_bswap16(netshort);
}

u_long htonl(u_long hostlong) {
    WINHOST_GATE_PASS("htonl");
    return __builtin_bswap32(hostlong);
}

u_long ntohl(u_long netlong) {
    WINHOST_GATE_PASS("ntohl");
    return __builtin_bswap32(netlong);
}

// "a", "a.b", "a.b.c" or "a.b.c.d": the last number fills all bytes that remain.
u_long inet_addr(const char* cp) {
    WINHOST_GATE_PASS("inet_addr");
    if (!cp) return INADDR_NONE;
    if (cp[0] == ' ' && cp[1] == '\0') return INADDR_ANY;
    u_long bytes = 0;
    for (int parts = 0;; ++parts) {
        if (parts == 4 || !std::isdigit(static_cast<unsigned char>(*cp))) return INADDR_NONE;
        char* end;
        const unsigned long long value = std::strtoull(cp, &end, 0);
        const bool last = *end != '.';
        if (last) {
            const int remainingBits = 8 * (4 - parts);
            const bool ended = *end == '\0' || std::isspace(static_cast<unsigned char>(*end));
            if (!ended || value >> remainingBits) return INADDR_NONE;
            const unsigned long long shifted =
                parts == 0 ? 0 : static_cast<unsigned long long>(bytes) << remainingBits;
            return __builtin_bswap32(static_cast<u_long>(shifted | value));
        }
        if (value > 0xFF) return INADDR_NONE;
        bytes = bytes << 8 | static_cast<u_long>(value);
        cp = end + 1;
    }
}

char* inet_ntoa(in_addr in) {
    WINHOST_GATE_PASS("inet_ntoa");
    thread_local char text[16];
    const auto& bytes = in.S_un.S_un_b;
    std::snprintf(text, sizeof(text), "%u.%u.%u.%u", bytes.s_b1, bytes.s_b2, bytes.s_b3, bytes.s_b4);
    return text;
}
