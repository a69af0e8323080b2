#include "winhost/core/CallingThread.h"

#include "winhost/pipe/Interrupt.h"

namespace winhost {

CallingThread::CallingThread() = default;
CallingThread::~CallingThread() = default;

// The mutex of the wait is taken before its condition is notified, so that a thread that has just looked is
// not missed. It can't be taken under m_guard, which the thread takes while it holds its own: the pin keeps
// the wait alive instead.
void CallingThread::Terminate() {
    const TerminableWait* wait = nullptr;
    {
        std::lock_guard lock(m_guard);
        if (m_isTerminated) return;
        m_isTerminated.store(true, std::memory_order_release);
        if (m_end) m_end->Raise();
        if (!m_wait) return;
        wait = m_wait;
        ++m_pins;
    }
    {
        std::lock_guard lock(*wait->m_lock.mutex());
        wait->m_wake(wait->m_condition);
    }
    std::lock_guard lock(m_guard);
    --m_pins;
    m_unpinned.notify_all();
}

int CallingThread::EndDescriptor() {
    std::lock_guard lock(m_guard);
    if (!m_end) {
        m_end = std::make_unique<Interrupt>();
        if (m_isTerminated) m_end->Raise();
    }
    return m_end->Get();
}

// A wait within a wait, as that of a device's leader, is ended by the outer one.
void TerminableWait::Enter() {
    std::lock_guard lock(m_thread->m_guard);
    if (!m_thread->m_wait) m_thread->m_wait = this;
}

void TerminableWait::Leave() {
    std::unique_lock thread(m_thread->m_guard);
    if (m_thread->m_wait != this) return;
    if (m_thread->m_pins != 0) {
        // The thread that pinned it waits for this lock.
        m_lock.unlock();
        m_thread->m_unpinned.wait(thread, [&] { return m_thread->m_pins == 0; });
        m_thread->m_wait = nullptr;
        thread.unlock();
        m_lock.lock();
        return;
    }
    m_thread->m_wait = nullptr;
}

}  // namespace winhost
