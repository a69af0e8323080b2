// Programs that the service starts at the console.
#include "session/LaunchProcess.h"

#include <gtest/gtest.h>

#include <fstream>
#include <ostream>
#include <sstream>

#include "tests/support/LinkedFixture.h"
#include "winhost/core/HandleTable.h"
#include "winhost/power/Privileges.h"
#include "winhost/process/Token.h"

namespace {

constexpr uint32_t kUntouched = 4711;
constexpr char kProgram[] = "helper.exe";
constexpr char kCommand[] = R"("C:\Program Files\Tarvix\Service\bin\helper.exe" -a 1)";
constexpr char kNoLogonProgram[] = "getWindowsLogonHandle: OpenProcess failed returning false";
constexpr DWORD kWithBlock = CREATE_UNICODE_ENVIRONMENT | DETACHED_PROCESS;

class Launch : public LinkedFixture {
  protected:
    void SetUp() override {
        LinkedFixture::SetUp();
        WriteProgram(kProgram, kStubborn);
    }

    bool Run() { return LaunchProcess(kProgram, kCommand, m_pid); }
    static void SetProcesses(std::vector<winhost::DescribedProcess> processes, uint32_t consoleSession) {
        Pc().Change([&](winhost::PcDescription& description) {
            description.processes = processes;
            description.consoleSession = consoleSession;
        });
    }
    static winhost::ProcessLaunch TheLaunch() {
        const auto launches = Pc().Records<winhost::ProcessLaunch>();
        EXPECT_EQ(launches.size(), 1u);
        return launches.empty() ? winhost::ProcessLaunch{} : launches[0];
    }

    static std::string ReadText(const std::filesystem::path& path) {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    uint32_t m_pid = kUntouched;
};

constexpr uint32_t kFirst = winhost::PcDescription::kFirstDescribedPid;

}  // namespace

TEST_F(Launch, StartsTheProgramOnTheDesktopOfTheConsolesSession) {
    ASSERT_TRUE(Run());
    EXPECT_EQ(IdsOf(kProgram), std::vector<DWORD>{m_pid});
    const winhost::ProcessLaunch launch = TheLaunch();
    EXPECT_EQ(launch.commandLine, kCommand);
    EXPECT_EQ(launch.desktop, "Winsta0\\Default");
    EXPECT_EQ(launch.session, 1u);
    EXPECT_EQ(launch.flags, kWithBlock);
    EXPECT_TRUE(launch.environment);
    EXPECT_EQ(launch.pid, m_pid);
}

TEST_F(Launch, TellsWhatItDoes) {
    ASSERT_TRUE(Run());
    const std::vector<std::string> lines = {
        std::string(" Command: ") + kCommand, "LaunchProcess: helper.exe SessionID: 0x1",
        "GetWindowsLogonPID: SessionID: 0x1", "LaunchProcess: helper.exe - CreateProcessAsUser success",
        "LaunchProcess: helper.exe PID: " + std::to_string(m_pid)};
    ExpectLogInOrder(lines);
    for (const std::string& line : lines)
        EXPECT_TRUE(HasLine("INFO", line)) << line;
}

TEST_F(Launch, GivesTheProgramTheEnvironmentOfThePc) {
    Pc().Change([](auto& description) { description.environment["COLOUR"] = "blue green"; });
    WriteProgram(kProgram, "echo \"$COLOUR, $PROGRAMDATA\" > C:/seen.tmp\nmv C:/seen.tmp C:/seen");
    ASSERT_TRUE(Run());
    const auto seen = HostPath("C:\\seen");
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(seen); }));
    EXPECT_EQ(ReadText(seen), "blue green, C:\\ProgramData\n");
}

TEST_F(Launch, KeepsItsOwnEnvironmentFromTheProgram) {
    ASSERT_TRUE(Run());
    EXPECT_EQ(ArgumentsOf("CreateEnvironmentBlock", "bInherit"), std::vector<uint32_t>{FALSE});
}

TEST_F(Launch, HandsTheArgumentsOver) {
    WriteProgram(kProgram, "echo \"$# $1 $2\" > C:/seen.tmp\nmv C:/seen.tmp C:/seen");
    ASSERT_TRUE(Run());
    const auto seen = HostPath("C:\\seen");
    ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(seen); }));
    EXPECT_EQ(ReadText(seen), "2 -a 1\n");
}

TEST_F(Launch, WorksOnALockedDesktop) {
    Pc().Change([](auto& description) { description.desktopLocked = true; });
    EXPECT_TRUE(Run());
}

TEST_F(Launch, FailsWhenNoSessionIsAtTheConsole) {
    ExpectError(kNoLogonProgram);
    Pc().Change([](auto& description) { description.consoleSession = winhost::PcDescription::kNoSession; });
    EXPECT_FALSE(Run());
    EXPECT_EQ(m_pid, kUntouched);
    EXPECT_TRUE(HasLine("INFO", "LaunchProcess: helper.exe SessionID: 0xffffffff"));
    EXPECT_TRUE(HasLine("ERROR", kNoLogonProgram));
    EXPECT_EQ(Gate().Count("CreateProcessAsUserA"), 0u);
}

