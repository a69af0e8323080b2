#include "winhost/core/PolledDevice.h"

namespace winhost {

// A thread that waits already has to look for the device.
void DeviceCondition::Attach(std::weak_ptr<PolledDevice> device) {
    m_device = std::move(device);
    WakeLeader();
    notify_all();
}

bool DeviceCondition::Nudge() {
    if (m_blocked == 0) return false;
    notify_all();
    return true;
}

void DeviceCondition::Waiter::notify_all() {
    m_condition.WakeLeader();
    m_condition.notify_all();
}

bool DeviceCondition::Waiter::Work() {
    const auto device = m_condition.m_device.lock();
    if (!device) return false;
    m_lock.unlock();
    const bool worked = device->Work();
    m_lock.lock();
    return worked;
}

// Also for a thread that has not led: it may be the one that was nudged.
void DeviceCondition::Waiter::PassOn() {
    if (!m_device) return;
    m_lock.unlock();
    m_device->PassOn();
    m_lock.lock();
    m_device.reset();
}

// As one wait on a condition variable, this may end for no reason. The role is given back each time and
// passed on only when the whole wait is over.
void DeviceCondition::Waiter::Block(const PolledDevice::RealTime* until) {
    auto device = m_condition.m_device.lock();
    if (m_device && m_device != device) return PassOn();
    m_device = device;
    if (!device || device->m_isRetired || device->m_isLed.exchange(true)) {
        ++m_condition.m_blocked;
        if (until) {
            m_condition.m_condition.wait_until(m_lock, *until);
        } else {
            m_condition.m_condition.wait(m_lock);
        }
        --m_condition.m_blocked;
        return;
    }
    m_condition.m_led = device.get();
    m_lock.unlock();
    device->Poll(until);
    m_lock.lock();
    if (m_condition.m_led == device.get()) m_condition.m_led = nullptr;
    m_lock.unlock();
    device->Work();
    device->m_isLed = false;
    m_lock.lock();
}

}  // namespace winhost
