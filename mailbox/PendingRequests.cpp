#include "mailbox/PendingRequests.h"

namespace {

// Ends the walk when threads wait for each other.
constexpr int kMostWaits = 8;

}  // namespace

template <class Entry>
void PendingRequests::Add(Entry*& first, Entry& entry) {
    std::lock_guard lock(m_mutex);
    entry.m_next = first;
    first = &entry;
}

template <class Entry>
void PendingRequests::Remove(Entry*& first, const Entry& entry) {
    std::lock_guard lock(m_mutex);
    Entry** link = &first;
    while (*link != &entry)
        link = &(*link)->m_next;
    *link = entry.m_next;
}

PendingRequests::Request::Request(PendingRequests& registry, HANDLE device, OVERLAPPED& overlapped)
    : m_registry(registry), m_device(device), m_overlapped(overlapped) {
    m_registry.Add(m_registry.m_requests, *this);
}

PendingRequests::Request::~Request() {
    m_registry.Remove(m_registry.m_requests, *this);
}

PendingRequests::Wait::Wait(PendingRequests& registry, std::thread::id awaited)
    : m_registry(registry), m_awaited(awaited) {
    m_registry.Add(m_registry.m_waits, *this);
}

PendingRequests::Wait::~Wait() {
    m_registry.Remove(m_registry.m_waits, *this);
}

void PendingRequests::CancelFor(std::thread::id thread) {
    std::lock_guard lock(m_mutex);
    for (int waits = 0; waits <= kMostWaits; ++waits) {
        for (const Request* request = m_requests; request; request = request->m_next)
            if (request->m_thread == thread) CancelIoEx(request->m_device, &request->m_overlapped);
        const Wait* wait = m_waits;
        while (wait && wait->m_thread != thread)
            wait = wait->m_next;
        if (!wait) return;
        thread = wait->m_awaited;
    }
}
