// Threads with handles.
#include <future>

#include "winhost/tests/PcFixture.h"

namespace {

using ThreadTest = PcFixture;

struct Stay {
    std::promise<void> release;
    std::atomic<DWORD> id{0};
};

DWORD WINAPI AwaitRelease(LPVOID context) {
    auto* stay = static_cast<Stay*>(context);
    stay->id = GetCurrentThreadId();
    stay->release.get_future().wait();
    return 0;
}

DWORD WINAPI Return0(LPVOID) {
    return 0;
}

TEST_F(ThreadTest, IsWaitedFor) {
    Stay stay;
    DWORD id = 0;
    const HANDLE thread = CreateThread(nullptr, 0, AwaitRelease, &stay, 0, &id);
    ASSERT_NE(nullptr, thread);
    EXPECT_NE(GetCurrentThreadId(), id);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(thread, 0));
    stay.release.set_value();
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, INFINITE));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, 0)) << "it stays signalled";
    EXPECT_EQ(id, stay.id);
    EXPECT_TRUE(CloseHandle(thread));
}

DWORD WINAPI SleepAndTell(LPVOID context) {
    Sleep(2000);
    static_cast<std::promise<void>*>(context)->set_value();
    return 0;
}

TEST_F(ThreadTest, GoesOnWhenItsHandleIsClosed) {
    winhost::Clock& clock = Clock();
    clock.SetManual(true);
    std::promise<void> done;
    const HANDLE thread = CreateThread(nullptr, 0, SleepAndTell, &done, 0, nullptr);
    ASSERT_TRUE(clock.AwaitSleeper(std::chrono::seconds(2)));
    EXPECT_TRUE(CloseHandle(thread));
    clock.Advance(std::chrono::seconds(2));
    done.get_future().wait();
}

TEST_F(ThreadTest, WhatCannotBeDoneIsRefused) {
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(CreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr)));
    constexpr DWORD kSuspended = 4;
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(CreateThread(nullptr, 0, Return0, nullptr, kSuspended, nullptr)));
}

}  // namespace