TEST_F(Launch, TakesTheLogonProgramOfTheConsolesSessionOnly) {
    for (const uint32_t console : {1u, 2u, 3u}) {
        SCOPED_TRACE(console);
        Pc().Change([](auto& description) {
            description.privileges = {"SeAssignPrimaryTokenPrivilege", "SeIncreaseQuotaPrivilege"};
        });
        SetProcesses(
            {{"winlogon.exe", kFirst, 1}, {"winlogon.exe", kFirst + 4, 2}, {"winlogon.exe", kFirst + 8, 3}},
            console);
        // The session of the token itself shows, since this service may not set another one.
        ASSERT_TRUE(Run());
        EXPECT_EQ(Pc().Records<winhost::ProcessLaunch>().back().session, console);
    }
}

TEST_F(Launch, FailsWhenOnlyOtherSessionsHaveALogonProgram) {
    ExpectError(kNoLogonProgram);
    SetProcesses({{"winlogon.exe", kFirst, 1}, {"explorer.exe", kFirst + 4, 2}}, 2);
    EXPECT_FALSE(Run());
}

TEST_F(Launch, KnowsTheLogonProgramByItsNameToTheLetter) {
    ExpectError(kNoLogonProgram);
    SetProcesses(
        {{"WINLOGON.EXE", kFirst, 1}, {"winlogon.exe.bak", kFirst + 4, 1}, {"winlogon", kFirst + 8, 1}}, 1);
    EXPECT_FALSE(Run());
}

