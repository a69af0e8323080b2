// The Winsock calls over the objects of Socket.h.
#include <winsock2.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <set>
#include <vector>

#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/net/Socket.h"
#include "winhost/pc/Pc.h"

using winhost::Endpoint;
using winhost::HandleTable;
using winhost::Socket;

namespace {

constexpr WORD kHighestVersion = MAKEWORD(2, 2);

// The references that the process holds on Winsock, and the sockets that the last of them takes along.
class Library {
  public:
    // Never destroyed: detached threads use their sockets until the process is gone.
    static Library& Instance() {
        static Library& library = *new Library;
        return library;
    }

    bool IsStarted() const { return m_references.load(std::memory_order_relaxed) > 0; }

    void Start() {
        std::lock_guard lock(m_mutex);
        ++m_references;
    }

    bool CleanUp() {
        std::set<SOCKET> sockets;
        {
            std::lock_guard lock(m_mutex);
            if (m_references == 0) return false;
            if (--m_references == 0) sockets.swap(m_sockets);
        }
        for (const SOCKET s : sockets)
            HandleTable::Instance().Close<Socket>(reinterpret_cast<HANDLE>(s));
        return true;
    }

    SOCKET Add(std::shared_ptr<Socket> object) {
        const auto s = reinterpret_cast<SOCKET>(HandleTable::Instance().Add(std::move(object)));
        if (s == 0) return INVALID_SOCKET;
        std::lock_guard lock(m_mutex);
        m_sockets.insert(s);
        return s;
    }

    bool Close(SOCKET s) {
        {
            std::lock_guard lock(m_mutex);
            m_sockets.erase(s);
        }
        return HandleTable::Instance().Close<Socket>(reinterpret_cast<HANDLE>(s));
    }

  private:
    std::atomic<int> m_references{0};
    std::mutex m_mutex;
    std::set<SOCKET> m_sockets;
};

template <class Failure>
Failure Fail(int error, Failure failure) {
    WSASetLastError(error);
    return failure;
}

// The Winsock error for an errno that a call on a TCP socket over IPv4 can give.
int WinsockError(int posixError) {
    constexpr struct {
        int posix, winsock;
    } kErrors[] = {
        {EINTR, WSAEINTR},
        {EBADF, WSAENOTSOCK},
        {ENOTSOCK, WSAENOTSOCK},
        {EACCES, WSAEACCES},
        {EPERM, WSAEACCES},
        {EFAULT, WSAEFAULT},
        {EINVAL, WSAEINVAL},
        {EMFILE, WSAEMFILE},
        {ENFILE, WSAEMFILE},
        {EAGAIN, WSAEWOULDBLOCK},
        {EINPROGRESS, WSAEWOULDBLOCK},
        {EADDRINUSE, WSAEADDRINUSE},
        {EADDRNOTAVAIL, WSAEADDRNOTAVAIL},
        {ENETUNREACH, WSAENETUNREACH},
        {EPIPE, WSAECONNABORTED},
        {ECONNABORTED, WSAECONNABORTED},
        {ECONNRESET, WSAECONNRESET},
        {ENOBUFS, WSAENOBUFS},
        {ENOMEM, WSAENOBUFS},
        {EISCONN, WSAEISCONN},
        {ENOTCONN, WSAENOTCONN},
        {ESHUTDOWN, WSAESHUTDOWN},
        {ETIMEDOUT, WSAETIMEDOUT},
        {ECONNREFUSED, WSAECONNREFUSED},
        {EHOSTUNREACH, WSAEHOSTUNREACH},
    };
    for (const auto& error : kErrors)
        if (error.posix == posixError) return error.winsock;
    // What a protocol failure without a number of its own is called.
    return WSAENETDOWN;
}

// Null, with the error set, for a value that is no socket's.
std::shared_ptr<Socket> Find(SOCKET s) {
    if (!Library::Instance().IsStarted()) return Fail(WSANOTINITIALISED, nullptr);
    auto object = HandleTable::Instance().Find<Socket>(reinterpret_cast<HANDLE>(s));
    if (!object) WSASetLastError(WSAENOTSOCK);
    return object;
}

// What a call answers for 0, a count or a negative errno.
int Answer(int result) {
    return result >= 0 ? result : Fail(WinsockError(-result), SOCKET_ERROR);
}

SOCKET AddOrFail(std::shared_ptr<Socket> object) {
    const SOCKET s = Library::Instance().Add(std::move(object));
    return s != INVALID_SOCKET ? s : Fail(WSAEMFILE, INVALID_SOCKET);
}

// 0, or the error of a name that isn't an IPv4 one.
int ReadName(const sockaddr* name, int length, Endpoint& endpoint) {
    if (!name || length < static_cast<int>(sizeof(sockaddr_in))) return WSAEFAULT;
    sockaddr_in address;
    std::memcpy(&address, name, sizeof(address));
    if (address.sin_family != AF_INET) return WSAEAFNOSUPPORT;
    endpoint = {address.sin_addr.s_addr, address.sin_port};
    return 0;
}

void WriteName(Endpoint endpoint, sockaddr* name, int* length) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = endpoint.port;
    address.sin_addr.s_addr = endpoint.address;
    std::memcpy(name, &address, sizeof(address));
    *length = sizeof(address);
}

