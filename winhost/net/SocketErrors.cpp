#include "winhost/net/SocketErrors.h"

#include <winsock2.h>

#include <cerrno>

namespace winhost {

int WinsockError(int posixError) {
    switch (posixError) {
        case EINTR:
            return WSAEINTR;
        case EBADF:
            return WSAENOTSOCK;
        case EACCES:
        case EPERM:
            return WSAEACCES;
        case EFAULT:
            return WSAEFAULT;
        case EINVAL:
            return WSAEINVAL;
        case EMFILE:
        case ENFILE:
            return WSAEMFILE;
        case EAGAIN:
        case EINPROGRESS:
            return WSAEWOULDBLOCK;
        case EALREADY:
            return WSAEALREADY;
        case ENOTSOCK:
            return WSAENOTSOCK;
        case EDESTADDRREQ:
            return WSAEDESTADDRREQ;
        case EMSGSIZE:
            return WSAEMSGSIZE;
        case EPROTOTYPE:
            return WSAEPROTOTYPE;
        case EPROTONOSUPPORT:
            return WSAEPROTONOSUPPORT;
        case ESOCKTNOSUPPORT:
            return WSAESOCKTNOSUPPORT;
        case EOPNOTSUPP:
            return WSAEOPNOTSUPP;
        case EAFNOSUPPORT:
            return WSAEAFNOSUPPORT;
        case EADDRINUSE:
            return WSAEADDRINUSE;
        case EADDRNOTAVAIL:
            return WSAEADDRNOTAVAIL;
        case ENETDOWN:
            return WSAENETDOWN;
        case ENETUNREACH:
            return WSAENETUNREACH;
        case EPIPE:
        case ECONNABORTED:
            return WSAECONNABORTED;
        case ECONNRESET:
            return WSAECONNRESET;
        case ENOBUFS:
        case ENOMEM:
            return WSAENOBUFS;
        case EISCONN:
            return WSAEISCONN;
        case ENOTCONN:
            return WSAENOTCONN;
        case ESHUTDOWN:
            return WSAESHUTDOWN;
        case ETIMEDOUT:
            return WSAETIMEDOUT;
        case ECONNREFUSED:
            return WSAECONNREFUSED;
        case EHOSTDOWN:
            return WSAEHOSTDOWN;
        case EHOSTUNREACH:
            return WSAEHOSTUNREACH;
        // What a protocol failure without a number of its own is called.
        default:
            return WSAENETDOWN;
    }
}

}  // namespace winhost
