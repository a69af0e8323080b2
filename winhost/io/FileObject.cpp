#include "winhost/io/FileObject.h"

#include <atomic>

#include "winhost/io/NtStatus.h"

namespace winhost {

bool OverlappedRequest::Begin(OverlappedFile& file, OVERLAPPED* overlapped) {
    m_overlapped = overlapped;
    if (overlapped->hEvent) {
        m_event = HandleTable::Instance().Find<Event>(overlapped->hEvent);
        if (!m_event) return false;
        m_event->Reset();
    }
    // An event handle with its lowest bit set keeps the request's end from the port.
    if ((reinterpret_cast<uintptr_t>(overlapped->hEvent) & 1) == 0) {
        std::lock_guard lock(file.m_portMutex);
        m_port = file.m_port;
        m_key = file.m_key;
    }
    overlapped->InternalHigh = 0;
    std::atomic_ref(overlapped->Internal).store(STATUS_PENDING, std::memory_order_release);
    return true;
}

void OverlappedRequest::Complete(DWORD error, DWORD bytes) {
    m_overlapped->InternalHigh = bytes;
    std::atomic_ref(m_overlapped->Internal).store(NtStatusOf(error), std::memory_order_release);
    if (m_event) m_event->Set();
    if (m_port) m_port->Post({m_key, m_overlapped, error, bytes});
}

bool OverlappedFile::Associate(std::shared_ptr<CompletionPort> port, ULONG_PTR key) {
    std::lock_guard lock(m_portMutex);
    if (m_port) return false;
    m_port = std::move(port);
    m_key = key;
    return true;
}

}  // namespace winhost
