// The threads that call winhost, and their end from outside.
//
// A thread that is to end leaves whatever it waits for, returns through winhost, which keeps nothing of it
// locked, and ends where its outermost call would have returned: what lies below that call stays as it is. A
// thread that does not wait ends at its next call.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace winhost {

class Interrupt;
class TerminableWait;

class CallingThread {
  public:
    CallingThread();
    ~CallingThread();
    CallingThread(const CallingThread&) = delete;
    CallingThread& operator=(const CallingThread&) = delete;

    // From now on no wait of the thread blocks, and it ends. Any thread.
    void Terminate();
    bool IsTerminated() const { return m_isTerminated.load(std::memory_order_acquire); }

    // Readable when the thread is to end, for its own waits on descriptors; -1 when the host has none left.
    int EndDescriptor();

  private:
    friend class TerminableWait;

    std::atomic<bool> m_isTerminated{false};
    std::mutex m_guard;  // taken after the mutex of a wait
    std::unique_ptr<Interrupt> m_end;
    const TerminableWait* m_wait = nullptr;
    int m_pins = 0;  // of m_wait: it has to live so long
    std::condition_variable m_unpinned;
};

// The number of nested winhost calls that the calling thread is in, and its record.
struct Calls {
    unsigned depth = 0;
    CallingThread* thread = nullptr;
};
inline constinit thread_local Calls t_calls;

// For the length of a call, whose first variable it is.
class CallScope {
  public:
    CallScope() {
        if (++t_calls.depth == 1) Begin();
    }
    ~CallScope() {
        if (--t_calls.depth == 0 && t_calls.thread->IsTerminated()) EndThread();
    }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

  private:
    static void Begin() {
        if (!t_calls.thread) AddThread();
        if (t_calls.thread->IsTerminated()) EndThread();
    }
    static void AddThread();
    [[noreturn]] static void EndThread();
};

// For the length of a call that winhost makes of the program: the calls in it are outermost ones.
class CallbackScope {
  public:
    CallbackScope() : m_depth(t_calls.depth) { t_calls.depth = 0; }
    ~CallbackScope() { t_calls.depth = m_depth; }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

  private:
    const unsigned m_depth;
};

// The calling thread, if it can end where its outermost call returns.
inline CallingThread* TerminableThread() {
    return t_calls.depth != 0 ? t_calls.thread : nullptr;
}
inline bool IsThreadEnding() {
    const CallingThread* thread = TerminableThread();
    return thread && thread->IsTerminated();
}

// One wait of the calling thread on a condition. Made and destroyed with the lock, which is released for a
// moment while another thread ends the wait.
class TerminableWait {
  public:
    template <class Condition>
    TerminableWait(std::unique_lock<std::mutex>& lock, Condition& condition)
        : m_lock(lock),
          m_condition(&condition),
          m_wake([](void* waits) { static_cast<Condition*>(waits)->notify_all(); }) {
        if (m_thread) Enter();
    }
    ~TerminableWait() {
        if (m_thread) Leave();
    }
    TerminableWait(const TerminableWait&) = delete;
    TerminableWait& operator=(const TerminableWait&) = delete;

    bool IsOver() const { return m_thread && m_thread->IsTerminated(); }

  private:
    friend class CallingThread;
    void Enter();
    void Leave();

    CallingThread* const m_thread = TerminableThread();
    std::unique_lock<std::mutex>& m_lock;
    void* const m_condition;
    void (*const m_wake)(void* condition);
};

}  // namespace winhost
