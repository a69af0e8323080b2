// Devices without a thread of their own, and the condition that threads wait for them with.
//
// The threads that wait for a device do its work. One of them at a time leads: it blocks until the device has
// work or its own wait is over, and completes whatever has come, also for other threads. When its wait is
// over, another waiting thread leads. While no thread waits, nothing is done.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "winhost/core/Clock.h"

namespace winhost {

// Work, Poll and PassOn are called without any lock of an object that threads wait for.
class PolledDevice : public std::enable_shared_from_this<PolledDevice> {
  public:
    using RealTime = std::chrono::steady_clock::time_point;

    virtual ~PolledDevice() = default;
    // Does a piece of the work that has come, and never blocks for the peer. False when there is no more.
    virtual bool Work() = 0;

  protected:
    // Ends the leader's Poll, or that of the next leader. Any thread.
    virtual void Wake() = 0;
    // From now on no thread leads. A leader finds that out after the next Wake.
    void Retire() { m_isRetired = true; }
    bool IsRetired() const { return m_isRetired; }
    bool IsLed() const { return m_isLed; }

  private:
    friend class DeviceCondition;
    // Called by the leader: blocks until there may be work, until Wake, or until the time if there is one.
    virtual void Poll(const RealTime* until) = 0;
    // Nudges a thread that waits for a pending request, unless a thread leads.
    virtual void PassOn() = 0;

    std::atomic<bool> m_isLed{false};
    std::atomic<bool> m_isRetired{false};
};

// As std::condition_variable, for threads that wait for each other or for a device. Except for notify_one and
// notify_all, the caller holds the mutex that the threads wait with.
class DeviceCondition {
  public:
    // From now on threads that wait here lead this device.
    void Attach(std::weak_ptr<PolledDevice> device);
    void Detach() { m_device.reset(); }
    bool IsAttachedTo(const PolledDevice* device) const { return m_device.lock().get() == device; }

    // Waits until `ready` holds or the deadline is reached; the answer is ready(). What has reached the
    // device by the deadline is still done. The lock may be released for a moment after `ready` held, so
    // `ready` has to take for the thread what others must not take.
    template <class Ready>
    bool WaitUntil(std::unique_lock<std::mutex>& lock, Clock::Deadline deadline, Ready ready);

    // Waking a thread takes two steps: this one with the mutex, and a notify, best without it, so that the
    // thread that wakes does not run into it.
    void WakeLeader() {
        if (m_led) m_led->Wake();
    }
    void notify_one() { m_condition.notify_one(); }
    void notify_all() { m_condition.notify_all(); }
    // Wakes the threads that wait here and don't lead, so that one of them does. False when there is none.
    bool Nudge();

  private:
    // One thread's wait. Its calls are those of a condition variable, for the clock.
    class Waiter {
      public:
        Waiter(DeviceCondition& condition, std::unique_lock<std::mutex>& lock)
            : m_condition(condition), m_lock(lock) {}
        void wait(std::unique_lock<std::mutex>&) { Block(nullptr); }
        void wait_until(std::unique_lock<std::mutex>&, PolledDevice::RealTime until) { Block(&until); }
        void notify_all();
        bool Work();
        void PassOn();

      private:
        void Block(const PolledDevice::RealTime* until);

        DeviceCondition& m_condition;
        std::unique_lock<std::mutex>& m_lock;
        std::shared_ptr<PolledDevice> m_device;  // that it has led or could have led
    };

    std::condition_variable m_condition;
    size_t m_blocked = 0;  // threads in m_condition
    std::weak_ptr<PolledDevice> m_device;
    PolledDevice* m_led = nullptr;  // while a thread that waits here polls it
};

template <class Ready>
bool DeviceCondition::WaitUntil(std::unique_lock<std::mutex>& lock, Clock::Deadline deadline, Ready ready) {
    if (ready()) return true;
    Waiter waiter(*this, lock);
    bool isReady = Clock::Instance().WaitUntil(lock, waiter, deadline, ready);
    while (!isReady && waiter.Work())
        isReady = ready();
    waiter.PassOn();
    return isReady;
}

}  // namespace winhost
