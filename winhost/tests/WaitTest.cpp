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

HANDLE NewEvent(bool isManual, bool isSet = false, const char* name = nullptr) {
    return CreateEventA(nullptr, isManual, isSet, name);
}
// What a wait without time returns.
DWORD Look(HANDLE object) {
    return WaitForSingleObject(object, 0);
}

TEST(Event, AutoResetLetsOneWaitThrough) {
    const HANDLE event = NewEvent(false);
    for (const int times : {1, 2}) {
        for (int i = 0; i < times; ++i)
            SetEvent(event);
        EXPECT_EQ(Look(event), WAIT_OBJECT_0) << times;
        EXPECT_EQ(Look(event), kTimeOut) << times;
    }
}

TEST(Event, ManualResetStaysSetUntilItIsReset) {
    const HANDLE event = NewEvent(true);
    SetEvent(event);
    EXPECT_EQ(Look(event), WAIT_OBJECT_0);
    EXPECT_EQ(Look(event), WAIT_OBJECT_0);
    ResetEvent(event);
    EXPECT_EQ(Look(event), kTimeOut);
}

TEST(Event, CanStartSet) {
    EXPECT_EQ(Look(NewEvent(false, true)), WAIT_OBJECT_0);
}

TEST(Event, OfTheSameNameIsTheSame) {
    const HANDLE first = NewEvent(true, false, "name");
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    const HANDLE second = NewEvent(false, true, "name");
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_NE(first, second);
    EXPECT_EQ(Look(second), kTimeOut);
    SetEvent(first);
    EXPECT_EQ(Look(second), WAIT_OBJECT_0);
    EXPECT_EQ(Look(second), WAIT_OBJECT_0);
    CloseHandle(first);
    CloseHandle(second);
}

TEST(Event, LosesItsNameWithItsLastHandle) {
    CloseHandle(NewEvent(true, true, "name"));
    const HANDLE event = NewEvent(true, false, "name");
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_EQ(Look(event), kTimeOut);
    CloseHandle(event);
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(NewEvent(false, false, "Global\\name")));
}

TEST(Event, WakesAThreadThatWaitsForEver) {
    const HANDLE event = NewEvent(false);
    DWORD result = WAIT_FAILED;
    std::thread waiter([&] { result = WaitForSingleObject(event, INFINITE); });
    SetEvent(event);
    waiter.join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
}

TEST(Event, ManualResetWakesAllWaiters) {
    const HANDLE event = NewEvent(true);
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] { EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0); });
    SetEvent(event);
    for (auto& waiter : waiters)
        waiter.join();
}

TEST(Wait, TimesOutByThePcsClockThoughTheHandleIsClosed) {
    for (const bool closes : {false, true}) {
        const ManualTime manual;
        const HANDLE event = NewEvent(false);
        DWORD result = WAIT_FAILED;
        std::thread waiter([&] { result = WaitForSingleObject(event, 60'000); });
        ASSERT_TRUE(Clock::Instance().AwaitSleeper(60s));
        if (closes) CloseHandle(event);
        Clock::Instance().Advance(60s);
        waiter.join();
        EXPECT_EQ(result, kTimeOut) << closes;
    }
}

TEST(Wait, TimesOutByTheMachinesClock) {
    const HANDLE event = NewEvent(false);
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
    Sleep(0);
    std::thread sleeper([] { Sleep(10'000); });
    ASSERT_TRUE(Clock::Instance().AwaitSleeper(10s));
    Clock::Instance().Advance(10s);
    sleeper.join();
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
            result = Look(m_mutex);
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
    HANDLE taken = NewEvent(true);
    HANDLE mayEnd = NewEvent(true);
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
    EXPECT_EQ(Look(m_mutex), WAIT_FAILED);
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
