// How time passes for a service under a fuzzer, and how the other threads come to rest. The PC's clock stands
// still but for what is called through Patiently, Pass and WakeNext.
#pragma once

#include <semaphore.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "winhost/core/Clock.h"

namespace fuzz {

// Lives as long as the process. All calls come from the fuzzer's thread.
class Pace {
  public:
    Pace();
    Pace(const Pace&) = delete;
    Pace& operator=(const Pace&) = delete;

    // Lets the call have its way: while it sleeps or waits, time passes quickly.
    void Patiently(const std::function<void()>& call);
    // Moves the clock, and gives the threads that wake by it a moment.
    void Pass(std::chrono::milliseconds time);
    // Gives the other threads some moments, while the clock moves by at most a second.
    void Settle();
    // Moves the clock to where the next thread wakes, or by `most`.
    void WakeNext(winhost::Clock::Duration most = winhost::Clock::kNever);

    // Lets the other threads do what they have to do: all of it on one core, else for a moment of real time;
    // as short as can be for the first kShortMoments of a row.
    static constexpr int kShortMoments = 500;
    void GiveWay(int earlier = kShortMoments);
    bool IsOnOneCore() const { return m_onOneCore; }
    // From now on another thread polls, so that a core is never idle; or none does.
    void SetPolling(bool polling) { m_polling = polling; }

  private:
    void Tick();
    void Idle();

    const bool m_onOneCore;
    std::atomic<bool> m_calling{false};  // within Patiently
    std::atomic<bool> m_polling{false};
    sem_t m_wish, m_idle;  // to learn when the core has nothing to do; it has nothing
    std::thread m_ticker, m_idler;
};

}  // namespace fuzz
