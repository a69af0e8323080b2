// Making, cancelling and ending requests; what the waiting threads do is in MailboxWork.cpp.
#include "winhost/io/MailboxHandle.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <utility>

#include "testbed/Sockets.h"
#include "winhost/io/MailboxDevice.h"

namespace winhost {

using mpmlink::Header;
using mpmlink::Kind;

DWORD MailboxHandle::Read(OverlappedRequest request, void* buffer, DWORD size) {
    if (MailboxDevice::Instance().m_readsAtOnce) {
        request.Complete(ERROR_SUCCESS, 0);
        return ERROR_SUCCESS;
    }
    if (size != 0 && !buffer) return ERROR_NOACCESS;
    return Pend({std::move(request), static_cast<char*>(buffer), size}, {0, Kind::Listen, 0, 0, 0}, nullptr);
}

DWORD MailboxHandle::Control(OverlappedRequest request, DWORD code, const void* input, DWORD inputSize,
                             void* output, DWORD outputSize) {
    if (MailboxDevice::Instance().m_requestsAtOnce) {
        request.Complete(ERROR_SUCCESS, 0);
        return ERROR_SUCCESS;
    }
    if ((inputSize != 0 && !input) || (outputSize != 0 && !output)) return ERROR_NOACCESS;
    if (inputSize > mpmlink::kMaxPayload) return ERROR_INVALID_PARAMETER;
    return Pend({std::move(request), static_cast<char*>(output), outputSize},
                {inputSize, Kind::Request, 0, code, outputSize}, input);
}

// Only the first read sends its frame.
DWORD MailboxHandle::Pend(Pending request, Header frame, const void* payload) {
    std::lock_guard lock(m_mutex);
    if (m_isClosed) return ERROR_INVALID_HANDLE;
    if (IsRetired()) return ERROR_DEVICE_NOT_CONNECTED;
    const bool isRead = frame.kind == Kind::Listen;
    if (!isRead) {
        if (++m_lastId == 0) ++m_lastId;
        frame.id = request.id = m_lastId;
    }
    if (!isRead || !std::exchange(m_isListening, true))
        if (const DWORD error = Send(frame, payload)) return error;
    MailboxDevice& device = MailboxDevice::Instance();
    ++(isRead ? device.m_pendingReads : device.m_pendingRequests);
    m_pending.push_back(std::move(request));
    if (IsStalled()) Wake();
    return ERROR_IO_PENDING;
}

// Sends a frame whose payload goes through the shared memory, and the first read, which offers that memory.
// False when the frame has to go through the socket.
bool MailboxHandle::SendWithMemory(const Header& header, const void* payload) {
    if (!m_unsent.empty()) return false;
    testbed::Descriptor offered;
    if (!m_memory) {
        if (testbed::IsUnix(m_socket)) offered = testbed::MakeMemoryFile(sizeof(mpmlink::LinkMemory));
        m_memory.emplace(offered);
    }
    if (!*m_memory) return false;
    mpmlink::LargeRequest frame{header, 0, header.size};
    size_t size = sizeof header;
    if (header.size != 0) {
        const auto position =
            (*m_memory)->toFirmware.Put({static_cast<const uint8_t*>(payload), header.size});
        if (!position) return false;
        size = sizeof frame;
        frame.header.kind = Kind::LargeRequest;
        frame.header.size = sizeof frame - sizeof header;
        frame.position = *position;
    }
    if (testbed::SendWithFile(m_socket, &frame, size, offered)) return true;
    if (header.size != 0) (*m_memory)->toFirmware.TakeBack(frame.position);
    if (offered) m_memory.reset();
    return false;
}

// Header and payload go with one system call, from the caller's own buffer, unless the socket is full. Large
// payloads go through memory.
DWORD MailboxHandle::Send(const Header& header, const void* payload) {
    if (m_unsent.size() == kMostUnsent) return ERROR_NO_SYSTEM_RESOURCES;
    if ((header.kind == Kind::Listen || header.size >= mpmlink::kLarge) && SendWithMemory(header, payload))
        return ERROR_SUCCESS;
    size_t sent = 0;
    if (m_unsent.empty()) {
        iovec parts[] = {{const_cast<Header*>(&header), sizeof header},
                         {const_cast<void*>(payload), header.size}};
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = header.size ? 2 : 1;
        const ssize_t result = sendmsg(m_socket.Get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (result < 0 && errno != EAGAIN && errno != EINTR) return ERROR_DEVICE_NOT_CONNECTED;
        if (result > 0) sent = static_cast<size_t>(result);
        if (sent == sizeof header + header.size) return ERROR_SUCCESS;
    }
    std::string frame(reinterpret_cast<const char*>(&header), sizeof header);
    if (header.size) frame.append(static_cast<const char*>(payload), header.size);
    m_unsent.push_back(frame.substr(sent));
    Wake();
    return ERROR_SUCCESS;
}

void MailboxHandle::Withdraw(PendingList::iterator entry, PendingList& withdrawn) {
    MailboxDevice& device = MailboxDevice::Instance();
    --(entry->IsRead() ? device.m_pendingReads : device.m_pendingRequests);
    if (entry == m_taker) m_taker = m_pending.end();
    withdrawn.splice(withdrawn.end(), m_pending, entry);
}

MailboxHandle::PendingList MailboxHandle::WithdrawAll() {
    PendingList withdrawn;
    while (!m_pending.empty())
        Withdraw(m_pending.begin(), withdrawn);
    return withdrawn;
}

bool MailboxHandle::Cancel(const OVERLAPPED* overlapped) {
    return CancelThose(
        [&](const OverlappedRequest& request) { return !overlapped || request.Overlapped() == overlapped; });
}

void MailboxHandle::CancelRequestsOf(const CallingThread& thread) {
    CancelThose([&](const OverlappedRequest& request) { return request.Thread() == &thread; });
    // A thread that completes a request right now gets through with it.
    std::lock_guard working(m_working);
}

bool MailboxHandle::CancelThose(const std::function<bool(const OverlappedRequest&)>& matches) {
    PendingList withdrawn;
    {
        std::lock_guard lock(m_mutex);
        for (auto next = m_pending.begin(); next != m_pending.end();) {
            const auto entry = next++;
            if (!matches(entry->request)) continue;
            if (!entry->IsRead()) Send({0, Kind::Cancel, entry->id, 0, 0}, nullptr);
            Withdraw(entry, withdrawn);
        }
    }
    for (Pending& entry : withdrawn)
        entry.request.Complete(ERROR_OPERATION_ABORTED, 0);
    return !withdrawn.empty();
}

void MailboxHandle::OnClose() {
    PendingList withdrawn;
    {
        std::lock_guard lock(m_mutex);
        m_isClosed = true;
        Retire();
        withdrawn = WithdrawAll();
    }
    shutdown(m_socket.Get(), SHUT_RDWR);
    Wake();
    for (Pending& entry : withdrawn)
        entry.request.Complete(ERROR_OPERATION_ABORTED, 0);
    MailboxDevice::Instance().Remove(*this);
    // A thread that completes a request right now gets through with it.
    std::lock_guard working(m_working);
}

}  // namespace winhost
