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
        explicit Call(TerminableCalls& calls) : m_calls(calls) { m_calls.Enter(); }
        ~Call() { m_calls.Leave(); }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

      private:
        TerminableCalls& m_calls;
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

    std::atomic<State> m_state{State::Outside};
};
