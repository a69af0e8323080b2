#include "winhost/pipe/PipeConnection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <winerror.h>

#include "winhost/core/CallingThread.h"

namespace winhost {
namespace {

constexpr DWORD kSuccess = ERROR_SUCCESS;
// With the bytes that a write may leave unread these fit into the socket, and a last packet after them.
constexpr uint32_t kMostUnreadMessages = 64;
constexpr int kSendBuffer = 1 << 20;

}  // namespace

DWORD AwaitInput(int descriptor, const Interrupt& interrupt) {
    CallingThread* thread = TerminableThread();
    pollfd waits[] = {{descriptor, POLLIN, 0},
                      {interrupt.Get(), POLLIN, 0},
                      {thread ? thread->EndDescriptor() : -1, POLLIN, 0}};
    while (poll(waits, 3, -1) < 0 && errno == EINTR) {
    }
    return waits[1].revents || waits[2].revents ? static_cast<DWORD>(ERROR_OPERATION_ABORTED) : kSuccess;
}

PipeConnection::PipeConnection(testbed::Descriptor socket, DWORD room)
    : m_socket(std::move(socket)), m_room(room), m_packet(kLongestMessage + 1), m_end(kSuccess) {
    setsockopt(m_socket.Get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
}

// Shut down as well, because a process that is just being started may still hold a copy of the socket.
PipeConnection::~PipeConnection() {
    shutdown(m_socket.Get(), SHUT_RDWR);
}

// Takes what has come, without waiting.
void PipeConnection::Receive() {
    while (m_end == kSuccess) {
        const ssize_t size = recv(m_socket.Get(), m_packet.data(), m_packet.size(), MSG_DONTWAIT);
        if (size > 0) {
            Take(m_packet.data(), static_cast<size_t>(size));
        } else if (size == 0) {
            m_end = ERROR_BROKEN_PIPE;
        } else if (errno == EAGAIN) {
            return;
        }
        // A peer that has not read all of its own is reported once as a reset, ahead of what it has sent.
    }
}

void PipeConnection::Take(const char* packet, size_t size) {
    const Kind kind{packet[0]};
    if (kind == Kind::Message) {
        m_messages.emplace_back(packet + 1, size - 1);
    } else if (kind == Kind::Progress && size == 1 + sizeof(Progress)) {
        Progress progress;
        std::memcpy(&progress, packet + 1, sizeof progress);
        m_unread.bytes -= std::min(m_unread.bytes, progress.bytes);
        m_unread.messages -= std::min(m_unread.messages, progress.messages);
    } else if (kind == Kind::Disconnect) {
        m_messages.clear();
        m_end = ERROR_PIPE_NOT_CONNECTED;
    }
}

bool PipeConnection::Send(Kind kind, const void* data, size_t size) {
    iovec parts[] = {{&kind, sizeof kind}, {const_cast<void*>(data), size}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    ssize_t sent;
    do {
        sent = sendmsg(m_socket.Get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

bool PipeConnection::PeerHasGone() {
    Receive();
    return m_end == ERROR_BROKEN_PIPE;
}

void PipeConnection::Disconnect() {
    Send(Kind::Disconnect, nullptr, 0);
    shutdown(m_socket.Get(), SHUT_RDWR);
}

DWORD PipeConnection::Read(void* buffer, DWORD size, DWORD& bytes, const Interrupt& interrupt) {
    for (Receive(); m_messages.empty(); Receive()) {
        if (m_end != kSuccess) return m_end;
        if (const DWORD error = AwaitInput(m_socket.Get(), interrupt)) return error;
    }
    std::string& message = m_messages.front();
    bytes = static_cast<DWORD>(std::min<size_t>(size, message.size()));
    std::memcpy(buffer, message.data(), bytes);
    const bool whole = bytes == message.size();
    if (whole) {
        m_messages.pop_front();
    } else {
        message.erase(0, bytes);
    }
    Report(bytes, whole);
    return whole ? kSuccess : static_cast<DWORD>(ERROR_MORE_DATA);
}

void PipeConnection::DropEmptyMessages() {
    while (!m_messages.empty() && m_messages.front().empty()) {
        m_messages.pop_front();
        Report(0, true);
    }
}

DWORD PipeConnection::ReadBytes(void* buffer, DWORD size, DWORD& bytes, const Interrupt& interrupt) {
    for (Receive(), DropEmptyMessages(); m_messages.empty(); Receive(), DropEmptyMessages()) {
        if (m_end != kSuccess) return m_end;
        if (const DWORD error = AwaitInput(m_socket.Get(), interrupt)) return error;
    }
    while (bytes < size && !m_messages.empty()) {
        std::string& message = m_messages.front();
        const size_t taken = std::min<size_t>(size - bytes, message.size());
        std::memcpy(static_cast<char*>(buffer) + bytes, message.data(), taken);
        bytes += static_cast<DWORD>(taken);
        message.erase(0, taken);
        Report(static_cast<uint32_t>(taken), message.empty());
        if (message.empty()) m_messages.pop_front();
    }
    return kSuccess;
}

DWORD PipeConnection::AwaitRead(const Interrupt& interrupt) {
    for (Receive(); m_unread.messages != 0; Receive()) {
        if (m_end != kSuccess) return m_end;
        if (const DWORD error = AwaitInput(m_socket.Get(), interrupt)) return error;
    }
    return kSuccess;
}

// A peer that takes nothing from its socket waits for no progress, and gets it with that of a later read.
void PipeConnection::Report(uint32_t bytes, bool wholeMessage) {
    m_unreported.bytes += bytes;
    m_unreported.messages += wholeMessage;
    if (Send(Kind::Progress, &m_unreported, sizeof m_unreported)) m_unreported = {};
}

bool PipeConnection::HasRoom() const {
    return m_unread.bytes <= m_room && m_unread.messages <= kMostUnreadMessages;
}

DWORD PipeConnection::Write(const void* data, DWORD size, DWORD& bytes, const Interrupt& interrupt) {
    if (size > kLongestMessage) return ERROR_NOT_SUPPORTED;
    Receive();
    if (m_end == kSuccess && Send(Kind::Message, data, size)) {
        m_unread.bytes += size;
        ++m_unread.messages;
    } else {
        Receive();
        return m_end == ERROR_PIPE_NOT_CONNECTED ? m_end : static_cast<DWORD>(ERROR_NO_DATA);
    }
    for (Receive(); !HasRoom(); Receive()) {
        if (m_end != kSuccess) return m_end;
        if (const DWORD error = AwaitInput(m_socket.Get(), interrupt)) return error;
    }
    bytes = size;
    return kSuccess;
}

}  // namespace winhost
