// The thread of a mailbox handle that takes what comes from the firmware.
//
// It waits in the socket for the header of a frame, and takes the payload only when somebody is there for it:
// a message that nobody reads yet stays in the socket, which holds the firmware back. The payload goes
// straight into the buffer of the request.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "winhost/io/MailboxHandle.h"

namespace winhost {

using mpmlink::Header;
using mpmlink::Kind;

namespace {

// Blocks; false when the connection has ended or is shut down.
bool ReceiveHeader(int socket, Header& header) {
    auto* bytes = reinterpret_cast<char*>(&header);
    for (size_t done = 0; done < sizeof header;) {
        const ssize_t received = recv(socket, bytes + done, sizeof header - done, MSG_WAITALL);
        if (received < 0 && errno == EINTR) continue;
        if (received <= 0) return false;
        done += static_cast<size_t>(received);
    }
    return true;
}

bool IsWellFormed(const Header& header) {
    return header.size <= mpmlink::kMaxPayload &&
           (header.kind == Kind::Response || header.kind == Kind::Message);
}

// Buffers are filled for a success and for the warning that not all of the answer fitted; any other error has
// none.
bool BringsData(const Header& header) {
    return header.kind == Kind::Message || header.value == ERROR_SUCCESS || header.value == ERROR_MORE_DATA;
}

}  // namespace

void MailboxHandle::RunReader() {
    while (ReceiveFrame()) {
    }
    PendingList withdrawn;
    {
        std::lock_guard lock(m_mutex);
        // What is pending at a close is ended there.
        if (m_closed) return;
        m_peerGone = true;
        withdrawn = WithdrawAll();
    }
    shutdown(m_socket, SHUT_RDWR);
    for (Pending& entry : withdrawn)
        entry.request.Complete(ERROR_DEVICE_NOT_CONNECTED, 0);
}

// False when the connection has ended, or has to be ended because the peer does not keep to the protocol.
bool MailboxHandle::ReceiveFrame() {
    Header header;
    if (!ReceiveHeader(m_socket, header) || !IsWellFormed(header)) return false;
    PendingList withdrawn;
    DWORD error = header.kind == Kind::Message ? static_cast<DWORD>(ERROR_SUCCESS) : header.value;
    DWORD wanted = 0;
    {
        std::unique_lock lock(m_mutex);
        // Nobody would ever read it, and what comes behind it would wait for that.
        if (header.kind == Kind::Message && !m_listening) return false;
        m_taker = AwaitTaker(lock, header);
        if (m_closed) return false;
        if (m_taker != m_pending.end() && BringsData(header)) {
            wanted = std::min(header.size, m_taker->room);
            if (header.size > m_taker->room) error = ERROR_MORE_DATA;
        }
        if (!ReceivePayload(lock, header.size, wanted)) return false;
        if (m_taker != m_pending.end()) Withdraw(m_taker, withdrawn);
    }
    for (Pending& entry : withdrawn)
        entry.request.Complete(error, wanted);
    return true;
}

// The request that a frame is for: of a message the oldest read, which is waited for; of a response the one
// with its id, or end() when that has been cancelled.
MailboxHandle::PendingList::iterator MailboxHandle::AwaitTaker(std::unique_lock<std::mutex>& lock,
                                                               const Header& header) {
    auto taker = m_pending.end();
    if (header.kind == Kind::Response) {
        const auto isAnswered = [&](const Pending& entry) { return !entry.isRead && entry.id == header.id; };
        return std::find_if(m_pending.begin(), m_pending.end(), isAnswered);
    }
    m_readsChanged.wait(lock, [&] {
        taker = std::find_if(m_pending.begin(), m_pending.end(),
                             [](const Pending& entry) { return entry.isRead; });
        return m_closed || taker != m_pending.end();
    });
    return taker;
}

// Takes `size` bytes from the socket, the first `wanted` of them for m_taker as long as it is there. Lets go
// of the lock where it has to wait, so that the request can be cancelled.
bool MailboxHandle::ReceivePayload(std::unique_lock<std::mutex>& lock, DWORD size, DWORD wanted) {
    char dropped[4096];
    for (DWORD done = 0; done < size;) {
        const bool keep = done < wanted && m_taker != m_pending.end();
        char* const into = keep ? m_taker->buffer + done : dropped;
        const size_t room = keep ? wanted - done : std::min<size_t>(size - done, sizeof dropped);
        const ssize_t received = recv(m_socket, into, room, MSG_DONTWAIT);
        if (received > 0) {
            done += static_cast<DWORD>(received);
        } else if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            lock.unlock();
            pollfd readable{m_socket, POLLIN, 0};
            poll(&readable, 1, -1);
            lock.lock();
            if (m_closed) return false;
        } else if (received == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace winhost
