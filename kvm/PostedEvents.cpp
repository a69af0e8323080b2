#include "kvm/PostedEvents.h"

#include <utility>

void PostedEvents::Open() {
    std::lock_guard lock(m_mutex);
    m_posted = 0;
    m_isOpen = true;
}

HANDLE PostedEvents::Create(const char* name) {
    std::lock_guard lock(m_mutex);
    m_event.Reset(CreateEventA(nullptr, TRUE, FALSE, name));
    if (m_event && m_posted != 0) SetEvent(m_event.Get());
    return m_event.Get();
}

void PostedEvents::Close() {
    std::lock_guard lock(m_mutex);
    m_isOpen = false;
    m_event.Reset();
}

PostedEvents::Outcome PostedEvents::Post(uint32_t event) {
    std::lock_guard lock(m_mutex);
    if (!m_isOpen) return Outcome::NobodyWaits;
    m_posted |= 1u << event;
    // Without an event the waiting thread is about to create it.
    if (m_event && !SetEvent(m_event.Get())) return Outcome::Failed;
    return Outcome::Posted;
}

bool PostedEvents::Await() const {
    return WaitForSingleObject(m_event.Get(), INFINITE) == WAIT_OBJECT_0;
}

PostedEvents::Taken PostedEvents::Take() {
    std::lock_guard lock(m_mutex);
    ResetEvent(m_event.Get());
    return Taken(std::exchange(m_posted, 0));
}
