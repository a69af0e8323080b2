// Processes by their handles: opened, waited for, ended.
#include <thread>

#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/tests/LaunchFixture.h"
#include "winhost/tests/ManualTime.h"

namespace {

class ProcessHandle : public LaunchFixture {
  protected:
    ProcessHandle() { WriteSleeper("app.exe"); }

    static Started StartSleeper() { return Start(R"("C:\app.exe" 1000)"); }
    static DWORD ErrorOfOpen(DWORD id, DWORD access = PROCESS_ALL_ACCESS) {
        SetLastError(0);
        EXPECT_FALSE(OpenProcess(access, FALSE, id));
        return GetLastError();
    }
    static void End(const Started& started) {
        EXPECT_TRUE(TerminateProcess(started.information.hProcess, 9));
        EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(started.information.hProcess, INFINITE));
    }
    static std::chrono::milliseconds Milliseconds(int count) { return std::chrono::milliseconds(count); }
};

TEST_F(ProcessHandle, IdsOfNoProcessAreInvalid) {
    for (const DWORD id : {DWORD{0}, DWORD{5000004}, DWORD{0x7FFFFFFF}, DWORD{0xFFFFFFFF}})
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOfOpen(id)) << id;
}

TEST_F(ProcessHandle, AnEndedProcessCannotBeOpenedAnyMore) {
    const Started started = StartSleeper();
    End(started);
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOfOpen(started.Id()));
}

TEST_F(ProcessHandle, WhatIsNotSupportedIsRefused) {
    EXPECT_EQ(DWORD{ERROR_NOT_SUPPORTED}, ErrorOfOpen(GetCurrentProcessId(), GENERIC_ALL));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(OpenProcess(PROCESS_TERMINATE, TRUE, GetCurrentProcessId())));
}

TEST_F(ProcessHandle, TheIdIsToldToThoseWhoMayAsk) {
    const Started started = StartSleeper();
    EXPECT_EQ(started.Id(), GetProcessId(started.information.hProcess));
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, started.Id());
    EXPECT_EQ(0u, GetProcessId(process));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, GetLastError());
    CloseHandle(process);
    EXPECT_EQ(0u, GetProcessId(process));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
    EXPECT_EQ(GetCurrentProcessId(), GetProcessId(GetCurrentProcess()));
}

TEST_F(ProcessHandle, TheIdIsToldAlsoOfAnEndedProcess) {
    const Started started = StartSleeper();
    End(started);
    AwaitReaped(started.Id());
    EXPECT_EQ(started.Id(), GetProcessId(started.information.hProcess));
}

// ---- ending ----

TEST_F(ProcessHandle, EndingNeedsItsRight) {
    const Started started = StartSleeper();
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, started.Id());
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(TerminateProcess(process, 9)));
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(process, 0));
    CloseHandle(process);
}

TEST_F(ProcessHandle, EndingAnEndedOneIsDenied) {
    Started started = StartSleeper();
    End(started);
    const HANDLE process = started.information.hProcess;
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(TerminateProcess(process, 9)));
    started.Close();
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(TerminateProcess(process, 9)));
}

TEST_F(ProcessHandle, ADescribedOneLeavesTheDescription) {
    const HANDLE process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, IdOf("winlogon.exe"));
    ASSERT_TRUE(process);
    EXPECT_TRUE(TerminateProcess(process, 9));
    EXPECT_EQ(0u, IdOf("winlogon.exe"));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(TerminateProcess(process, 9)));
    CloseHandle(process);
}

TEST_F(ProcessHandle, TheCallingOneEndsWithItsCode) {
    EXPECT_EXIT(TerminateProcess(GetCurrentProcess(), 7), testing::ExitedWithCode(7), "");
    EXPECT_EXIT(TerminateProcess(OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(getpid())), 8),
                testing::ExitedWithCode(8), "");
}

// ---- waiting ----

TEST_F(ProcessHandle, AWaitWithoutTimeTellsWhetherItRuns) {
    const Started started = StartSleeper();
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, started.Id());
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(process, 0));
    End(started);
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(process, 0));
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(process, 0)) << "it stays signalled";
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(started.information.hThread, 0));
    CloseHandle(process);
}

TEST_F(ProcessHandle, AWaitNeedsItsRight) {
    const HANDLE process = OpenProcess(PROCESS_TERMINATE, FALSE, IdOf("winlogon.exe"));
    EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(process, 0));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, GetLastError());
    CloseHandle(process);
}

TEST_F(ProcessHandle, AWaitEndsWithTheProcess) {
    const Started started = StartSleeper();
    const size_t descriptors = OpenDescriptors();
    std::thread waiter([&] {
        EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(started.information.hProcess, INFINITE));
    });
    EXPECT_TRUE(Eventually([&] { return OpenDescriptors() == descriptors + 1; })) << "it waits";
    kill(static_cast<pid_t>(started.Id()), SIGKILL);
    waiter.join();
    EXPECT_TRUE(AwaitReaped(started.Id()));
    EXPECT_EQ(descriptors - 1, OpenDescriptors());
}

TEST_F(ProcessHandle, AWaitEndsByThePcsClock) {
    const Started started = StartSleeper();
    const size_t descriptors = OpenDescriptors();
    const ManualTime manual;
    std::thread waiter(
        [&] { EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(started.information.hProcess, 60000)); });
    EXPECT_TRUE(winhost::Clock::Instance().AwaitSleeper(Milliseconds(60000)));
    winhost::Clock::Instance().Advance(Milliseconds(60000));
    waiter.join();
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST_F(ProcessHandle, ManyThreadsWaitForOneProcess) {
    const Started started = StartSleeper();
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] {
            EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(started.information.hProcess, INFINITE));
        });
    EXPECT_TRUE(TerminateProcess(started.information.hProcess, 9));
    for (std::thread& waiter : waiters)
        waiter.join();
}

TEST_F(ProcessHandle, AWaitForADescribedOneEndsWithItsDescription) {
    const HANDLE process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, IdOf("winlogon.exe"));
    const ManualTime manual;
    std::thread waiter([&] { EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(process, 60000)); });
    EXPECT_TRUE(winhost::Clock::Instance().AwaitSleeper(Milliseconds(60000)));
    winhost::Pc::Instance().Change([](auto& pc) { pc.processes.clear(); });
    waiter.join();
    CloseHandle(process);
}

TEST_F(ProcessHandle, TheHandleMayBeClosedWhileSomebodyWaits) {
    Started started = StartSleeper();
    const HANDLE process = started.information.hProcess;
    const size_t descriptors = OpenDescriptors();
    std::thread waiter([&] { EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(process, INFINITE)); });
    EXPECT_TRUE(Eventually([&] { return OpenDescriptors() == descriptors + 1; }));
    started.Close();
    kill(static_cast<pid_t>(started.Id()), SIGKILL);
    waiter.join();
}

TEST_F(ProcessHandle, AnOpenHandleOfARunningProcessCostsAPlaceInTheTableAlone) {
    const Started started = StartSleeper();
    const size_t descriptors = OpenDescriptors(), threads = Threads();
    const size_t handles = winhost::HandleTable::Instance().Size();
    std::vector<HANDLE> opened;
    for (int i = 0; i < 50; ++i)
        opened.push_back(OpenProcess(PROCESS_ALL_ACCESS, FALSE, started.Id()));
    EXPECT_EQ(handles + 50, winhost::HandleTable::Instance().Size());
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(threads, Threads());
    for (const HANDLE process : opened)
        CloseHandle(process);
}

}  // namespace