TEST_F(Launch, PassesOverALogonProgramWhoseSessionCannotBeTold) {
    SetProcesses({{"winlogon.exe", kFirst, 1}, {"winlogon.exe", kFirst + 4, 1}}, 1);
    Gate().FailNth("ProcessIdToSessionId", 1, ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(Run());
    EXPECT_EQ(Gate().Count("ProcessIdToSessionId"), 2u);
}

// With it the session can be set on a token of another one, which a first launch has not got yet.
TEST_F(Launch, EnablesThePrivilegeToActForTheSystem) {
    ASSERT_FALSE(winhost::IsPrivilegeEnabled(SE_TCB_NAME));
    ASSERT_TRUE(Run());
    EXPECT_TRUE(winhost::IsPrivilegeEnabled(SE_TCB_NAME));
}

TEST_F(Launch, ReportsAProgramThatIsNotThere) {
    ExpectError("LaunchProcess: helper.exe CreateProcessAsUser failed with error: 2");
    std::filesystem::remove(HostPath(std::string(kBin) + kProgram));
    EXPECT_FALSE(Run());
    EXPECT_EQ(m_pid, kUntouched);
    EXPECT_TRUE(HasLine("ERROR", "LaunchProcess: helper.exe CreateProcessAsUser failed with error: 2"));
    EXPECT_EQ(Gate().Count("DestroyEnvironmentBlock"), 1u);
}

TEST_F(Launch, GoesWithoutAnEnvironmentBlockThatCannotBeHad) {
    constexpr char kLine[] = "LaunchProcess: helper.exe CreateProcessAsUser winlogon 2 GetLastError: 0";
    ExpectError(kLine);
    Gate().FailNth("CreateEnvironmentBlock", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_TRUE(Run());
    // The process id isn't returned.
    EXPECT_EQ(m_pid, kUntouched);
    EXPECT_TRUE(HasLine("ERROR", kLine));
    EXPECT_EQ(LogCount("CreateProcessAsUser success"), 0u);
    const winhost::ProcessLaunch launch = TheLaunch();
    EXPECT_EQ(launch.flags, DWORD{DETACHED_PROCESS});
    EXPECT_FALSE(launch.environment);
    EXPECT_EQ(launch.session, 1u);
    EXPECT_EQ(launch.desktop, "Winsta0\\Default");
    EXPECT_EQ(Gate().Count("DestroyEnvironmentBlock"), 0u);
}

TEST_F(Launch, TakesError233ForASuccess) {
    constexpr char kLine[] = "LaunchProcess: helper.exe CreateProcessAsUser failed with error: 233";
    ExpectError(kLine);
    Gate().FailNth("CreateProcessAsUserA", 1, ERROR_PIPE_NOT_CONNECTED);
    EXPECT_TRUE(Run());
    EXPECT_EQ(m_pid, kUntouched);
    EXPECT_TRUE(HasLine("ERROR", kLine));
    EXPECT_EQ(LogCount("helper.exe PID: "), 0u);
    EXPECT_TRUE(IdsOf(kProgram).empty());
}

TEST_F(Launch, TakesError233ForASuccessAlsoWithoutABlock) {
    constexpr char kLine[] = "LaunchProcess: helper.exe CreateProcessAsUser no env failed 233";
    ExpectError(kLine);
    Gate().FailNth("CreateEnvironmentBlock", 1, ERROR_NOT_ENOUGH_MEMORY);
    Gate().FailNth("CreateProcessAsUserA", 1, ERROR_PIPE_NOT_CONNECTED);
    EXPECT_TRUE(Run());
    EXPECT_EQ(m_pid, kUntouched);
    EXPECT_TRUE(HasLine("ERROR", kLine));
}

TEST_F(Launch, ReportsAFailureWithoutABlock) {
    constexpr char kLine[] = "LaunchProcess: helper.exe CreateProcessAsUser no env failed 5";
    ExpectError(kLine);
    Gate().FailNth("CreateEnvironmentBlock", 1, ERROR_NOT_ENOUGH_MEMORY);
    Gate().FailNth("CreateProcessAsUserA", 1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Run());
    EXPECT_TRUE(HasLine("ERROR", kLine));
}

TEST_F(Launch, KeepsNoHandles) {
    ASSERT_TRUE(Run());
    const size_t before = OpenHandles();
    for (int count = 0; count < 20; ++count)
        ASSERT_TRUE(Run());
    EXPECT_EQ(OpenHandles(), before);
    EXPECT_EQ(IdsOf(kProgram).size(), 21u);
}

TEST_F(Launch, ATokenNeedsAPlaceToGoTo) {
    constexpr char kLine[] = "GetSessionUserTokenWindows: KEYBOARD_MOUSE - User token is null";
    ExpectError(kLine);
    EXPECT_FALSE(GetSessionUserTokenWindows(nullptr, 1));
    EXPECT_TRUE(HasLine("ERROR", kLine));
    EXPECT_EQ(Gate().Count("CreateToolhelp32Snapshot"), 0u);
}

TEST_F(Launch, ATokenIsThatOfTheLogonProgramInTheSessionAskedFor) {
    SetProcesses({{"winlogon.exe", kFirst, 2}}, 2);
    UniqueHandle token;
    ASSERT_TRUE(GetSessionUserTokenWindows(&token, 2));
    const auto found = winhost::HandleTable::Instance().Find<winhost::Token>(token.Get());
    ASSERT_TRUE(found);
    EXPECT_EQ(found->Session(), 2u);
    EXPECT_TRUE(found->IsDuplicate());
}

TEST_F(Launch, ATokenOfASessionWithoutALogonProgramCannotBeHad) {
    ExpectError(kNoLogonProgram);
    SetProcesses({{"winlogon.exe", kFirst, 1}}, 2);
    UniqueHandle token;
    EXPECT_FALSE(GetSessionUserTokenWindows(&token, 2));
    EXPECT_FALSE(token);
    EXPECT_TRUE(HasLine("ERROR", kNoLogonProgram));
}

// One call of the platform that fails, and what becomes of the launch.
struct FailedCall {
    const char* call;
    uint64_t n;
    bool succeeds;
    const char* error;  // the line of the log, if there is one
};
void PrintTo(const FailedCall& failed, std::ostream* out) {
    *out << failed.call << " " << failed.n;
}

class LaunchWithAFailedCall : public Launch, public ::testing::WithParamInterface<FailedCall> {};

TEST_P(LaunchWithAFailedCall, EndsAsItMustAndKeepsNoHandles) {
    const FailedCall& failed = GetParam();
    if (failed.error) ExpectError(failed.error);
    const size_t before = OpenHandles();
    Gate().FailNth(failed.call, failed.n, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(), failed.succeeds);
    EXPECT_EQ(Gate().Failures(), 1u) << "the call was not made";
    EXPECT_EQ(m_pid == kUntouched, !failed.succeeds);
    EXPECT_EQ(IdsOf(kProgram).size(), failed.succeeds ? 1u : 0u);
    if (failed.error) {
        EXPECT_TRUE(HasLine("ERROR", failed.error));
    }
    EXPECT_EQ(OpenHandles(), before);
}

INSTANTIATE_TEST_SUITE_P(
    EachCall, LaunchWithAFailedCall,
    ::testing::Values(FailedCall{"CreateToolhelp32Snapshot", 1, false, kNoLogonProgram},
                      FailedCall{"Process32First", 1, false, kNoLogonProgram},
                      FailedCall{"Process32Next", 1, false, kNoLogonProgram},
                      FailedCall{"ProcessIdToSessionId", 1, false, kNoLogonProgram},
                      FailedCall{"OpenProcess", 1, false, kNoLogonProgram},
                      FailedCall{"OpenProcessToken", 1, false, nullptr},
                      FailedCall{"DuplicateTokenEx", 1, false, nullptr},
                      FailedCall{"SetTokenInformation", 1, true, nullptr},
                      FailedCall{"OpenProcess", 2, true,
                                 "SetTBCPrivileges: Step 1 OpenProcess failed with error: 5"},
                      FailedCall{"OpenProcessToken", 2, true,
                                 "SetTBCPrivileges: Step 2 OpenProcessToken failed with error: 5"},
                      FailedCall{"LookupPrivilegeValueA", 1, true,
                                 "SetTBCPrivileges: Step 3 LookupPrivilegeValue failed with error: 5"},
                      FailedCall{"AdjustTokenPrivileges", 1, true,
                                 "SetTBCPrivileges: Step 4 AdjustTokenPrivileges failed with error: 5"},
                      FailedCall{"CreateProcessAsUserA", 1, false,
                                 "LaunchProcess: helper.exe CreateProcessAsUser failed with error: 5"}));
