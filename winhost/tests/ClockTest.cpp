#include <gtest/gtest.h>

#include <thread>

#include "winhost/core/Clock.h"
#include "winhost/tests/ManualTime.h"

using namespace std::chrono_literals;
using winhost::Clock;

namespace {

const auto kUnixTimeAtStart = std::chrono::system_clock::now().time_since_epoch();

class ManualClock : public testing::Test {
  protected:
    // A thread that sleeps so long on the clock.
    std::thread Sleeper(Clock::Duration time) {
        return std::thread([this, deadline = m_clock.Steady() + time] { m_clock.SleepUntil(deadline); });
    }

    ManualTime m_manual;
    Clock& m_clock = Clock::Instance();
};

TEST_F(ManualClock, StandsStillButForAdvanceWhichMovesTheWallTimeToo) {
    const auto before = m_clock.Steady();
    const uint64_t wallBefore = m_clock.FileTime();
    EXPECT_EQ(m_clock.Steady(), before);
    m_clock.Advance(61s);
    EXPECT_EQ(m_clock.Steady(), before + 61s);
    EXPECT_EQ(m_clock.FileTime(), wallBefore + 610'000'000);
}

TEST_F(ManualClock, EndsASleepWhenItsDeadlineIsReached) {
    std::atomic<bool> awake = false;
    std::thread sleeper([&, deadline = m_clock.Steady() + 10s] {
        m_clock.SleepUntil(deadline);
        awake = true;
    });
    ASSERT_TRUE(m_clock.AwaitSleeper(10s));
    m_clock.Advance(9s);
    ASSERT_TRUE(m_clock.AwaitSleeper(1s)) << "still there, one second from its end";
    EXPECT_FALSE(awake);
    m_clock.Advance(1s);
    sleeper.join();
}

TEST_F(ManualClock, WakesEachSleeperAtItsOwnTime) {
    std::thread first = Sleeper(1s), second = Sleeper(1h);
    ASSERT_TRUE(m_clock.AwaitSleepers(2));
    m_clock.Advance(1s);
    first.join();
    ASSERT_TRUE(m_clock.AwaitSleeper(1h - 1s));
    m_clock.Advance(1h);
    second.join();
}

TEST_F(ManualClock, CountsNoSleeperWhoseTimeHasComeOrDiffersByAMillisecond) {
    EXPECT_FALSE(m_clock.AwaitSleepers(1, 1ms)) << "there is none";
    std::thread sleeper = Sleeper(999ms);
    ASSERT_TRUE(m_clock.AwaitSleeper(999ms));
    EXPECT_FALSE(m_clock.AwaitSleeper(1s, 0ms));
    m_clock.Advance(999ms);
    EXPECT_FALSE(m_clock.AwaitSleepers(1, 0ms));
    sleeper.join();
}

TEST_F(ManualClock, LetsSleepersGoOnWithTheMachineWhenItRunsAgain) {
    std::thread sleeper = Sleeper(5ms);
    ASSERT_TRUE(m_clock.AwaitSleepers(1));
    m_clock.SetManual(false);
    sleeper.join();
}

TEST_F(ManualClock, EndsAWaitByItsConditionBeforeTheDeadline) {
    std::mutex mutex;
    std::condition_variable changed;
    bool ready = false;
    bool result = false;
    std::thread waiter([&, deadline = m_clock.Steady() + 1h] {
        std::unique_lock lock(mutex);
        result = m_clock.WaitUntil(lock, changed, deadline, [&] { return ready; });
    });
    ASSERT_TRUE(m_clock.AwaitSleepers(1));
    {
        std::lock_guard lock(mutex);
        ready = true;
    }
    changed.notify_one();
    waiter.join();
    EXPECT_TRUE(result);
}

// Waiters that come and go while the clock moves: a missed wake-up would leave one behind for ever.
TEST_F(ManualClock, LosesNoWaiterWhileItMoves) {
    constexpr int kWaiters = 4;
    constexpr int kSleeps = 200;
    std::atomic<int> running = kWaiters;
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back([&] {
            for (int sleep = 0; sleep < kSleeps; ++sleep)
                m_clock.SleepUntil(m_clock.Steady() + 10ms);
            --running;
        });
    while (running > 0)
        m_clock.Advance(1ms);
    for (auto& waiter : waiters)
        waiter.join();
}

TEST(RunningClock, FollowsTheMachine) {
    Clock& clock = Clock::Instance();
    const auto before = clock.Steady();
    clock.SleepUntil(before + 5ms);
    EXPECT_GE(clock.Steady(), before + 5ms);
}

TEST(RunningClock, CanBeMovedForwardToo) {
    Clock& clock = Clock::Instance();
    std::thread sleeper([&, deadline = clock.Steady() + 24h] { clock.SleepUntil(deadline); });
    ASSERT_TRUE(clock.AwaitSleepers(1));
    clock.Advance(24h);
    sleeper.join();
}

// The time at which the clock started, because other tests of this process may have moved it since.
TEST(RunningClock, TellsTheTimeOfTheWorld) {
    const Clock& clock = Clock::Instance();
    const auto fileTime = std::chrono::nanoseconds((clock.FileTime() - 116444736000000000) * 100);
    EXPECT_LT(std::chrono::abs(fileTime - clock.Steady() - kUnixTimeAtStart), 5s);
}

TEST(RunningClock, SetsTheWallTimeWithoutMovingTheSteadyOne) {
    Clock& clock = Clock::Instance();
    const ManualTime manual;
    const auto steady = clock.Steady();
    const uint64_t wall = clock.FileTime();
    clock.SetWallOffset(-1h);
    EXPECT_EQ(clock.Steady(), steady);
    EXPECT_EQ(clock.FileTime(), wall - 36'000'000'000);
    clock.SetWallOffset({});
}

TEST(RunningClock, PassesAsMuchFasterAsItsRateSays) {
    Clock& clock = Clock::Instance();
    const auto machine = std::chrono::steady_clock::now();
    const auto before = clock.Steady();
    clock.SetRate(1000);
    clock.SleepUntil(before + 60s);
    clock.SetRate(1);
    const auto took = std::chrono::steady_clock::now() - machine;
    EXPECT_GE(clock.Steady(), before + 60s);
    EXPECT_GE(took, 60ms);
    EXPECT_LT(took, 30s);
}

TEST(RunningClock, DoesNotJumpWhenItsRateChanges) {
    Clock& clock = Clock::Instance();
    clock.SetRate(1000);
    clock.SleepUntil(clock.Steady() + 60s);
    const auto before = clock.Steady();
    clock.SetRate(1);
    EXPECT_GE(clock.Steady(), before);
    EXPECT_LT(clock.Steady(), before + 60s);
}

}  // namespace
