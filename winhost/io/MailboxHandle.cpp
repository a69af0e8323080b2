// Making, cancelling and ending requests; what comes from the firmware is in MailboxReader.cpp.
#include "winhost/io/MailboxHandle.h"

#include <sys/socket.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "winhost/io/MailboxDevice.h"

namespace winhost {

using mpmlink::Header;
using mpmlink::Kind;

MailboxHandle::~MailboxHandle() {
    if (!m_closed) OnClose();
    close(m_socket);
}

DWORD MailboxHandle::Read(OverlappedRequest request, void* buffer, DWORD size) {
    if (MailboxDevice::Instance().m_readsAtOnce) {
        request.Complete(ERROR_SUCCESS, 0);
        return ERROR_SUCCESS;
    }
    if (size != 0 && !buffer) return ERROR_NOACCESS;
    PendingList entry;
    entry.push_back({std::move(request), true, static_cast<char*>(buffer), size});
    uint32_t id = 0;
    bool listening = true;
    {
        std::lock_guard lock(m_mutex);
        if (const DWORD error = Enlist(entry, id)) return error;
        listening = std::exchange(m_listening, true);
    }
    m_readsChanged.notify_one();
    return listening ? static_cast<DWORD>(ERROR_IO_PENDING)
                     : SendOrWithdraw({0, Kind::Listen, 0, 0, 0}, nullptr, id);
}

DWORD MailboxHandle::Control(OverlappedRequest request, DWORD code, const void* input, DWORD inputSize,
                             void* output, DWORD outputSize) {
    if (MailboxDevice::Instance().m_requestsAtOnce) {
        request.Complete(ERROR_SUCCESS, 0);
        return ERROR_SUCCESS;
    }
    if ((inputSize != 0 && !input) || (outputSize != 0 && !output)) return ERROR_NOACCESS;
    if (inputSize > mpmlink::kMaxPayload) return ERROR_INVALID_PARAMETER;
    PendingList entry;
    entry.push_back({std::move(request), false, static_cast<char*>(output), outputSize});
    uint32_t id = 0;
    {
        std::lock_guard lock(m_mutex);
        if (const DWORD error = Enlist(entry, id)) return error;
    }
    return SendOrWithdraw({inputSize, Kind::Request, id, code, outputSize}, input, id);
}

// 0 when the entry is pending. The caller holds m_mutex.
DWORD MailboxHandle::Enlist(PendingList& entry, uint32_t& id) {
    if (m_closed) return ERROR_INVALID_HANDLE;
    if (m_peerGone) return ERROR_DEVICE_NOT_CONNECTED;
    if (!m_reader.joinable()) try {
            m_reader = std::thread([this] { RunReader(); });
        } catch (const std::system_error&) {
            return ERROR_NO_SYSTEM_RESOURCES;
        }
    if (++m_lastId == 0) ++m_lastId;
    id = entry.front().id = m_lastId;
    MailboxDevice& device = MailboxDevice::Instance();
    ++(entry.front().isRead ? device.m_pendingReads : device.m_pendingRequests);
    m_pending.splice(m_pending.end(), entry);
    return ERROR_SUCCESS;
}

DWORD MailboxHandle::SendOrWithdraw(const Header& header, const void* payload, uint32_t id) {
    const DWORD error = m_sender.Send(header, payload);
    if (error == ERROR_SUCCESS) return ERROR_IO_PENDING;
    PendingList withdrawn;
    std::lock_guard lock(m_mutex);
    for (auto entry = m_pending.begin(); entry != m_pending.end(); ++entry) {
        if (entry->id != id) continue;
        Withdraw(entry, withdrawn);
        return error;
    }
    // Its end has been told already.
    return ERROR_IO_PENDING;
}

void MailboxHandle::Withdraw(PendingList::iterator entry, PendingList& withdrawn) {
    MailboxDevice& device = MailboxDevice::Instance();
    --(entry->isRead ? device.m_pendingReads : device.m_pendingRequests);
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
    PendingList withdrawn;
    {
        std::lock_guard lock(m_mutex);
        for (auto next = m_pending.begin(); next != m_pending.end();) {
            const auto entry = next++;
            if (!overlapped || entry->request.Overlapped() == overlapped) Withdraw(entry, withdrawn);
        }
    }
    for (Pending& entry : withdrawn) {
        if (!entry.isRead) m_sender.Send({0, Kind::Cancel, entry.id, 0, 0}, nullptr);
        entry.request.Complete(ERROR_OPERATION_ABORTED, 0);
    }
    return !withdrawn.empty();
}

void MailboxHandle::OnClose() {
    {
        std::lock_guard lock(m_mutex);
        m_closed = true;
    }
    shutdown(m_socket, SHUT_RDWR);
    m_readsChanged.notify_all();
    m_sender.Stop();
    if (m_reader.joinable()) m_reader.join();
    PendingList withdrawn;
    {
        std::lock_guard lock(m_mutex);
        withdrawn = WithdrawAll();
    }
    for (Pending& entry : withdrawn)
        entry.request.Complete(ERROR_OPERATION_ABORTED, 0);
    MailboxDevice::Instance().Release();
}

}  // namespace winhost
