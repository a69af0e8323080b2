#include <gtest/gtest.h>

#include <windows.h>

#include <thread>
#include <vector>

#include "winhost/core/Clock.h"
#include "winhost/tests/Errors.h"
#include "winhost/tests/ManualTime.h"

using namespace std::chrono_literals;
using winhost::Clock;

namespace {

constexpr DWORD kTimeOut = WAIT_TIMEOUT;

TEST(Event, AutoResetLetsOneWaitThrough) {
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), kTimeOut);
}

TEST(Event, ManualResetStaysSetUntilItIsReset) {
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    ResetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, 0), kTimeOut);
}

TEST(Event, CanStartSet) {
    EXPECT_EQ(WaitForSingleObject(CreateEventA(nullptr, FALSE, TRUE, nullptr), 0), WAIT_OBJECT_0);
}

TEST(Event, SetTwiceBeforeAWaitCountsOnce) {
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    SetEvent(event);
    SetEvent(event);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), kTimeOut);
}

TEST(Event, OfTheSameNameIsTheSame) {
    const HANDLE first = CreateEventA(nullptr, TRUE, FALSE, "name");
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    const HANDLE second = CreateEventA(nullptr, FALSE, TRUE, "name");
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_NE(first, second);
    EXPECT_EQ(WaitForSingleObject(second, 0), kTimeOut);
    SetEvent(first);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0);
    CloseHandle(first);
    CloseHandle(second);
}

TEST(Event, LosesItsNameWithItsLastHandle) {
    CloseHandle(CreateEventA(nullptr, TRUE, TRUE, "name"));
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, "name");
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(WaitForSingleObject(event, 0), kTimeOut);
    CloseHandle(event);
}

TEST(Event, HasNoNameInANamespace) {
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(CreateEventA(nullptr, FALSE, FALSE, "Global\\name")));
}

TEST(Event, WakesAThreadThatWaitsForEver) {
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    DWORD result = WAIT_FAILED;
    std::thread waiter([&] { result = WaitForSingleObject(event, INFINITE); });
    SetEvent(event);
    waiter.join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
}

TEST(Event, ManualResetWakesAllWaiters) {
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] { EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0); });
    SetEvent(event);
    for (auto& waiter : waiters)
        waiter.join();
}

TEST(Event, OutlivesItsHandleForAThreadThatWaits) {
    const ManualTime manual;
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    DWORD result = WAIT_FAILED;
    std::thread waiter([&] { result = WaitForSingleObject(event, 1000); });
    ASSERT_TRUE(Clock::Instance().AwaitSleeper(1s));
    CloseHandle(event);
    Clock::Instance().Advance(1s);
    waiter.join();
    EXPECT_EQ(result, kTimeOut);
}

