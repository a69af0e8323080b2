// Which processes a PC has, and what a snapshot of them contains.
#include <algorithm>

#include "winhost/pc/Marks.h"
#include "winhost/tests/LaunchFixture.h"
#include "winhost/tests/Shell.h"

namespace {

using Texts = std::vector<std::string>;

class Toolhelp : public LaunchFixture {
  protected:
    HANDLE Snapshot() { return Keep(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0)); }
    static PROCESSENTRY32 NewEntry() {
        PROCESSENTRY32 entry{};
        entry.dwSize = sizeof entry;
        return entry;
    }
    static Texts Names(DWORD flags = TH32CS_SNAPPROCESS) {
        Texts names;
        const HANDLE snapshot = CreateToolhelp32Snapshot(flags, 0);
        EXPECT_NE(INVALID_HANDLE_VALUE, snapshot);
        PROCESSENTRY32 entry = NewEntry();
        for (BOOL more = Process32First(snapshot, &entry); more; more = Process32Next(snapshot, &entry))
            names.push_back(entry.szExeFile);
        EXPECT_EQ(ERROR_NO_MORE_FILES, GetLastError());
        EXPECT_TRUE(CloseHandle(snapshot));
        return names;
    }
    static size_t Count(const std::string& name) {
        const Texts names = Names();
        return static_cast<size_t>(std::count(names.begin(), names.end(), name));
    }
    // Started by another hand than this process's, with this PC's mark and no more.
    static void StartMarked(const std::string& command) {
        const std::string root = winhost::RootMark(Description());
        ASSERT_EQ(
            0, RunInShell("WINHOST_ROOT='" + root + "' setsid " + command + " </dev/null >/dev/null 2>&1 &"));
    }
};

TEST_F(Toolhelp, TheDescribedProcessesComeFirstThenTheCallingOne) {
    StartPc([](auto& pc) { pc.modulePath = R"(C:\Program Files\bin\service.exe)"; });
    EXPECT_EQ((Texts{"System", "services.exe", "winlogon.exe", "service.exe"}), Names());
    EXPECT_EQ(Names(), Names(TH32CS_SNAPALL));
}

TEST_F(Toolhelp, TheCallingProcessIsNamedByItsFileWhenThePcHasNoName) {
    EXPECT_EQ(std::filesystem::read_symlink("/proc/self/exe").filename().string(), Names().back());
}

TEST_F(Toolhelp, AnEntryTellsTheProcessAndItsParent) {
    const HANDLE snapshot = Snapshot();
    PROCESSENTRY32 entry = NewEntry();
    for (BOOL more = Process32First(snapshot, &entry); more && entry.th32ProcessID != GetCurrentProcessId();)
        more = Process32Next(snapshot, &entry);
    EXPECT_EQ(GetCurrentProcessId(), entry.th32ProcessID);
    EXPECT_EQ(static_cast<DWORD>(getppid()), entry.th32ParentProcessID);
    EXPECT_EQ(Threads(), entry.cntThreads);
    EXPECT_EQ(sizeof entry, entry.dwSize);
}

TEST_F(Toolhelp, FirstBeginsAnew) {
    const HANDLE snapshot = Snapshot();
    PROCESSENTRY32 entry = NewEntry();
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(Process32First(snapshot, &entry));
        EXPECT_STREQ("System", entry.szExeFile);
        EXPECT_TRUE(Process32Next(snapshot, &entry));
        EXPECT_STREQ("services.exe", entry.szExeFile);
    }
}

TEST_F(Toolhelp, ASnapshotStaysAsItWas) {
    const HANDLE snapshot = Snapshot();
    Change([](auto& pc) { pc.processes.clear(); });
    PROCESSENTRY32 entry = NewEntry();
    EXPECT_TRUE(Process32First(snapshot, &entry));
    EXPECT_STREQ("System", entry.szExeFile);
    EXPECT_EQ(1u, Names().size());
}

TEST_F(Toolhelp, TheSizeHasToBeToldAndTheHandleASnapshots) {
    const HANDLE snapshot = Snapshot();
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry - 1;
    EXPECT_EQ(ERROR_BAD_LENGTH, ErrorOf(Process32First(snapshot, &entry)));
    CloseHandle(snapshot);
    entry.dwSize = sizeof entry;
    for (const HANDLE none : {snapshot, INVALID_HANDLE_VALUE}) {
        SetLastError(0);
        EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(Process32Next(none, &entry)));
    }
}

