#include "winhost/io/FileObject.h"

#include <atomic>

namespace winhost {

OverlappedRequest::~OverlappedRequest() {
    if (m_event) m_event->EndRequest(false);
}

DWORD OverlappedRequest::Begin(OverlappedFile& file, OVERLAPPED* overlapped) {
    m_overlapped = overlapped;
    if (overlapped->hEvent) {
        auto event = HandleTable::Instance().Find<Event>(overlapped->hEvent);
        if (!event) return ERROR_INVALID_HANDLE;
        if (!event->BeginRequest(file.shared_from_this())) return ERROR_NOT_SUPPORTED;
        m_event = std::move(event);
    }
    // An event handle with its lowest bit set keeps the request's end from the port.
    if ((reinterpret_cast<uintptr_t>(overlapped->hEvent) & 1) == 0) {
        std::lock_guard lock(file.m_portMutex);
        m_port = file.m_port;
        m_key = file.m_key;
    }
    overlapped->InternalHigh = 0;
    std::atomic_ref(overlapped->Internal).store(STATUS_PENDING, std::memory_order_release);
    return ERROR_SUCCESS;
}

void OverlappedRequest::Complete(DWORD error, DWORD bytes) {
    m_overlapped->InternalHigh = bytes;
    std::atomic_ref(m_overlapped->Internal).store(StatusOf(error), std::memory_order_release);
    if (const auto event = std::move(m_event)) event->EndRequest(true);
    if (m_port) m_port->Post({m_key, m_overlapped, error, bytes});
}

bool OverlappedRequest::Nudge() {
    return (m_event && m_event->Nudge()) || (m_port && m_port->Nudge());
}

bool OverlappedFile::Associate(std::shared_ptr<CompletionPort> port, ULONG_PTR key) {
    std::lock_guard lock(m_portMutex);
    if (m_port) return false;
    m_port = std::move(port);
    m_key = key;
    m_port->Serve(weak_from_this());
    return true;
}

}  // namespace winhost