// False for a time that is none.
bool ReadTimeout(const timeval* timeout, winhost::Clock::Deadline& deadline) {
    deadline = winhost::Clock::kNever;
    if (!timeout) return true;
    if (timeout->tv_sec < 0 || timeout->tv_usec < 0) return false;
    deadline = winhost::Clock::Instance().Steady() + std::chrono::seconds(timeout->tv_sec) +
               std::chrono::microseconds(timeout->tv_usec);
    return true;
}

bool HasRoomForName(const sockaddr* name, const int* length) {
    return name && length && *length >= static_cast<int>(sizeof(sockaddr_in));
}

}  // namespace

int WSAStartup(WORD wVersionRequested, LPWSADATA lpWSAData) {
    WINHOST_GATE_CODE("WSAStartup");
    if (LOBYTE(wVersionRequested) == 0) return WSAVERNOTSUPPORTED;
    if (!lpWSAData) return WSAEFAULT;
    winhost::Pc::Instance().Record(
        winhost::CallArgument{"WSAStartup", "wVersionRequested", wVersionRequested});
    const WORD major = LOBYTE(wVersionRequested), minor = HIBYTE(wVersionRequested);
    *lpWSAData = {};
    lpWSAData->wVersion = major < 2 || (major == 2 && minor < 2) ? wVersionRequested : kHighestVersion;
    lpWSAData->wHighVersion = kHighestVersion;
    std::strcpy(lpWSAData->szDescription, "WinSock 2.0");
    std::strcpy(lpWSAData->szSystemStatus, "Running");
    Library::Instance().Start();
    return 0;
}

int WSACleanup() {
    WINHOST_GATE("WSACleanup", SOCKET_ERROR);
    return Library::Instance().CleanUp() ? 0 : Fail(WSANOTINITIALISED, SOCKET_ERROR);
}

int WSAGetLastError() {
    return static_cast<int>(GetLastError());
}

void WSASetLastError(int iError) {
    SetLastError(static_cast<DWORD>(iError));
}

SOCKET socket(int af, int type, int protocol) {
    WINHOST_GATE("socket", INVALID_SOCKET);
    if (!Library::Instance().IsStarted()) return Fail(WSANOTINITIALISED, INVALID_SOCKET);
    if (af != AF_INET) return Fail(WSAEAFNOSUPPORT, INVALID_SOCKET);
    if (type != SOCK_STREAM) return Fail(WSAESOCKTNOSUPPORT, INVALID_SOCKET);
    if (protocol != 0 && protocol != IPPROTO_TCP) return Fail(WSAEPROTONOSUPPORT, INVALID_SOCKET);
    auto object = Socket::Open();
    if (!object) return Fail(WinsockError(errno), INVALID_SOCKET);
    return AddOrFail(std::move(object));
}

int bind(SOCKET s, const sockaddr* name, int namelen) {
    WINHOST_GATE("bind", SOCKET_ERROR);
    const auto object = Find(s);
    if (!object) return SOCKET_ERROR;
    Endpoint endpoint;
    if (const int error = ReadName(name, namelen, endpoint)) return Fail(error, SOCKET_ERROR);
    return Answer(object->Bind(endpoint));
}

int listen(SOCKET s, int backlog) {
    WINHOST_GATE("listen", SOCKET_ERROR);
    const auto object = Find(s);
    return object ? Answer(object->Listen(backlog)) : SOCKET_ERROR;
}

SOCKET accept(SOCKET s, sockaddr* addr, int* addrlen) {
    WINHOST_GATE("accept", INVALID_SOCKET);
    const auto listener = Find(s);
    if (!listener) return INVALID_SOCKET;
    const bool wantsPeer = addr || addrlen;
    if (wantsPeer && !HasRoomForName(addr, addrlen)) return Fail(WSAEFAULT, INVALID_SOCKET);
    std::shared_ptr<Socket> accepted;
    Endpoint peer;
    if (Answer(listener->Accept(accepted, peer)) != 0) return INVALID_SOCKET;
    if (wantsPeer) WriteName(peer, addr, addrlen);
    return AddOrFail(std::move(accepted));
}

