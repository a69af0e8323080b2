#include "winhost/kernel/Event.h"

#include "winhost/core/Gate.h"

namespace winhost {

// Notified without the lock, so that the thread that wakes does not run into it.
void Event::Set() {
    {
        std::lock_guard lock(m_mutex);
        m_isSet = true;
    }
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

Event::Taken Event::TryTake() {
    if (!m_isSet) return Taken::No;
    m_isSet = m_manualReset;
    return Taken::Yes;
}

}  // namespace winhost

using winhost::Event;
using winhost::HandleTable;

HANDLE CreateEventA(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCSTR name) {
    WINHOST_GATE("CreateEventA", nullptr);
    if (name) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    const HANDLE handle = HandleTable::Instance().Add(std::make_shared<Event>(manualReset, initialState));
    SetLastError(handle ? ERROR_SUCCESS : ERROR_NO_SYSTEM_RESOURCES);
    return handle;
}

BOOL SetEvent(HANDLE handle) {
    WINHOST_GATE("SetEvent", FALSE);
    const auto event = HandleTable::Instance().Find<Event>(handle);
    if (!event) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    event->Set();
    return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
    WINHOST_GATE("ResetEvent", FALSE);
    const auto event = HandleTable::Instance().Find<Event>(handle);
    if (!event) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    event->Reset();
    return TRUE;
}