TEST(Wait, TimesOutByThePcsClock) {
    const ManualTime manual;
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    DWORD result = WAIT_FAILED;
    std::thread waiter([&] { result = WaitForSingleObject(event, 60'000); });
    ASSERT_TRUE(Clock::Instance().AwaitSleeper(60s));
    Clock::Instance().Advance(60s);
    waiter.join();
    EXPECT_EQ(result, kTimeOut);
}

TEST(Wait, TimesOutByTheMachinesClock) {
    const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(event, 20), kTimeOut);
    EXPECT_GE(std::chrono::steady_clock::now() - before, 20ms);
}

TEST(Wait, OnABogusHandleFails) {
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(Sleep, LastsAsLongOnThePcsClock) {
    const ManualTime manual;
    std::thread sleeper([] { Sleep(10'000); });
    ASSERT_TRUE(Clock::Instance().AwaitSleeper(10s));
    Clock::Instance().Advance(10s);
    sleeper.join();
}

TEST(Sleep, OfZeroReturnsAtOnceOnAStandingClock) {
    const ManualTime manual;
    Sleep(0);
}

TEST(LastError, BelongsToItsThread) {
    SetLastError(1);
    std::thread([] {
        EXPECT_EQ(GetLastError(), 0u);
        SetLastError(2);
    }).join();
    EXPECT_EQ(GetLastError(), 1u);
}

class MutexTest : public testing::Test {
  protected:
    const HANDLE m_mutex = CreateMutexA(nullptr, FALSE, nullptr);
    DWORD WaitOnAnotherThread() {
        DWORD result = WAIT_FAILED;
        std::thread([&] {
            result = WaitForSingleObject(m_mutex, 0);
            if (result != kTimeOut) ReleaseMutex(m_mutex);
        }).join();
        return result;
    }
};

TEST_F(MutexTest, BelongsToOneThreadAtATime) {
    EXPECT_EQ(WaitForSingleObject(m_mutex, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitOnAnotherThread(), kTimeOut);
    EXPECT_TRUE(ReleaseMutex(m_mutex));
    EXPECT_EQ(WaitOnAnotherThread(), WAIT_OBJECT_0);
}

TEST_F(MutexTest, IsReleasedAsOftenAsItWasTaken) {
    WaitForSingleObject(m_mutex, INFINITE);
    WaitForSingleObject(m_mutex, INFINITE);
    EXPECT_TRUE(ReleaseMutex(m_mutex));
    EXPECT_EQ(WaitOnAnotherThread(), kTimeOut);
    EXPECT_TRUE(ReleaseMutex(m_mutex));
    EXPECT_EQ(WaitOnAnotherThread(), WAIT_OBJECT_0);
}

TEST_F(MutexTest, IsReleasedByItsOwnerAlone) {
    EXPECT_EQ(ERROR_NOT_OWNER, ErrorOf(ReleaseMutex(m_mutex)));
    WaitForSingleObject(m_mutex, INFINITE);
    std::thread([&] { EXPECT_EQ(ERROR_NOT_OWNER, ErrorOf(ReleaseMutex(m_mutex))); }).join();
    EXPECT_TRUE(ReleaseMutex(m_mutex));
}

TEST_F(MutexTest, CanStartOwned) {
    const HANDLE owned = CreateMutexA(nullptr, TRUE, nullptr);
    EXPECT_TRUE(ReleaseMutex(owned));
    EXPECT_FALSE(ReleaseMutex(owned));
}

TEST_F(MutexTest, IsAbandonedByAThreadThatEndsAsItsOwner) {
    std::thread([&] { WaitForSingleObject(m_mutex, INFINITE); }).join();
    EXPECT_EQ(WaitForSingleObject(m_mutex, INFINITE), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(m_mutex));
    EXPECT_EQ(WaitForSingleObject(m_mutex, INFINITE), WAIT_OBJECT_0);
}

TEST_F(MutexTest, AbandonmentWakesAThreadThatWaits) {
    HANDLE taken = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    HANDLE mayEnd = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::thread owner([&] {
        WaitForSingleObject(m_mutex, INFINITE);
        SetEvent(taken);
        WaitForSingleObject(mayEnd, INFINITE);
    });
    WaitForSingleObject(taken, INFINITE);
    DWORD result = WAIT_FAILED;
    std::thread waiter([&] { result = WaitForSingleObject(m_mutex, INFINITE); });
    SetEvent(mayEnd);
    owner.join();
    waiter.join();
    EXPECT_EQ(result, WAIT_ABANDONED);
}

TEST_F(MutexTest, ClosedWhileOwnedIsReleasedFromMemoryWithItsOwner) {
    std::thread([&] {
        WaitForSingleObject(m_mutex, INFINITE);
        CloseHandle(m_mutex);
    }).join();
    EXPECT_EQ(WaitForSingleObject(m_mutex, 0), WAIT_FAILED);
}

TEST_F(MutexTest, ClosedWhileOwnedHasNoHandleToReleaseItBy) {
    WaitForSingleObject(m_mutex, INFINITE);
    CloseHandle(m_mutex);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(ReleaseMutex(m_mutex)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(ReleaseMutex(nullptr)));
}

TEST_F(MutexTest, OwnersOfSeveralReleaseThemInAnyOrder) {
    const HANDLE other = CreateMutexA(nullptr, TRUE, nullptr);
    WaitForSingleObject(m_mutex, INFINITE);
    EXPECT_TRUE(ReleaseMutex(other));
    EXPECT_TRUE(ReleaseMutex(m_mutex));
    EXPECT_EQ(WaitOnAnotherThread(), WAIT_OBJECT_0);
}

TEST_F(MutexTest, KeepsManyThreadsApart) {
    int shared = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                WaitForSingleObject(m_mutex, INFINITE);
                ++shared;
                ReleaseMutex(m_mutex);
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(shared, 4000);
}

}  // namespace
