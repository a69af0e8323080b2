#include "winhost/pipe/PipeConnection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include <winerror.h>

namespace winhost {
namespace {

constexpr DWORD kSuccess = ERROR_SUCCESS;

bool IsReadable(int descriptor) {
    pollfd wait{descriptor, POLLIN, 0};
    return poll(&wait, 1, 0) > 0;
}

testbed::Descriptor NewCount() {
    return testbed::Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

// What both ends share, as the server sees it; the client hands it over in its greeting, which is one byte.
using Shared = std::array<int, 3>;
union GreetingControl {
    char bytes[CMSG_SPACE(sizeof(Shared))];
    cmsghdr alignment;
};

bool SendGreeting(int socket, const Shared& shared) {
    char greeting = 0;
    iovec data{&greeting, sizeof greeting};
    GreetingControl control{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof control.bytes;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof shared);
    std::memcpy(CMSG_DATA(header), &shared, sizeof shared);
    return sendmsg(socket, &message, MSG_NOSIGNAL) == sizeof greeting;
}

// None when the client has gone, or this process has no room for them.
std::vector<testbed::Descriptor> ReceiveGreeting(int socket) {
    char greeting = 0;
    iovec data{&greeting, sizeof greeting};
    GreetingControl control{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof control.bytes;
    std::vector<testbed::Descriptor> received;
    const ssize_t size = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    const cmsghdr* const header = size == sizeof greeting ? CMSG_FIRSTHDR(&message) : nullptr;
    if (!header || header->cmsg_type != SCM_RIGHTS) return received;
    for (size_t offset = 0; CMSG_LEN(offset + sizeof(int)) <= header->cmsg_len; offset += sizeof(int)) {
        int descriptor;
        std::memcpy(&descriptor, CMSG_DATA(header) + offset, sizeof descriptor);
        received.emplace_back(descriptor);
    }
    if (received.size() != std::tuple_size_v<Shared>) received.clear();
    return received;
}

}  // namespace

DWORD AwaitDescriptor(int descriptor, short events, const Interrupt& interrupt) {
    pollfd waits[] = {{descriptor, events, 0}, {interrupt.Get(), POLLIN, 0}};
    while (poll(waits, 2, -1) < 0 && errno == EINTR) {
    }
    return waits[1].revents ? static_cast<DWORD>(ERROR_OPERATION_ABORTED) : kSuccess;
}

std::unique_ptr<PipeConnection> PipeConnection::Offer(testbed::Descriptor socket, bool holdsMessages,
                                                      DWORD room) {
    std::unique_ptr<PipeConnection> made(new PipeConnection);
    made->m_socket = std::move(socket);
    made->m_readHere = NewCount();
    made->m_readThere = NewCount();
    made->m_disconnected = NewCount();
    made->m_holdsMessages = holdsMessages;
    made->m_room = room;
    if (!made->m_readHere || !made->m_readThere || !made->m_disconnected) return nullptr;
    const Shared shared{made->m_readThere.Get(), made->m_readHere.Get(), made->m_disconnected.Get()};
    return SendGreeting(made->m_socket.Get(), shared) ? std::move(made) : nullptr;
}

std::unique_ptr<PipeConnection> PipeConnection::Take(testbed::Descriptor socket, bool holdsMessages,
                                                     DWORD room) {
    std::vector<testbed::Descriptor> shared = ReceiveGreeting(socket.Get());
    if (shared.empty()) return nullptr;
    std::unique_ptr<PipeConnection> made(new PipeConnection);
    made->m_socket = std::move(socket);
    made->m_readHere = std::move(shared[0]);
    made->m_readThere = std::move(shared[1]);
    made->m_disconnected = std::move(shared[2]);
    made->m_isServer = true;
    made->m_holdsMessages = holdsMessages;
    made->m_room = room;
    return made;
}

// Shut down as well, because a process that is just being started may still hold a copy of the socket.
PipeConnection::~PipeConnection() {
    if (m_socket) shutdown(m_socket.Get(), SHUT_RDWR);
}

bool PipeConnection::PeerHasGone() const {
    pollfd wait{m_socket.Get(), POLLRDHUP, 0};
    return poll(&wait, 1, 0) > 0;
}

void PipeConnection::Disconnect() {
    eventfd_write(m_disconnected.Get(), 1);
    shutdown(m_socket.Get(), SHUT_RDWR);
}

bool PipeConnection::IsDisconnected() const {
    return !m_isServer && IsReadable(m_disconnected.Get());
}

// Why there is no more: the server says that it disconnects before it does.
DWORD PipeConnection::End() const {
    return IsDisconnected() ? ERROR_PIPE_NOT_CONNECTED : ERROR_BROKEN_PIPE;
}

// ---- reading ----

DWORD PipeConnection::Read(void* buffer, DWORD size, bool byMessage, DWORD& bytes,
                           const Interrupt& interrupt) {
    auto* const into = static_cast<char*>(buffer);
    return byMessage ? ReadMessage(into, size, bytes, interrupt) : ReadBytes(into, size, bytes, interrupt);
}

DWORD PipeConnection::AwaitData(const Interrupt& interrupt) {
    const DWORD error = AwaitDescriptor(m_socket.Get(), POLLIN, interrupt);
    return error == kSuccess && IsDisconnected() ? static_cast<DWORD>(ERROR_PIPE_NOT_CONNECTED) : error;
}

// Waits for the length of the next message. It was sent in one piece, and so it comes.
DWORD PipeConnection::BeginMessage(const Interrupt& interrupt) {
    for (;;) {
        if (const DWORD error = AwaitData(interrupt)) return error;
        DWORD length = 0;
        const ssize_t received = recv(m_socket.Get(), &length, sizeof length, 0);
        if (received < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (received != sizeof length) return End();
        m_left = length;
        return kSuccess;
    }
}

// Takes what is there, up to `size`, without waiting; 0 bytes when there is nothing.
DWORD PipeConnection::Receive(char* into, DWORD size, DWORD& received) {
    received = 0;
    if (size == 0) return kSuccess;
    const ssize_t result = recv(m_socket.Get(), into, size, 0);
    if (result < 0 && (errno == EINTR || errno == EAGAIN)) return kSuccess;
    // A peer that closed its end before it had read all of its own is a reset here.
    if (result <= 0) return End();
    received = static_cast<DWORD>(result);
    eventfd_write(m_readHere.Get(), received);
    return kSuccess;
}

DWORD PipeConnection::ReadMessage(char* buffer, DWORD size, DWORD& bytes, const Interrupt& interrupt) {
    if (!m_left)
        if (const DWORD error = BeginMessage(interrupt)) return error;
    while (bytes<size&& * m_left> 0) {
        DWORD received = 0;
        if (const DWORD error = AwaitData(interrupt)) return error;
        if (const DWORD error = Receive(buffer + bytes, std::min(size - bytes, *m_left), received))
            return error;
        bytes += received;
        *m_left -= received;
    }
    if (*m_left > 0) return ERROR_MORE_DATA;
    m_left.reset();
    return kSuccess;
}

// Waits for the first bytes only. Messages of no bytes are passed over.
DWORD PipeConnection::ReadBytes(char* buffer, DWORD size, DWORD& bytes, const Interrupt& interrupt) {
    do {
        DWORD received = 0;
        DWORD error = kSuccess;
        if (bytes > 0 && !IsReadable(m_socket.Get())) break;
        if (m_holdsMessages && !m_left) {
            error = BeginMessage(interrupt);
        } else if ((error = AwaitData(interrupt)) == kSuccess) {
            error = Receive(buffer + bytes, std::min(size - bytes, m_left.value_or(size)), received);
        }
        // What came before the end is told first.
        if (error != kSuccess) return bytes > 0 ? kSuccess : error;
        bytes += received;
        if (m_left && (*m_left -= received) == 0) m_left.reset();
    } while (bytes < size);
    return kSuccess;
}

// ---- writing ----

DWORD PipeConnection::Write(const void* data, DWORD size, DWORD& bytes, const Interrupt& interrupt) {
    if (IsDisconnected()) return ERROR_PIPE_NOT_CONNECTED;
    if (PeerHasGone()) return ERROR_NO_DATA;
    if (const DWORD error = Send(data, size, interrupt)) return error;
    m_unread += size;
    const DWORD error = AwaitReader(interrupt);
    if (error == kSuccess) bytes = size;
    return error;
}

DWORD PipeConnection::Send(const void* data, DWORD size, const Interrupt& interrupt) {
    DWORD length = size;
    iovec parts[] = {{&length, m_holdsMessages ? sizeof length : 0}, {const_cast<void*>(data), size}};
    size_t left = parts[0].iov_len + parts[1].iov_len;
    const size_t all = left;
    while (left > 0) {
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = 2;
        const ssize_t sent = sendmsg(m_socket.Get(), &message, MSG_NOSIGNAL);
        if (sent >= 0) {
            left -= static_cast<size_t>(sent);
            size_t passed = static_cast<size_t>(sent);
            for (iovec& part : parts) {
                const size_t step = std::min(passed, part.iov_len);
                part.iov_base = static_cast<char*>(part.iov_base) + step;
                part.iov_len -= step;
                passed -= step;
            }
        } else if (errno == EAGAIN) {
            DWORD error = AwaitDescriptor(m_socket.Get(), POLLOUT, interrupt);
            if (IsDisconnected()) error = ERROR_PIPE_NOT_CONNECTED;
            if (error == kSuccess) continue;
            // The peer could not tell the next message from the rest of this one.
            if (left < all) shutdown(m_socket.Get(), SHUT_RDWR);
            return error;
        } else if (errno != EINTR) {
            return IsDisconnected() ? ERROR_PIPE_NOT_CONNECTED
                   : left < all     ? ERROR_BROKEN_PIPE
                                    : ERROR_NO_DATA;
        }
    }
    return kSuccess;
}

void PipeConnection::CountWhatWasRead() {
    eventfd_t count = 0;
    if (eventfd_read(m_readThere.Get(), &count) == 0) m_unread -= std::min<uint64_t>(m_unread, count);
}

DWORD PipeConnection::AwaitReader(const Interrupt& interrupt) {
    for (;;) {
        pollfd waits[] = {
            {m_readThere.Get(), POLLIN, 0}, {m_socket.Get(), POLLRDHUP, 0}, {interrupt.Get(), POLLIN, 0}};
        CountWhatWasRead();
        if (m_unread <= m_room) return kSuccess;
        while (poll(waits, 3, -1) < 0 && errno == EINTR) {
        }
        // It may have read all before it went.
        CountWhatWasRead();
        if (m_unread <= m_room) return kSuccess;
        if (IsDisconnected()) return ERROR_PIPE_NOT_CONNECTED;
        if (waits[1].revents) return ERROR_BROKEN_PIPE;
        if (waits[2].revents) return ERROR_OPERATION_ABORTED;
    }
}

}  // namespace winhost
