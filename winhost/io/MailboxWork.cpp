// What the threads that wait for a mailbox handle do: they send what the socket had no room for, and take
// what comes from the firmware.
//
// The payload of a frame is taken only when a request is there for it: a message that nothing reads yet stays
// in the socket, which holds the firmware back, but for a few hundred bytes and what the shared memory has
// room for. The payload goes straight into the buffer of the request.
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "winhost/io/MailboxHandle.h"

namespace winhost {

using mpmlink::Kind;

namespace {

bool IsToBeTriedAgain(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

// Without interest in the socket it is left out, as its end would be reported all the same.
void MailboxHandle::Poll(const RealTime* until) {
    pollfd watched[] = {{m_interrupt.Get(), POLLIN, 0}, {-1, 0, 0}};
    {
        std::lock_guard lock(m_mutex);
        if (!m_ahead.empty() && !IsStalled()) return;
        watched[1].events = static_cast<short>((IsStalled() ? 0 : POLLIN) | (m_unsent.empty() ? 0 : POLLOUT));
        if (watched[1].events != 0) watched[1].fd = m_socket.Get();
    }
    timespec time{};
    if (until) {
        const auto left = std::max<std::chrono::nanoseconds>(*until - std::chrono::steady_clock::now(), {});
        time.tv_sec = static_cast<time_t>(left.count() / 1'000'000'000);
        time.tv_nsec = static_cast<long>(left.count() % 1'000'000'000);
    }
    ppoll(watched, 2, until ? &time : nullptr, nullptr);
    if (watched[0].revents != 0) m_interrupt.Clear();
}

void MailboxHandle::PassOn() {
    std::lock_guard lock(m_mutex);
    if (IsLed() || IsRetired()) return;
    for (Pending& entry : m_pending)
        if (entry.request.Nudge()) return;
}

// Ends the connection when the peer has ended it or does not keep to the protocol.
bool MailboxHandle::Work() {
    std::lock_guard working(m_working);
    PendingList withdrawn;
    DWORD error = ERROR_DEVICE_NOT_CONNECTED, bytes = 0;
    {
        std::lock_guard lock(m_mutex);
        if (IsRetired()) return false;
        SendKept();
        const Progress progress = ReceiveFrame();
        if (progress == Progress::NotYet) return false;
        if (progress == Progress::Done) {
            error = m_error;
            bytes = m_wanted;
            if (m_taker != m_pending.end()) Withdraw(m_taker, withdrawn);
            m_received = 0;
            m_isAddressed = false;
        } else {
            Retire();
            shutdown(m_socket.Get(), SHUT_RDWR);
            Wake();
            withdrawn = WithdrawAll();
        }
    }
    for (Pending& entry : withdrawn)
        entry.request.Complete(error, bytes);
    return true;
}

void MailboxHandle::SendKept() {
    while (!m_unsent.empty()) {
        std::string& frame = m_unsent.front();
        const ssize_t sent = send(m_socket.Get(), frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0) {
            // That the peer has gone is found by receiving.
            if (!IsToBeTriedAgain(errno)) m_unsent.clear();
            return;
        }
        frame.erase(0, static_cast<size_t>(sent));
        if (frame.empty()) m_unsent.pop_front();
    }
}

// What comes behind the bytes that are wanted is received with them and kept, so that a short frame takes one
// system call.
MailboxHandle::Progress MailboxHandle::ReceiveSome(void* into, size_t room) {
    if (m_ahead.empty()) {
        iovec parts[] = {{into, room}, {m_buffer, sizeof m_buffer}};
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = room < sizeof m_buffer ? 2 : 1;
        const ssize_t result = recvmsg(m_socket.Get(), &message, MSG_DONTWAIT);
        if (result <= 0) return result < 0 && IsToBeTriedAgain(errno) ? Progress::NotYet : Progress::Broken;
        const auto received = static_cast<size_t>(result);
        if (received > room) m_ahead = {m_buffer, received - room};
        m_received += std::min(received, room);
    } else {
        const size_t size = m_ahead.copy(static_cast<char*>(into), room);
        m_ahead.remove_prefix(size);
        m_received += size;
    }
    return Progress::Done;
}

// Goes on with the frame that is on its way.
MailboxHandle::Progress MailboxHandle::ReceiveFrame() {
    Progress progress = Progress::Done;
    while (progress == Progress::Done && m_received < sizeof m_header)
        progress = ReceiveSome(reinterpret_cast<char*>(&m_header) + m_received, sizeof m_header - m_received);
    if (progress != Progress::Done) return progress;
    if (!IsWellFormed()) return Progress::Broken;
    if (!m_isAddressed && !FindTaker()) return Progress::NotYet;
    char dropped[4096];
    while (progress == Progress::Done && m_received < sizeof m_header + m_header.size) {
        const size_t done = m_received - sizeof m_header;
        progress = done < m_wanted && m_taker != m_pending.end()
                       ? ReceiveSome(m_taker->buffer + done, m_wanted - done)
                       : ReceiveSome(dropped, std::min(m_header.size - done, sizeof dropped));
    }
    return progress;
}

// A message that comes before the first read would be read by nothing, and what comes behind it would wait
// for that.
bool MailboxHandle::IsWellFormed() const {
    switch (m_header.kind) {
        case Kind::Response:
            return m_header.size <= mpmlink::kMaxPayload;
        case Kind::Message:
            return m_header.size <= mpmlink::kMaxPayload && m_isListening;
        case Kind::LargeMessage:
            return m_header.size == 0 && m_header.value <= mpmlink::kMaxPayload && m_isListening &&
                   !BytesInMemory().empty();
        default:
            return false;
    }
}

std::span<const uint8_t> MailboxHandle::BytesInMemory() const {
    if (!m_memory || !*m_memory) return {};
    return (*m_memory)->toHost.Get(m_header.id, m_header.value);
}

// Finds the request that the frame is for: of a message the oldest read, of a response the one with its id,
// unless that was cancelled. False for a message that has to wait for a read.
bool MailboxHandle::FindTaker() {
    const bool isMessage = m_header.kind != Kind::Response;
    m_taker = std::find_if(m_pending.begin(), m_pending.end(), [&](const Pending& entry) {
        return isMessage ? entry.IsRead() : !entry.IsRead() && entry.id == m_header.id;
    });
    if (isMessage && m_taker == m_pending.end()) return false;
    m_isAddressed = true;
    m_error = isMessage ? static_cast<DWORD>(ERROR_SUCCESS) : m_header.value;
    m_wanted = 0;
    if (m_taker == m_pending.end()) return true;
    // Buffers are filled for a success and for the warning that not all of the answer fitted; any other error
    // brings nothing.
    if (m_error == ERROR_SUCCESS || m_error == ERROR_MORE_DATA) {
        const bool isInMemory = m_header.kind == Kind::LargeMessage;
        const DWORD size = isInMemory ? m_header.value : m_header.size;
        m_wanted = std::min(size, m_taker->room);
        if (size > m_taker->room) m_error = ERROR_MORE_DATA;
        if (isInMemory) {
            if (m_wanted != 0) std::memcpy(m_taker->buffer, BytesInMemory().data(), m_wanted);
            (*m_memory)->toHost.Release(m_header.id, size);
        }
    }
    return true;
}

}  // namespace winhost
