// The PC's one clock. Sleeps, wait time-outs and every reading of the time come from here, so that a test
// moves time forward instead of waiting for it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <optional>

#include "winhost/core/CallingThread.h"

namespace winhost {

class Clock {
  public:
    using Duration = std::chrono::nanoseconds;
    using Deadline = Duration;  // a reading of Steady()
    static constexpr Deadline kNever = Duration::max();

    static Clock& Instance();

    // A manual clock stands still but for Advance; a running one follows the machine. Starts running.
    void SetManual(bool manual);
    // Moves the clock forward; every sleep and wait whose deadline is reached ends now. The caller must hold
    // no mutex that a thread waits with.
    void Advance(Duration by);
    // How many seconds pass on a running clock in one of the machine's, 1 at first. What sleeps already wakes
    // too late or too early for the new rate: it is for a process that has just begun.
    void SetRate(uint32_t rate);
    // Moves the wall clock alone, back or forth, as a person who sets the time does.
    void SetWallOffset(Duration offset);

    // Time since the PC was started.
    Duration Steady() const;
    // UTC in 100 ns units since 1601, as a FILETIME holds it, and in seconds since 1970.
    static constexpr int64_t kTicksPerSecond = 10'000'000;
    uint64_t FileTime() const;
    static int64_t UnixTimeOf(uint64_t fileTime);
    int64_t UnixTime() const { return UnixTimeOf(FileTime()); }

    // Steady() in so many milliseconds; kNever for INFINITE (0xFFFFFFFF).
    Deadline DeadlineIn(uint32_t milliseconds) const;

    // Blocks the calling thread until the deadline.
    void SleepUntil(Deadline deadline);
    // Waits on a condition until `ready` holds or the deadline is reached; the answer is ready(). The lock's
    // mutex must be the one that guards what `ready` reads. The condition is a std::condition_variable, or
    // has its wait, wait_until and notify_all. The wait also ends when the calling thread is to end.
    template <class Condition, class Ready>
    bool WaitUntil(std::unique_lock<std::mutex>& lock, Condition& condition, Deadline deadline, Ready ready);

    // For tests with a manual clock: waits in real time until at least `count` threads are blocked with a
    // deadline. False after `patience`.
    bool AwaitSleepers(size_t count, std::chrono::milliseconds patience = std::chrono::seconds(10));
    // The same, for threads blocked with their deadline exactly `ahead` from now.
    bool AwaitSleepersOf(Duration ahead, size_t count,
                         std::chrono::milliseconds patience = std::chrono::seconds(10));
    bool AwaitSleeper(Duration ahead, std::chrono::milliseconds patience = std::chrono::seconds(10)) {
        return AwaitSleepersOf(ahead, 1, patience);
    }
    // The first deadline still to come for which a thread is blocked; kNever when there is none.
    Deadline NextDeadline();

  private:
    // A thread that is blocked with a deadline. While `pins` is not 0 somebody is about to wake it by its
    // mutex and condition, which have to live so long.
    struct Sleeper {
        Deadline deadline;
        std::mutex* mutex;
        std::function<void()> wake;  // called with the mutex
        int pins = 0;
    };
    using Sleepers = std::list<Sleeper>;

    Clock();
    Duration OfMachine() const;
    // The caller holds the sleeper's mutex; Leave lets go of it while the sleeper is pinned.
    Sleepers::iterator Enter(Sleeper sleeper);
    void Leave(Sleepers::iterator sleeper, std::unique_lock<std::mutex>& lock);
    std::optional<std::chrono::steady_clock::time_point> RealTimeOf(Deadline deadline) const;
    void WakeSleepers();
    template <class Matches>
    bool AwaitSleepersThat(size_t count, std::chrono::milliseconds patience, Matches matches);

    const std::chrono::steady_clock::time_point m_start;
    const Duration m_wallAtStart;  // since 1970
    std::atomic<bool> m_manual{false};
    std::atomic<Duration::rep> m_reading{0};  // of a manual clock
    std::atomic<Duration::rep> m_ahead{0};    // of the machine's time, when running
    std::atomic<uint32_t> m_rate{1};
    std::atomic<Duration::rep> m_wallOffset{0};

    std::mutex m_settings;  // one change of the clock at a time
    std::mutex m_mutex;     // guards the list and the pins; taken after a sleeper's own mutex
    std::condition_variable m_sleepersChanged;
    std::condition_variable m_unpinned;
    Sleepers m_sleepers;
};

template <class Condition, class Ready>
bool Clock::WaitUntil(std::unique_lock<std::mutex>& lock, Condition& condition, Deadline deadline,
                      Ready ready) {
    if (ready()) return true;
    if (deadline != kNever && Steady() >= deadline) return false;
    const TerminableWait wait(lock, condition);
    bool isReady = false;
    if (deadline == kNever) {
        while (!isReady && !wait.IsOver()) {
            condition.wait(lock);
            isReady = ready();
        }
        return isReady;
    }
    // Leaving the list may let go of the lock for a moment, so that what was seen before counts no more.
    bool due = false;
    while (!due && !ready()) {
        const auto sleeper = Enter({deadline, lock.mutex(), [&] { condition.notify_all(); }});
        while (!(due = Steady() >= deadline || wait.IsOver()) && !ready()) {
            if (const auto until = RealTimeOf(deadline)) {
                condition.wait_until(lock, *until);
            } else {
                condition.wait(lock);
            }
        }
        Leave(sleeper, lock);
    }
    return ready();
}

}  // namespace winhost
