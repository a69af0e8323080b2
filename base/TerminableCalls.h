// Where a thread may be terminated: only inside calls that can block for ever, and in which it holds no lock
// of the service and no pending request.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>

class TerminableCalls {
  public:
    // One call. Made by the thread that may be terminated.
    class Call {
      public:
        explicit Call(TerminableCalls& calls) : m_calls(calls) {
            s_current = &m_calls;
            m_calls.Enter();
        }
        ~Call() {
            m_calls.Leave();
            s_current = nullptr;
        }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

      private:
        TerminableCalls& m_calls;
    };

    // A function of the service that the callee of a Call calls. It may hold locks, so that the thread is not
    // terminated meanwhile. On a thread that is in no call it does nothing.
    class Callback {
      public:
        Callback() : m_calls(s_current) {
            if (m_calls) m_calls->Leave();
        }
        ~Callback() {
            if (m_calls) m_calls->Enter();
        }
        Callback(const Callback&) = delete;
        Callback& operator=(const Callback&) = delete;

      private:
        TerminableCalls* const m_calls;
    };

    // Returns true when the thread is inside a call. It does not leave that call before Release. Any other
    // thread.
    bool Seize() {
        State inside = State::Inside;
        return m_state.compare_exchange_strong(inside, State::Seized);
    }
    // Lets a thread go on that could not be terminated.
    void Release() { m_state = State::Inside; }
    // For the next thread, when this one has ended.
    void Reset() { m_state = State::Outside; }

  private:
    enum class State { Outside, Inside, Seized };

    static constexpr DWORD kPoll = 100;  // milliseconds

    void Enter() { m_state = State::Inside; }
    void Leave() {
        for (State inside = State::Inside; !m_state.compare_exchange_strong(inside, State::Outside);
             inside = State::Inside)
            Sleep(kPoll);
    }

    // Of the calling thread's Call.
    static inline thread_local TerminableCalls* s_current = nullptr;

    std::atomic<State> m_state{State::Outside};
};
