// The PC's one clock. Sleeps, wait time-outs and every reading of the time come from here, so that a test moves
// time forward instead of waiting for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>

namespace winhost {

class Clock {
  public:
    using Duration = std::chrono::nanoseconds;
    using Deadline = Duration;  // a reading of Steady()
    static constexpr Deadline kNever = Duration::max();

    static Clock& Instance();

    // A manual clock stands still but for Advance; a running one follows the machine. Starts running.
    void SetManual(bool manual);
    // Moves the clock forward; every sleep and wait whose deadline is reached ends now.
    void Advance(Duration by);
    // Moves the wall clock alone, back or forth, as a person who sets the time does.
    void SetWallOffset(Duration offset);

    // Time since the PC was started.
    Duration Steady() const;
    // UTC in 100 ns units since 1601, as a FILETIME holds it.
    uint64_t FileTime() const;

    // Blocks the calling thread until the deadline.
    void SleepUntil(Deadline deadline);
    // Waits on a condition until `ready` holds or the deadline is reached; the answer is ready(). The lock's mutex
    // must be the one that guards what `ready` reads.
    template <class Ready>
    bool WaitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& condition, Deadline deadline,
                   Ready ready);

    // For tests with a manual clock: waits in real time until at least `count` threads are blocked with a deadline.
    // False after `patience`.
    bool AwaitSleepers(size_t count, std::chrono::milliseconds patience = std::chrono::seconds(10));
    // The same, for a thread blocked with its deadline `ahead` from now (within a millisecond).
    bool AwaitSleeper(Duration ahead, std::chrono::milliseconds patience = std::chrono::seconds(10));
};

}  // namespace winhost
