#include "winhost/io/CompletionPort.h"

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/io/FileObject.h"

namespace winhost {

void CompletionPort::Serve(std::weak_ptr<PolledDevice> device) {
    std::lock_guard lock(m_mutex);
    m_changed.Attach(std::move(device));
}

bool CompletionPort::Nudge() {
    std::lock_guard lock(m_mutex);
    return m_changed.Nudge();
}

void CompletionPort::Post(const Packet& packet) {
    {
        std::lock_guard lock(m_mutex);
        if (m_closed) return;
        m_packets.push_back(packet);
        m_changed.WakeLeader();
    }
    m_changed.notify_one();
}

DWORD CompletionPort::Take(Clock::Deadline deadline, Packet& packet) {
    std::unique_lock lock(m_mutex);
    bool taken = false;
    const bool ready = m_changed.WaitUntil(lock, deadline, [&] {
        if (taken || m_closed) return true;
        if (m_packets.empty()) return false;
        packet = m_packets.front();
        m_packets.pop_front();
        return taken = true;
    });
    if (taken) return ERROR_SUCCESS;
    return ready ? ERROR_ABANDONED_WAIT_0 : WAIT_TIMEOUT;
}

void CompletionPort::OnClose() {
    {
        std::lock_guard lock(m_mutex);
        m_closed = true;
        m_changed.WakeLeader();
    }
    m_changed.notify_all();
}

}  // namespace winhost

using winhost::CompletionPort;
using winhost::Fail;
using winhost::HandleTable;
using winhost::OverlappedFile;

HANDLE CreateIoCompletionPort(HANDLE file, HANDLE existingPort, ULONG_PTR key, DWORD) {
    WINHOST_GATE("CreateIoCompletionPort", nullptr);
    HandleTable& table = HandleTable::Instance();
    const auto object = table.Find<OverlappedFile>(file);
    if (!object || existingPort)
        return Fail(existingPort ? ERROR_NOT_SUPPORTED : ERROR_INVALID_HANDLE, nullptr);
    const auto port = std::make_shared<CompletionPort>();
    if (!object->Associate(port, key)) return Fail(ERROR_INVALID_PARAMETER, nullptr);
    const HANDLE handle = table.Add(port);
    if (!handle) SetLastError(ERROR_NO_SYSTEM_RESOURCES);
    return handle;
}

BOOL GetQueuedCompletionStatus(HANDLE port, LPDWORD bytesMoved, ULONG_PTR* key, LPOVERLAPPED* overlapped,
                               DWORD milliseconds) {
    *overlapped = nullptr;
    WINHOST_GATE("GetQueuedCompletionStatus", FALSE);
    const auto object = HandleTable::Instance().Find<CompletionPort>(port);
    CompletionPort::Packet packet;
    const DWORD failure = object ? object->Take(winhost::Clock::Instance().DeadlineIn(milliseconds), packet)
                                 : static_cast<DWORD>(ERROR_INVALID_HANDLE);
    if (failure != ERROR_SUCCESS) return Fail(failure);
    *bytesMoved = packet.bytes;
    *key = packet.key;
    *overlapped = packet.overlapped;
    if (packet.error == ERROR_SUCCESS) return TRUE;
    return Fail(packet.error);
}
