#include "winhost/core/Clock.h"

#include <algorithm>
#include <vector>

namespace winhost {

namespace {

constexpr uint64_t kFileTimeAt1970 = 116444736000000000;

}  // namespace

// Never destroyed: detached threads sleep on it until the process is gone.
Clock& Clock::Instance() {
    static Clock& clock = *new Clock;
    return clock;
}

Clock::Clock()
    : m_start(std::chrono::steady_clock::now()),
      m_wallAtStart(std::chrono::system_clock::now().time_since_epoch()) {}

// The machine's time since the start, as it passes on this clock.
Clock::Duration Clock::OfMachine() const {
    return (std::chrono::steady_clock::now() - m_start) * m_rate.load(std::memory_order_relaxed);
}

Clock::Duration Clock::Steady() const {
    if (m_manual.load(std::memory_order_acquire)) return Duration(m_reading.load(std::memory_order_acquire));
    return OfMachine() + Duration(m_ahead.load(std::memory_order_relaxed));
}

uint64_t Clock::FileTime() const {
    const Duration wall = m_wallAtStart + Steady() + Duration(m_wallOffset.load(std::memory_order_relaxed));
    return kFileTimeAt1970 + static_cast<uint64_t>(wall.count() / 100);
}

int64_t Clock::UnixTimeOf(uint64_t fileTime) {
    return static_cast<int64_t>(fileTime - kFileTimeAt1970) / kTicksPerSecond;
}

Clock::Deadline Clock::DeadlineIn(uint32_t milliseconds) const {
    return milliseconds == UINT32_MAX ? kNever : Steady() + std::chrono::milliseconds(milliseconds);
}

void Clock::SetManual(bool manual) {
    {
        std::lock_guard lock(m_settings);
        if (m_manual == manual) return;
        const Duration now = Steady();
        if (manual) {
            m_reading = now.count();
        } else {
            m_ahead = (now - OfMachine()).count();
        }
        m_manual.store(manual, std::memory_order_release);
    }
    WakeSleepers();
}

void Clock::Advance(Duration by) {
    {
        std::lock_guard lock(m_settings);
        (m_manual ? m_reading : m_ahead) += by.count();
    }
    WakeSleepers();
}

void Clock::SetRate(uint32_t rate) {
    std::lock_guard lock(m_settings);
    const Duration before = OfMachine();
    m_rate = rate;
    m_ahead += (before - OfMachine()).count();
}

void Clock::SetWallOffset(Duration offset) {
    m_wallOffset = offset.count();
}

void Clock::SleepUntil(Deadline deadline) {
    std::mutex mutex;
    std::condition_variable never;
    std::unique_lock lock(mutex);
    WaitUntil(lock, never, deadline, [] { return false; });
}

Clock::Sleepers::iterator Clock::Enter(Sleeper sleeper) {
    std::lock_guard lock(m_mutex);
    m_sleepersChanged.notify_all();
    return m_sleepers.insert(m_sleepers.end(), sleeper);
}

void Clock::Leave(Sleepers::iterator sleeper, std::unique_lock<std::mutex>& lock) {
    {
        std::lock_guard list(m_mutex);
        if (sleeper->pins == 0) {
            m_sleepers.erase(sleeper);
            return;
        }
    }
    // The thread that pinned it waits for this lock.
    lock.unlock();
    {
        std::unique_lock list(m_mutex);
        m_unpinned.wait(list, [&] { return sleeper->pins == 0; });
        m_sleepers.erase(sleeper);
    }
    lock.lock();
}

// When a wait for the deadline ends at the latest; none while only Advance moves the clock.
std::optional<std::chrono::steady_clock::time_point> Clock::RealTimeOf(Deadline deadline) const {
    if (m_manual.load(std::memory_order_acquire)) return std::nullopt;
    // Far deadlines in slices, as adding a year to the time overflows no clock.
    const Duration slice = std::min<Duration>(deadline - Steady(), std::chrono::hours(24));
    // Rounded up: a wake before the deadline would only lead back here.
    const Duration real = (slice + Duration(m_rate - 1)) / m_rate.load();
    return std::chrono::steady_clock::now() + real;
}

// A sleeper's mutex is taken before its condition is notified, so that one who has just read the old time is
// not missed. It can't be taken under m_mutex, which sleepers take while they hold theirs: pins keep it alive
// instead.
void Clock::WakeSleepers() {
    std::vector<Sleeper*> pinned;
    {
        std::lock_guard lock(m_mutex);
        for (Sleeper& sleeper : m_sleepers) {
            ++sleeper.pins;
            pinned.push_back(&sleeper);
        }
    }
    for (Sleeper* sleeper : pinned) {
        std::lock_guard lock(*sleeper->mutex);
        sleeper->wake();
    }
    std::lock_guard lock(m_mutex);
    for (Sleeper* sleeper : pinned)
        --sleeper->pins;
    m_unpinned.notify_all();
}

template <class Matches>
bool Clock::AwaitSleepersThat(size_t count, std::chrono::milliseconds patience, Matches matches) {
    std::unique_lock lock(m_mutex);
    return m_sleepersChanged.wait_for(lock, patience, [&] {
        // One whose deadline has come is only about to leave.
        const Duration now = Steady();
        const auto asleep = std::count_if(m_sleepers.begin(), m_sleepers.end(), [&](const Sleeper& sleeper) {
            return sleeper.deadline > now && matches(sleeper);
        });
        return static_cast<size_t>(asleep) >= count;
    });
}

bool Clock::AwaitSleepers(size_t count, std::chrono::milliseconds patience) {
    return AwaitSleepersThat(count, patience, [](const Sleeper&) { return true; });
}

bool Clock::AwaitSleepersOf(Duration ahead, size_t count, std::chrono::milliseconds patience) {
    return AwaitSleepersThat(count, patience,
                             [&](const Sleeper& sleeper) { return sleeper.deadline == Steady() + ahead; });
}

Clock::Deadline Clock::NextDeadline() {
    std::lock_guard lock(m_mutex);
    const Duration now = Steady();
    Deadline next = kNever;
    for (const Sleeper& sleeper : m_sleepers)
        if (sleeper.deadline > now) next = std::min(next, sleeper.deadline);
    return next;
}

}  // namespace winhost
