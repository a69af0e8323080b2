#include "winhost/kernel/Event.h"

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"

namespace winhost {

void Event::Set() {
    Signal(std::unique_lock(m_mutex));
}

// Notified without the lock, so that the thread that wakes does not run into it.
void Event::Signal(std::unique_lock<std::mutex> lock) {
    m_isSet = true;
    m_signalled.WakeLeader();
    lock.unlock();
    if (m_manualReset) {
        m_signalled.notify_all();
    } else {
        m_signalled.notify_one();
    }
}

void Event::Reset() {
    std::lock_guard lock(m_mutex);
    m_isSet = false;
}

bool Event::BeginRequest(const std::shared_ptr<PolledDevice>& device) {
    std::lock_guard lock(m_mutex);
    if (m_requests != 0 && !m_signalled.IsAttachedTo(device.get())) return false;
    if (m_requests++ == 0) m_signalled.Attach(device);
    m_isSet = false;
    return true;
}

void Event::EndRequest(bool completed) {
    std::unique_lock lock(m_mutex);
    if (--m_requests == 0) m_signalled.Detach();
    if (completed) Signal(std::move(lock));
}

bool Event::Nudge() {
    std::lock_guard lock(m_mutex);
    return m_signalled.Nudge();
}

Event::Taken Event::TryTake() {
    if (!m_isSet) return Taken::No;
    m_isSet = m_manualReset;
    return Taken::Yes;
}

}  // namespace winhost

using winhost::Event;
using winhost::Fail;
using winhost::HandleTable;

HANDLE CreateEventA(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCSTR name) {
    WINHOST_GATE("CreateEventA", nullptr);
    if (name) return Fail(ERROR_NOT_SUPPORTED, nullptr);
    const HANDLE handle = HandleTable::Instance().Add(std::make_shared<Event>(manualReset, initialState));
    SetLastError(handle ? ERROR_SUCCESS : ERROR_NO_SYSTEM_RESOURCES);
    return handle;
}

BOOL SetEvent(HANDLE handle) {
    WINHOST_GATE("SetEvent", FALSE);
    const auto event = HandleTable::Instance().Find<Event>(handle);
    if (!event) return Fail(ERROR_INVALID_HANDLE);
    event->Set();
    return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
    WINHOST_GATE("ResetEvent", FALSE);
    const auto event = HandleTable::Instance().Find<Event>(handle);
    if (!event) return Fail(ERROR_INVALID_HANDLE);
    event->Reset();
    return TRUE;
}