TEST_F(Toolhelp, AFailureIsTheInvalidHandle) {
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(CreateToolhelp32Snapshot(TH32CS_SNAPALL, 5000000)));
}

TEST_F(Toolhelp, AStartedProgramIsThereWhenTheCallReturnsAndGoneWithItsEnd) {
    WriteSleeper("bin/app.exe");
    for (int i = 0; i < 20; ++i) {
        const Started started = Start(R"("C:\bin\app.exe" 1000)");
        EXPECT_EQ(std::vector<DWORD>{started.Id()}, IdsOf("app.exe"));
        End(started.information.hProcess);
        EXPECT_EQ(0u, Count("app.exe"));
    }
}

TEST_F(Toolhelp, AProgramIsNamedAsItWasStartedWhateverItsFile) {
    WriteSleeper("link.exe");
    WriteScript("script.exe", "read nothing < C:/fifo");
    WriteScript("becomes.exe", "exec sleep 1000");
    ASSERT_EQ(0, mkfifo(OnC("fifo").c_str(), 0600));
    for (const char* command : {R"("C:\link.exe" 1000)", R"("C:\script.exe")", R"("C:\becomes.exe")"})
        Start(command);
    for (const char* name : {"link.exe", "script.exe", "becomes.exe"})
        EXPECT_EQ(1u, Count(name)) << name;
    Start(R"("C:\link.exe" 1000)");
    EXPECT_EQ(2u, Count("link.exe")) << "both of a kind are there";
}

TEST_F(Toolhelp, WhatAProgramStartsIsThereUnderItsOwnName) {
    WriteScript("app.exe", "sleep 1000");
    Start(R"("C:\app.exe")");
    EXPECT_TRUE(Eventually([] { return Count("sleep") == 1; }));
    EXPECT_EQ(1u, Count("app.exe"));
    EXPECT_EQ(1u, SessionOf(IdOf("sleep")));
}

TEST_F(Toolhelp, AProgramOfAnEarlierRunOnTheSameRootIsSeen) {
    WriteSleeper("app.exe");
    StartMarked(OnC("app.exe").string() + " 1000");
    EXPECT_TRUE(Eventually([] { return Count("app.exe") == 1; }));
    const HANDLE process = Keep(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, IdOf("app.exe")));
    ASSERT_TRUE(process);
    End(process);
}

TEST_F(Toolhelp, AScriptWithTheMarkAloneHasTheScriptsName) {
    WriteScript("a script with a long name.exe", "read nothing < C:/fifo");
    ASSERT_EQ(0, mkfifo(OnC("fifo").c_str(), 0600));
    StartMarked("'" + OnC("a script with a long name.exe").string() + "'");
    EXPECT_TRUE(Eventually([] { return Count("a script with a long name.exe") == 1; }));
}

TEST_F(Toolhelp, PcsWithOtherRootsSeeNothingOfEachOther) {
    WriteSleeper("app.exe");
    const Started started = Start(R"("C:\app.exe" 1000)");
    const std::string other = (m_root / "other").string();
    winhost::PcDescription description;
    description.root = other;
    winhost::Pc::Instance().Reset(description);
    EXPECT_EQ(0u, Count("app.exe"));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(OpenProcess(PROCESS_TERMINATE, FALSE, started.Id())));
    StartPc([](auto&) {});
    EXPECT_EQ(1u, Count("app.exe"));
}

TEST_F(Toolhelp, ProcessesOfTheMachineAreNotThere) {
    EXPECT_EQ(4u, Names().size());
    EXPECT_FALSE(OpenProcess(PROCESS_TERMINATE, FALSE, 1));
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              ErrorOf(OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(getppid()))));
}

TEST_F(Toolhelp, ANameThatIsTooLongIsCut) {
    Change([](auto& pc) { pc.processes = {{std::string(300, 'x'), 5000000, 0}}; });
    EXPECT_EQ(std::string(MAX_PATH - 1, 'x'), Names().front());
}

}  // namespace
