#include "testbed/Sockets.h"

#include <netinet/in.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

namespace testbed {
namespace {

bool ToAddress(const std::string& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    errno = ENAMETOOLONG;
    if (path.empty() || path.size() >= sizeof address.sun_path) return false;
    path.copy(address.sun_path, path.size());
    return true;
}

// Keeps errno over the closing of the descriptor.
Descriptor Failed(Descriptor& socket) {
    const int error = errno;
    socket.Close();
    errno = error;
    return {};
}

// A message with room for one descriptor. The kernel closes those that do not fit, and counts the padding of
// CMSG_SPACE as room.
struct MessageWithFile {
    MessageWithFile(void* bytes, size_t size) : part{bytes, size} {
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = CMSG_LEN(sizeof(int));
    }
    cmsghdr& Header() { return *reinterpret_cast<cmsghdr*>(control); }

    iovec part;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
};

sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

template <class Address>
bool Bind(const Descriptor& socket, const Address& address) {
    return bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

template <class Address>
bool Connect(const Descriptor& socket, const Address& address) {
    return connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

Descriptor ConnectUnix(const std::string& path, int type) {
    sockaddr_un address;
    if (!ToAddress(path, address)) return {};
    Descriptor made(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    return made && Connect(made, address) ? std::move(made) : Failed(made);
}

Descriptor ListenUnix(const std::string& path, int backlog, int type) {
    sockaddr_un address;
    if (!ToAddress(path, address)) return {};
    Descriptor made(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    bool bound = made && Bind(made, address);
    if (made && !bound && errno == EADDRINUSE && IsAbandonedSocket(path, type)) {
        unlink(path.c_str());
        bound = Bind(made, address);
    }
    return bound && listen(made.Get(), backlog) == 0 ? std::move(made) : Failed(made);
}

bool IsAbandonedSocket(const std::string& path, int type) {
    const int error = errno;
    struct stat left;
    // Without SOCK_NONBLOCK a listener whose queue is full would block the attempt.
    const bool abandoned = lstat(path.c_str(), &left) == 0 && S_ISSOCK(left.st_mode) &&
                           !ConnectUnix(path, type | SOCK_NONBLOCK) && errno == ECONNREFUSED;
    errno = error;
    return abandoned;
}

Descriptor ConnectTcp(uint16_t port) {
    Descriptor made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return made && Connect(made, Loopback(port)) ? std::move(made) : Failed(made);
}

Descriptor ListenTcp(uint16_t port, int backlog) {
    Descriptor made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const bool listens = made && Bind(made, Loopback(port)) && listen(made.Get(), backlog) == 0;
    return listens ? std::move(made) : Failed(made);
}

uint16_t PortOf(const Descriptor& socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

bool SendAll(const Descriptor& socket, const void* bytes, size_t size) {
    for (size_t done = 0; done < size;) {
        const ssize_t sent =
            send(socket.Get(), static_cast<const char*>(bytes) + done, size - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        done += static_cast<size_t>(sent);
    }
    return true;
}

bool SendWithFile(const Descriptor& socket, const void* bytes, size_t size, const Descriptor& file) {
    MessageWithFile out(const_cast<void*>(bytes), size);
    if (file) {
        out.Header().cmsg_len = CMSG_LEN(sizeof(int));
        out.Header().cmsg_level = SOL_SOCKET;
        out.Header().cmsg_type = SCM_RIGHTS;
        const int number = file.Get();
        std::memcpy(CMSG_DATA(&out.Header()), &number, sizeof number);
    } else {
        out.message.msg_controllen = 0;
    }
    return sendmsg(socket.Get(), &out.message, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

ssize_t ReceiveWithFile(const Descriptor& socket, void* bytes, size_t size, Descriptor& file) {
    MessageWithFile in(bytes, size);
    const ssize_t received = recvmsg(socket.Get(), &in.message, MSG_CMSG_CLOEXEC);
    if (received > 0 && in.message.msg_controllen >= CMSG_LEN(sizeof(int)) &&
        in.Header().cmsg_type == SCM_RIGHTS) {
        int number = -1;
        std::memcpy(&number, CMSG_DATA(&in.Header()), sizeof number);
        file = Descriptor(number);
    }
    return received;
}

bool IsUnix(const Descriptor& socket) {
    int domain = 0;
    socklen_t size = sizeof domain;
    return getsockopt(socket.Get(), SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

size_t ReceiveAll(const Descriptor& socket, void* bytes, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t received = recv(socket.Get(), static_cast<char*>(bytes) + done, size - done, 0);
        if (received < 0 && errno == EINTR) continue;
        if (received <= 0) break;
        done += static_cast<size_t>(received);
    }
    return done;
}

}  // namespace testbed
