// The service control manager of the PC, and the one service that is in this process.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "winhost/core/Singleton.h"
#include "winhost/pc/Pc.h"

namespace winhost {

// How the service answers one control. Called on the dispatcher's thread.
using ControlHandler = std::function<uint32_t(uint32_t control, uint32_t eventType, void* eventData)>;

class Scm {
  public:
    static Scm& Instance() { return Singleton<Scm>(); }

    // ---- for those who play Windows ----

    enum class Delivery { AsAccepted, Forced };
    // Sends a control and waits until the handler has returned. 0, or why it was not delivered: 1062 when no
    // service runs here, 1061 while it starts or stops, 1052 when it does not accept this control. A forced
    // control only needs a handler to go to, else 1061. 1053 when the handler, or one before it, has not
    // returned within the PC's controlTimeoutMs; the control stays queued, and `eventData` has to live on.
    uint32_t Control(uint32_t control, uint32_t eventType = 0, void* eventData = nullptr,
                     Delivery delivery = Delivery::AsAccepted);
    // The last state that the service reported; 0 before the first report.
    uint32_t State() const;
    // Waits, in real time, until the service has reported this state last. False after `patience`.
    bool AwaitState(uint32_t state, std::chrono::milliseconds patience = std::chrono::seconds(10));
    // Forgets the service of an earlier test. Its dispatcher must have returned.
    void Reset();

    // ---- for the calls of the service ----

    // False when the process called it before: it can do so once.
    bool Connect();
    // Starts `serviceMain` on a new thread and runs the controls on this one, until the service has reported
    // that it is stopped and its main has returned; also when its main has returned without ever having set a
    // handler, as nothing can reach such a service. What a control handler throws goes to the caller.
    void Dispatch(const std::function<void()>& serviceMain);
    // A number for the service to report by, or 0 when no dispatcher runs.
    uintptr_t SetHandler(ControlHandler handler);
    // False when the number is not the service's.
    bool Report(uintptr_t service, const ServiceReport& report);

  private:
    struct Request {
        uint32_t control, eventType;
        void* eventData;
        Delivery delivery;
        bool done = false;
        uint32_t result = 0;
    };

    uint32_t Refusal(const Request& request) const;
    void Run(Request& request, std::unique_lock<std::mutex>& lock);
    void Disconnect();
    bool IsOver() const;

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::shared_ptr<Request>> m_requests;
    ControlHandler m_handler;
    ServiceReport m_report;
    bool m_used = false;       // by a dispatcher of this process
    bool m_connected = false;  // while that dispatcher runs
    bool m_mainReturned = false;
};

}  // namespace winhost
