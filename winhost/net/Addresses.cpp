// Byte order, and IPv4 addresses as text.
#include <winsock2.h>

#include <bit>
#include <cstdio>

#include "winhost/core/Gate.h"
#include "winhost/net/NetworkSource.h"

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

u_long inet_addr(const char* cp) {
    WINHOST_GATE_PASS("inet_addr");
    if (!cp) return INADDR_NONE;
    if (cp[0] == ' ' && cp[1] == '\0') return INADDR_ANY;
    return winhost::ParseAddress(cp).value_or(INADDR_NONE);
}

char* inet_ntoa(in_addr in) {
    WINHOST_GATE_PASS("inet_ntoa");
    thread_local char text[16];
    const auto& bytes = in.S_un.S_un_b;
    std::snprintf(text, sizeof(text), "%u.%u.%u.%u", bytes.s_b1, bytes.s_b2, bytes.s_b3, bytes.s_b4);
    return text;
}
