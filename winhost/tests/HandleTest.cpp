#include <gtest/gtest.h>

#include <windows.h>
#include <handleapi.h>
#include <setupapi.h>

#include <set>
#include <thread>
#include <vector>

#include "winhost/core/HandleTable.h"
#include "winhost/tests/Errors.h"

namespace {

HANDLE NewEvent() {
    return CreateEventA(nullptr, TRUE, FALSE, nullptr);
}

HANDLE Pseudo(intptr_t value) {
    return reinterpret_cast<HANDLE>(value);
}

TEST(Handles, AreMultiplesOfFourAndDiffer) {
    std::set<HANDLE> seen;
    for (int i = 0; i < 100; ++i) {
        const HANDLE handle = NewEvent();
        EXPECT_EQ(reinterpret_cast<uintptr_t>(handle) % 4, 0u);
        EXPECT_TRUE(seen.insert(handle).second);
    }
    for (const HANDLE handle : seen)
        CloseHandle(handle);
}

TEST(Handles, AreGoneOnceClosed) {
    const HANDLE event = NewEvent();
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CloseHandle(event)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(SetEvent(event)));
}

TEST(Handles, AStaleOneDoesNotMeetTheNextObject) {
    const HANDLE stale = NewEvent();
    CloseHandle(stale);
    for (int i = 0; i < 1000; ++i) {
        const HANDLE event = NewEvent();
        EXPECT_NE(event, stale);
        EXPECT_FALSE(SetEvent(stale));
        CloseHandle(event);
    }
}

TEST(Handles, AreCountedWhenTheyAreUsedOrClosedAfterTheirClose) {
    const auto& table = winhost::HandleTable::Instance();
    const size_t uses = table.StaleUses(), closes = table.StaleCloses();
    const HANDLE event = NewEvent();
    CloseHandle(event);
    // None that was there once.
    SetEvent(nullptr);
    CloseHandle(nullptr);
    EXPECT_EQ(table.StaleUses(), uses);
    EXPECT_EQ(table.StaleCloses(), closes);
    SetEvent(event);
    EXPECT_EQ(table.StaleUses(), uses + 1);
    CloseHandle(event);
    EXPECT_EQ(table.StaleCloses(), closes + 1);
}

TEST(Handles, ThatWereNeverMadeAreInvalid) {
    for (const intptr_t value : {0, 4, 0x7FFFFFFC, -3, -8}) {
        EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(SetEvent(Pseudo(value)))) << value;
    }
    int local = 0;
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CloseHandle(&local)));
}

TEST(Handles, OfAnotherKindAreInvalid) {
    const HANDLE mutex = CreateMutexA(nullptr, FALSE, nullptr);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(SetEvent(mutex)));
}

TEST(Handles, ClosingAPseudoHandleHasNoEffect) {
    EXPECT_EQ(GetCurrentProcess(), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(CloseHandle(GetCurrentProcess()));
    EXPECT_TRUE(CloseHandle(GetCurrentProcess()));
}

TEST(Handles, OfDeviceListsAreNotForCloseHandle) {
    const GUID anyClass{};
    const HDEVINFO list =
        SetupDiGetClassDevsA(&anyClass, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CloseHandle(list)));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(list));
}

TEST(Handles, AreInheritedByNoProgram) {
    const HANDLE event = NewEvent();
    EXPECT_TRUE(SetHandleInformation(event, HANDLE_FLAG_INHERIT, 0));
    EXPECT_EQ(ERROR_NOT_SUPPORTED,
              ErrorOf(SetHandleInformation(event, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT)));
    CloseHandle(event);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(SetHandleInformation(event, HANDLE_FLAG_INHERIT, 0)));
}

TEST(Handles, AreCountedWhileOpen) {
    const size_t before = winhost::HandleTable::Instance().Size();
    const HANDLE event = NewEvent();
    EXPECT_EQ(winhost::HandleTable::Instance().Size(), before + 1);
    CloseHandle(event);
    EXPECT_EQ(winhost::HandleTable::Instance().Size(), before);
}

TEST(Handles, AreMadeAndClosedByManyThreadsAtOnce) {
    const size_t before = winhost::HandleTable::Instance().Size();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int n = 0; n < 2000; ++n) {
                const HANDLE event = NewEvent();
                EXPECT_TRUE(SetEvent(event));
                EXPECT_TRUE(CloseHandle(event));
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(winhost::HandleTable::Instance().Size(), before);
}

}  // namespace