int connect(SOCKET s, const sockaddr* name, int namelen) {
    WINHOST_GATE("connect", SOCKET_ERROR);
    const auto object = Find(s);
    if (!object) return SOCKET_ERROR;
    Endpoint peer;
    if (const int error = ReadName(name, namelen, peer)) return Fail(error, SOCKET_ERROR);
    return Answer(object->Connect(peer));
}

int ioctlsocket(SOCKET s, LONG cmd, u_long* argp) {
    WINHOST_GATE("ioctlsocket", SOCKET_ERROR);
    const auto object = Find(s);
    if (!object) return SOCKET_ERROR;
    if (cmd != static_cast<LONG>(FIONBIO)) return Fail(WSAEINVAL, SOCKET_ERROR);
    if (!argp) return Fail(WSAEFAULT, SOCKET_ERROR);
    return Answer(object->SetNonBlocking(*argp != 0));
}

int recv(SOCKET s, char* buf, int len, int flags) {
    WINHOST_GATE("recv", SOCKET_ERROR);
    const auto object = Find(s);
    if (!object) return SOCKET_ERROR;
    if (flags != 0 && flags != MSG_PEEK) return Fail(WSAEOPNOTSUPP, SOCKET_ERROR);
    if (len < 0) return Fail(WSAEFAULT, SOCKET_ERROR);
    return Answer(object->Receive(buf, static_cast<size_t>(len), flags == MSG_PEEK));
}

int select(int, fd_set* readfds, fd_set* writefds, fd_set* exceptfds, const timeval* timeout) {
    WINHOST_GATE("select", SOCKET_ERROR);
    if (writefds || exceptfds) return Fail(WSAEOPNOTSUPP, SOCKET_ERROR);
    winhost::Clock::Deadline deadline;
    if (!readfds || readfds->fd_count == 0 || readfds->fd_count > FD_SETSIZE ||
        !ReadTimeout(timeout, deadline))
        return Fail(WSAEINVAL, SOCKET_ERROR);
    const std::vector<SOCKET> asked(readfds->fd_array, readfds->fd_array + readfds->fd_count);
    std::vector<std::shared_ptr<Socket>> objects;
    for (const SOCKET s : asked) {
        objects.push_back(Find(s));
        if (!objects.back()) return SOCKET_ERROR;
    }
    std::vector<bool> isReadable;
    const int count = Answer(Socket::AwaitReadable(objects, deadline, isReadable));
    if (count == SOCKET_ERROR) return SOCKET_ERROR;
    readfds->fd_count = 0;
    for (size_t i = 0; i < asked.size(); ++i) {
        if (isReadable[i]) readfds->fd_array[readfds->fd_count++] = asked[i];
    }
    return count;
}

int send(SOCKET s, const char* buf, int len, int flags) {
    WINHOST_GATE("send", SOCKET_ERROR);
    const auto object = Find(s);
    if (!object) return SOCKET_ERROR;
    if (flags != 0) return Fail(WSAEOPNOTSUPP, SOCKET_ERROR);
    if (len < 0) return Fail(WSAEFAULT, SOCKET_ERROR);
    return Answer(object->Send(buf, static_cast<size_t>(len)));
}

int shutdown(SOCKET s, int how) {
    WINHOST_GATE("shutdown", SOCKET_ERROR);
    const auto object = Find(s);
    return object ? Answer(object->Shutdown(how)) : SOCKET_ERROR;
}

int closesocket(SOCKET s) {
    WINHOST_GATE("closesocket", SOCKET_ERROR);
    if (!Library::Instance().IsStarted()) return Fail(WSANOTINITIALISED, SOCKET_ERROR);
    return Library::Instance().Close(s) ? 0 : Fail(WSAENOTSOCK, SOCKET_ERROR);
}

int getsockname(SOCKET s, sockaddr* name, int* namelen) {
    WINHOST_GATE("getsockname", SOCKET_ERROR);
    const auto object = Find(s);
    if (!object) return SOCKET_ERROR;
    if (!HasRoomForName(name, namelen)) return Fail(WSAEFAULT, SOCKET_ERROR);
    Endpoint endpoint;
    const int result = object->LocalName(endpoint);
    if (result == 0) WriteName(endpoint, name, namelen);
    return Answer(result);
}

int gethostname(char* name, int namelen) {
    WINHOST_GATE("gethostname", SOCKET_ERROR);
    if (!Library::Instance().IsStarted()) return Fail(WSANOTINITIALISED, SOCKET_ERROR);
    const std::string own = winhost::Pc::Instance().Description().computerName;
    if (!name || namelen < 0 || static_cast<size_t>(namelen) <= own.size())
        return Fail(WSAEFAULT, SOCKET_ERROR);
    std::memcpy(name, own.c_str(), own.size() + 1);
    return 0;
}
