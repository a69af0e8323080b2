#include "winhost/service/Scm.h"

#include <winsvc.h>
#include <windows.h>

#include <map>
#include <thread>

namespace winhost {
namespace {

// The one service of the process, as its handle has it.
constexpr uintptr_t kService = 0x10;

bool Accepts(uint32_t mask, uint32_t control) {
    static const std::map<uint32_t, uint32_t> kBits = {
        {SERVICE_CONTROL_STOP, SERVICE_ACCEPT_STOP},
        {SERVICE_CONTROL_PAUSE, SERVICE_ACCEPT_PAUSE_CONTINUE},
        {SERVICE_CONTROL_CONTINUE, SERVICE_ACCEPT_PAUSE_CONTINUE},
        {SERVICE_CONTROL_SHUTDOWN, SERVICE_ACCEPT_SHUTDOWN},
        {SERVICE_CONTROL_POWEREVENT, SERVICE_ACCEPT_POWEREVENT},
        {SERVICE_CONTROL_SESSIONCHANGE, SERVICE_ACCEPT_SESSIONCHANGE},
        {SERVICE_CONTROL_PRESHUTDOWN, SERVICE_ACCEPT_PRESHUTDOWN}};
    const auto bit = kBits.find(control);
    if (bit != kBits.end()) return mask & bit->second;
    const bool isUserDefined = control >= 128 && control <= 255;
    return control == SERVICE_CONTROL_INTERROGATE || isUserDefined;
}

}  // namespace

uint32_t Scm::Control(uint32_t control, uint32_t eventType, void* eventData, Delivery delivery) {
    const std::chrono::milliseconds patience(Pc::Instance().Get(&PcDescription::controlTimeoutMs));
    const auto request = std::make_shared<Request>(Request{control, eventType, eventData, delivery});
    std::unique_lock lock(m_mutex);
    if (const uint32_t error = Refusal(*request)) return error;
    m_requests.push_back(request);
    m_changed.notify_all();
    const bool answered = m_changed.wait_for(lock, patience, [&] { return request->done; });
    return answered ? request->result : ERROR_SERVICE_REQUEST_TIMEOUT;
}

uint32_t Scm::Refusal(const Request& request) const {
    if (!m_connected) return ERROR_SERVICE_NOT_ACTIVE;
    if (!m_handler) return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    if (request.delivery == Delivery::Forced) return 0;
    const bool accepted = Accepts(m_report.controlsAccepted, request.control);
    switch (m_report.state) {
        case SERVICE_STOPPED:
            return ERROR_SERVICE_NOT_ACTIVE;
        case SERVICE_STOP_PENDING:
            return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
        case SERVICE_START_PENDING:
            // A stop of a service that starts is refused for what the service accepts, all else for its
            // state.
            if (request.control != SERVICE_CONTROL_STOP) return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
            break;
        case 0:
            return ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
    }
    return accepted ? 0 : ERROR_INVALID_SERVICE_CONTROL;
}

uint32_t Scm::State() const {
    std::lock_guard lock(m_mutex);
    return m_report.state;
}

bool Scm::AwaitState(uint32_t state, std::chrono::milliseconds patience) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, patience, [&] { return m_report.state == state; });
}

void Scm::Reset() {
    std::lock_guard lock(m_mutex);
    m_handler = nullptr;
    m_report = {};
    m_used = m_connected;
    m_mainReturned = false;
}

bool Scm::Connect() {
    std::lock_guard lock(m_mutex);
    if (m_used) return false;
    m_used = m_connected = true;
    return true;
}

bool Scm::IsOver() const {
    return m_mainReturned && (m_report.state == SERVICE_STOPPED || !m_handler);
}

void Scm::Dispatch(const std::function<void()>& serviceMain) {
    // Joins also when a handler's exception goes to the caller.
    const std::jthread main([&] {
        serviceMain();
        std::lock_guard lock(m_mutex);
        m_mainReturned = true;
        m_changed.notify_all();
    });
    std::unique_lock lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [&] { return !m_requests.empty() || IsOver(); });
        if (IsOver()) break;
        const std::shared_ptr<Request> request = m_requests.front();
        m_requests.pop_front();
        Run(*request, lock);
    }
    Disconnect();
}

void Scm::Disconnect() {
    m_connected = false;
    for (const auto& late : m_requests) {
        late->result = ERROR_SERVICE_NOT_ACTIVE;
        late->done = true;
    }
    m_requests.clear();
    m_changed.notify_all();
}

// The state may have changed since the control was queued.
void Scm::Run(Request& request, std::unique_lock<std::mutex>& lock) {
    request.result = Refusal(request);
    if (request.result == 0) {
        const ControlHandler handler = m_handler;
        lock.unlock();
        try {
            handler(request.control, request.eventType, request.eventData);
            lock.lock();
        } catch (...) {
            lock.lock();
            request.result = ERROR_EXCEPTION_IN_SERVICE;
            request.done = true;
            Disconnect();
            throw;
        }
    }
    request.done = true;
    m_changed.notify_all();
}

uintptr_t Scm::SetHandler(ControlHandler handler) {
    std::lock_guard lock(m_mutex);
    if (!m_connected) return 0;
    m_handler = std::move(handler);
    return kService;
}

bool Scm::Report(uintptr_t service, const ServiceReport& report) {
    std::lock_guard lock(m_mutex);
    if (service != kService || !m_handler) return false;
    m_report = report;
    Pc::Instance().Record(report);
    m_changed.notify_all();
    return true;
}

}  // namespace winhost
