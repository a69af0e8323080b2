// Processes by their handles: opened, waited for, ended.
#include "winhost/tests/LaunchFixture.h"

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
    // Returns once the thread waits for a process without a limit: the wait costs a descriptor.
    static std::thread Waiter(HANDLE process) {
        const size_t descriptors = OpenDescriptors();
        std::thread waiter([=] { EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, INFINITE)); });
        EXPECT_TRUE(Eventually([=] { return OpenDescriptors() == descriptors + 1; }));
        return waiter;
    }
};

TEST_F(ProcessHandle, IdsOfNoProcessAreInvalid) {
    for (const DWORD id : {DWORD{0}, DWORD{5000004}, DWORD{0x7FFFFFFF}, DWORD{0xFFFFFFFF}})
        EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfOpen(id)) << id;
}

TEST_F(ProcessHandle, AnEndedProcessHasItsIdButCannotBeOpenedAnyMore) {
    const Started started = StartSleeper();
    End(started.information.hProcess);
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOfOpen(started.Id()));
    AwaitReaped(started.Id());
    EXPECT_EQ(started.Id(), GetProcessId(started.information.hProcess));
}

TEST_F(ProcessHandle, WhatIsNotSupportedIsRefused) {
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOfOpen(GetCurrentProcessId(), GENERIC_ALL));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(OpenProcess(PROCESS_TERMINATE, TRUE, GetCurrentProcessId())));
}

TEST_F(ProcessHandle, TheIdIsToldToThoseWhoMayAsk) {
    const Started started = StartSleeper();
    EXPECT_EQ(started.Id(), GetProcessId(started.information.hProcess));
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, started.Id());
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(GetProcessId(process)));
    CloseHandle(process);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(GetProcessId(process)));
    EXPECT_EQ(GetCurrentProcessId(), GetProcessId(GetCurrentProcess()));
}

// ---- ending ----

TEST_F(ProcessHandle, AWaitAndAnEndNeedTheirRights) {
    const Started started = StartSleeper();
    const HANDLE toWait = Keep(OpenProcess(SYNCHRONIZE, FALSE, started.Id()));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(TerminateProcess(toWait, 9)));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(toWait, 0));
    const HANDLE toEnd = Keep(OpenProcess(PROCESS_TERMINATE, FALSE, IdOf("winlogon.exe")));
    EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(toEnd, 0));
    EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
}

TEST_F(ProcessHandle, EndingAnEndedOneIsDenied) {
    Started started = StartSleeper();
    End(started.information.hProcess);
    const HANDLE process = started.information.hProcess;
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(TerminateProcess(process, 9)));
    started.Close();
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(TerminateProcess(process, 9)));
}

TEST_F(ProcessHandle, ADescribedOneLeavesTheDescription) {
    const HANDLE process = Keep(OpenProcess(PROCESS_ALL_ACCESS, FALSE, IdOf("winlogon.exe")));
    ASSERT_TRUE(process);
    EXPECT_TRUE(TerminateProcess(process, 9));
    EXPECT_EQ(0u, IdOf("winlogon.exe"));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(TerminateProcess(process, 9)));
}

TEST_F(ProcessHandle, TheCallingOneEndsWithItsCode) {
    EXPECT_EXIT(TerminateProcess(GetCurrentProcess(), 7), testing::ExitedWithCode(7), "");
    EXPECT_EXIT(TerminateProcess(OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(getpid())), 8),
                testing::ExitedWithCode(8), "");
}

// ---- waiting ----

TEST_F(ProcessHandle, AWaitWithoutTimeTellsWhetherItRuns) {
    const Started started = StartSleeper();
    const HANDLE process = Keep(OpenProcess(SYNCHRONIZE, FALSE, started.Id()));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(process, 0));
    End(started.information.hProcess);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, 0)) << "it stays signalled";
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(started.information.hThread, 0));
}

TEST_F(ProcessHandle, AWaitEndsWithTheProcess) {
    const Started started = StartSleeper();
    const size_t descriptors = OpenDescriptors();
    std::thread waiter = Waiter(started.information.hProcess);
    kill(static_cast<pid_t>(started.Id()), SIGKILL);
    waiter.join();
    EXPECT_TRUE(AwaitReaped(started.Id()));
    EXPECT_EQ(descriptors - 1, OpenDescriptors());
}

TEST_F(ProcessHandle, TheHandleMayBeClosedWhileAThreadWaits) {
    Started started = StartSleeper();
    std::thread waiter = Waiter(started.information.hProcess);
    started.Close();
    kill(static_cast<pid_t>(started.Id()), SIGKILL);
    waiter.join();
}

TEST_F(ProcessHandle, AWaitEndsByThePcsClock) {
    const Started started = StartSleeper();
    const size_t descriptors = OpenDescriptors();
    const ManualTime manual;
    std::thread waiter(
        [&] { EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(started.information.hProcess, 60000)); });
    PassSleepOf(std::chrono::minutes(1));
    waiter.join();
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST_F(ProcessHandle, ManyThreadsWaitForOneProcess) {
    const Started started = StartSleeper();
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back(
            [&] { EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(started.information.hProcess, INFINITE)); });
    EXPECT_TRUE(TerminateProcess(started.information.hProcess, 9));
    for (std::thread& waiter : waiters)
        waiter.join();
}

TEST_F(ProcessHandle, AWaitForADescribedOneEndsWithItsDescription) {
    const HANDLE process = Keep(OpenProcess(PROCESS_ALL_ACCESS, FALSE, IdOf("winlogon.exe")));
    const ManualTime manual;
    std::thread waiter([&] { EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, 60000)); });
    EXPECT_TRUE(Clock().AwaitSleeper(std::chrono::minutes(1)));
    Change([](auto& pc) { pc.processes.clear(); });
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
