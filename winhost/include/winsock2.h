// Winsock: the calls over IPv4 streams that the product makes. They are declared with C++ linkage, so that
// none of them is the POSIX function of the same name; a source file never includes both this and
// <sys/socket.h>.
#pragma once

// For u_char, u_short and u_int, and so that the u_long of 64 bits in there is out of the way of the one
// below.
#include <sys/types.h>

#include <windows.h>

#define WSAAPI WINAPI
// Has 32 bits on Windows.
#define u_long ULONG

typedef UINT_PTR SOCKET;
#define INVALID_SOCKET (SOCKET)(~0)
#define SOCKET_ERROR (-1)

#define WSADESCRIPTION_LEN 256
#define WSASYS_STATUS_LEN 128
typedef struct WSAData {
    WORD wVersion;
    WORD wHighVersion;
    unsigned short iMaxSockets;
    unsigned short iMaxUdpDg;
    char* lpVendorInfo;
    char szDescription[WSADESCRIPTION_LEN + 1];
    char szSystemStatus[WSASYS_STATUS_LEN + 1];
} WSADATA, *LPWSADATA;

typedef struct in_addr {
    union {
        struct {
            u_char s_b1, s_b2, s_b3, s_b4;
        } S_un_b;
        struct {
            u_short s_w1, s_w2;
        } S_un_w;
        u_long S_addr;
    } S_un;
} IN_ADDR;
#define s_addr S_un.S_addr

struct sockaddr {
    u_short sa_family;
    char sa_data[14];
};
struct sockaddr_in {
    short sin_family;
    u_short sin_port;
    struct in_addr sin_addr;
    char sin_zero[8];
};

#define AF_UNSPEC 0
#define AF_INET 2
#define SOCK_STREAM 1
#define IPPROTO_TCP 6
#define INADDR_ANY (u_long)0x00000000
#define INADDR_LOOPBACK 0x7f000001
#define INADDR_NONE 0xffffffff
#define SD_RECEIVE 0
#define SD_SEND 1
#define SD_BOTH 2
#define FIONBIO 0x8004667EU
#define MSG_PEEK 0x2

#ifndef WSABASEERR
#define WSABASEERR 10000
#define WSAEINTR 10004L
#define WSAEACCES 10013L
#define WSAEFAULT 10014L
#define WSAEINVAL 10022L
#define WSAEMFILE 10024L
#define WSAEWOULDBLOCK 10035L
#define WSAENOTSOCK 10038L
#define WSAEPROTONOSUPPORT 10043L
#define WSAESOCKTNOSUPPORT 10044L
#define WSAEOPNOTSUPP 10045L
#define WSAEAFNOSUPPORT 10047L
#define WSAEADDRINUSE 10048L
#define WSAEADDRNOTAVAIL 10049L
#define WSAENETDOWN 10050L
#define WSAENETUNREACH 10051L
#define WSAECONNABORTED 10053L
#define WSAECONNRESET 10054L
#define WSAENOBUFS 10055L
#define WSAEISCONN 10056L
#define WSAENOTCONN 10057L
#define WSAESHUTDOWN 10058L
#define WSAETIMEDOUT 10060L
#define WSAECONNREFUSED 10061L
#define WSAEHOSTUNREACH 10065L
#define WSASYSNOTREADY 10091L
#define WSAVERNOTSUPPORTED 10092L
#define WSANOTINITIALISED 10093L
#endif

int WSAAPI WSAStartup(WORD wVersionRequested, LPWSADATA lpWSAData);
int WSAAPI WSACleanup();
int WSAAPI WSAGetLastError();
void WSAAPI WSASetLastError(int iError);

SOCKET WSAAPI socket(int af, int type, int protocol);
int WSAAPI bind(SOCKET s, const struct sockaddr* name, int namelen);
int WSAAPI listen(SOCKET s, int backlog);
SOCKET WSAAPI accept(SOCKET s, struct sockaddr* addr, int* addrlen);
int WSAAPI connect(SOCKET s, const struct sockaddr* name, int namelen);
int WSAAPI ioctlsocket(SOCKET s, LONG cmd, u_long* argp);
int WSAAPI recv(SOCKET s, char* buf, int len, int flags);
int WSAAPI send(SOCKET s, const char* buf, int len, int flags);
int WSAAPI shutdown(SOCKET s, int how);
int WSAAPI closesocket(SOCKET s);
int WSAAPI getsockname(SOCKET s, struct sockaddr* name, int* namelen);

u_short WSAAPI htons(u_short hostshort);
u_short WSAAPI ntohs(u_short netshort);
u_long WSAAPI htonl(u_long hostlong);
u_long WSAAPI ntohl(u_long netlong);
// INADDR_NONE for what is no address. Takes one to four numbers, decimal, octal or hexadecimal.
u_long WSAAPI inet_addr(const char* cp);
// The text belongs to the calling thread and lives until its next call.
char* WSAAPI inet_ntoa(struct in_addr in);

// By another name, as POSIX has a function that differs in the type of the size alone. That one is declared
// ahead of it, so that it keeps its own.
#include <unistd.h>
#define gethostname WinsockGetHostName
// The PC's name. WSAEFAULT when it has no room, WSANOTINITIALISED ahead of WSAStartup.
int WSAAPI gethostname(char* name, int namelen);

// By other names too, as <sys/types.h> brings POSIX' set of descriptors, and struct timeval with it.
#undef FD_SETSIZE
#define FD_SETSIZE 64
struct WinsockFdSet {
    u_int fd_count;
    SOCKET fd_array[FD_SETSIZE];
};
#define fd_set WinsockFdSet
#define select WinsockSelect
// Waits for sockets to read from alone: WSAEOPNOTSUPP with one of the other two sets. The time-out passes on
// the PC's clock. WSAENOTSOCK when a socket of the set is none, or is closed during the wait.
int WSAAPI select(int nfds, fd_set* readfds, fd_set* writefds, fd_set* exceptfds,
                  const struct timeval* timeout);
