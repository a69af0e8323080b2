#include "winhost/kernel/Event.h"

#include <map>
#include <string>

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

namespace {

// The event that bears this name, which is a new one when no handle to such an event is open.
std::shared_ptr<Event> NamedEvent(const std::string& name, bool manualReset, bool initialState, bool& isNew) {
    static std::mutex mutex;
    static std::map<std::string, std::weak_ptr<Event>> names;
    std::lock_guard lock(mutex);
    std::erase_if(names, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<Event>& entry = names[name];
    std::shared_ptr<Event> event = entry.lock();
    isNew = !event;
    if (isNew) entry = event = std::make_shared<Event>(manualReset, initialState);
    return event;
}

}  // namespace

HANDLE CreateEventA(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCSTR name) {
    WINHOST_GATE("CreateEventA", nullptr);
    if (name && std::string(name).find('\\') != std::string::npos) return Fail(ERROR_NOT_SUPPORTED, nullptr);
    bool isNew = true;
    const bool isNamed = name && *name;
    const HANDLE handle =
        HandleTable::Instance().Add(isNamed ? NamedEvent(name, manualReset, initialState, isNew)
                                            : std::make_shared<Event>(manualReset, initialState));
    SetLastError(!handle ? ERROR_NO_SYSTEM_RESOURCES : isNew ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
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
