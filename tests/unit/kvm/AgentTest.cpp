// The helper on the console's desktop, apart from sessions.
#include "kvm/KVMAgent.h"

#include <gtest/gtest.h>

#include "session/LaunchProcess.h"
#include "tests/unit/kvm/KvmFixture.h"

namespace {

using namespace std::chrono_literals;

class KvmAgent : public KvmFixture {
  protected:
    // Starts a program of the service's folder in the console's session.
    static uint32_t Launch(const std::string& name) {
        uint32_t id = 0;
        EXPECT_TRUE(LaunchProcess(name, "\"" + std::string(kBin) + name + "\"", id));
        return id;
    }

    KVMAgent agent;
};

}  // namespace

TEST_F(KvmAgent, IsStartedWithFiveItemsOnItsCommandLine) {
    service->m_vorkVersion = 50;
    ASSERT_NE(agent.LaunchKVMAgent(1), 0);
    constexpr char kCommand[] =
        R"("C:\Program Files\Tarvix\Service\bin\ZELKVMApp.exe" -X 1920 -Y 1080 -V 50 -E 1)";
    ASSERT_EQ(Pc().Records<winhost::ProcessLaunch>().size(), 1u);
    const winhost::ProcessLaunch launch = Pc().Records<winhost::ProcessLaunch>()[0];
    EXPECT_EQ(launch.commandLine, kCommand);
    EXPECT_EQ(launch.desktop, "Winsta0\\Default");
    EXPECT_EQ(launch.session, 1u);
    EXPECT_EQ(IdsOf(kAgent), std::vector<DWORD>{launch.pid});
    EXPECT_TRUE(HasLine("INFO", std::string("KVM APP Command:") + kCommand));
    EXPECT_TRUE(
        HasLine("INFO", "LaunchKVMAgent: KEYBOARD_MOUSE - KVM_Agent PID: " + std::to_string(launch.pid)));
    ExpectLogInOrder({"KVM APP Command:", " Command: ", "LaunchProcess: ZELKVMApp.exe PID: ",
                      "LaunchKVMAgent: KEYBOARD_MOUSE - KVM_Agent PID: "});
}

TEST_F(KvmAgent, IsToldTheScreenTheVersionAndTheModeAsTheyAre) {
    Pc().Change([](auto& description) { description.screen = {800, 600}; });
    service->m_vorkVersion = 9;
    ASSERT_NE(agent.LaunchKVMAgent(0), 0);
    EXPECT_EQ(Pc().Records<winhost::ProcessLaunch>()[0].commandLine,
              R"("C:\Program Files\Tarvix\Service\bin\ZELKVMApp.exe" -X 800 -Y 600 -V 9 -E 0)");
}

TEST_F(KvmAgent, CannotBeStartedByAServiceThatDoesNotKnowItsFolder) {
    Pc().Change([](auto& description) { description.modulePath = "ZELService.exe"; });
    EXPECT_EQ(agent.LaunchKVMAgent(1), 0);
    EXPECT_TRUE(HasLine("INFO", "Failed to locate service binary path"));
    EXPECT_EQ(LogCount(" Command: "), 0u);
    EXPECT_EQ(LogCount("KVM APP Command:"), 0u);
    EXPECT_EQ(Gate().Count("CreateToolhelp32Snapshot"), 0u);
}

TEST_F(KvmAgent, OfAPackagedServiceRunsFromTheWorkingFolder) {
    service->m_packageContext.m_bIsPackage = 1;
    std::filesystem::copy(HostPath(std::string(kBin) + kAgent), HostPath(std::string(kData) + kAgent));
    ASSERT_NE(agent.LaunchKVMAgent(0), 0);
    EXPECT_EQ(Pc().Records<winhost::ProcessLaunch>()[0].commandLine,
              R"("C:\ProgramData\Tarvix\Manageability\ZELKVMApp.exe" -X 1920 -Y 1080 -V 0 -E 0)");
    EXPECT_TRUE(AwaitAgents(1));
}

TEST_F(KvmAgent, OfAPackagedServiceDoesNotRunWhereUsersCouldReplaceIt) {
    service->m_packageContext.m_bIsPackage = 1;
    service->m_bWorkingFolderSecure = false;
    std::filesystem::copy(HostPath(std::string(kBin) + kAgent), HostPath(std::string(kData) + kAgent));
    EXPECT_EQ(agent.LaunchKVMAgent(0), 0);
    EXPECT_TRUE(HasLine("INFO", "Failed to locate service binary path"));
    EXPECT_TRUE(Pc().Records<winhost::ProcessLaunch>().empty());
}

TEST_F(KvmAgent, KeepsItsLastProcessIdWhenTheStartGivesNone) {
    ASSERT_NE(agent.LaunchKVMAgent(1), 0);
    const std::string line = "LaunchKVMAgent: KEYBOARD_MOUSE - KVM_Agent PID: " +
                             std::to_string(Pc().Records<winhost::ProcessLaunch>()[0].pid);
    StartNoAgents();
    EXPECT_NE(agent.LaunchKVMAgent(1), 0);
    EXPECT_EQ(LogCount(line), 2u);
}

TEST_F(KvmAgent, TellsAFailedStart) {
    ExpectError("LaunchProcess: ZELKVMApp.exe CreateProcessAsUser failed with error: 2");
    std::filesystem::remove(HostPath(std::string(kBin) + kAgent));
    EXPECT_EQ(agent.LaunchKVMAgent(1), 0);
    EXPECT_TRUE(HasLine("INFO", "LaunchKVMAgent: KEYBOARD_MOUSE - KVM_Agent PID: 0"));
}

TEST_F(KvmAgent, MayCrashAtOnceWithoutAnyHarm) {
    WriteProgram(kAgent, "kill -9 $$");
    ASSERT_NE(agent.LaunchKVMAgent(1), 0);
    EXPECT_TRUE(AwaitAgents(0));
    KVMAgent::RemoveKVMAgent();
    EXPECT_EQ(LogCount("Forcefully exited"), 0u);
}

TEST_F(KvmAgent, IsAskedToLeaveByAFileThatReplacesAnOlderOne) {
    WriteFile(TerminateFile(), "something longer than that");
    agent.TerminateKVMAgent();
    EXPECT_EQ(ReadFile(TerminateFile()), "terminate\n");
    EXPECT_TRUE(HasLine("INFO", "Termiante 'is written to terminate file."));
}

TEST_F(KvmAgent, TwoOfThemAreBothKilled) {
    Launch(kAgent);
    Launch(kAgent);
    ASSERT_EQ(Agents(), 2u);
    killProcessByName(kAgent);
    EXPECT_TRUE(AwaitAgents(0));
    EXPECT_EQ(LogCount("Forcefully exited ZELKVMApp.exe by kill by process"), 2u);
    EXPECT_TRUE(HasLine("INFO", "Forcefully exited ZELKVMApp.exe by kill by process"));
    EXPECT_TRUE(HasLine("INFO", "Exited killProcessByName function"));
}

TEST_F(KvmAgent, NoneToKillIsOnlyTheClosingLine) {
    killProcessByName(kAgent);
    EXPECT_EQ(LogCount("Forcefully exited"), 0u);
    EXPECT_EQ(LogCount("Exited killProcessByName function"), 1u);
    EXPECT_EQ(Gate().Count("OpenProcess"), 0u);
}

TEST_F(KvmAgent, IsKilledByItsNameToTheLetter) {
    for (const char* other : {"zelkvmapp.exe", "ZELKVMApp.exe2", "OtherZELKVMApp.exe"}) {
        WriteProgram(other, kStubborn);
        Launch(other);
    }
    killProcessByName(kAgent);
    EXPECT_EQ(LogCount("Forcefully exited"), 0u);
    EXPECT_EQ(Gate().Count("TerminateProcess"), 0u);
    EXPECT_EQ(IdsOf("zelkvmapp.exe").size(), 1u);
}

TEST_F(KvmAgent, IsLeftWhenItMayNotBeOpenedAndTheNextIsKilled) {
    Launch(kAgent);
    Launch(kAgent);
    Gate().FailNth("OpenProcess", 1, ERROR_ACCESS_DENIED);
    killProcessByName(kAgent);
    EXPECT_TRUE(AwaitAgents(1));
    EXPECT_EQ(LogCount("Forcefully exited"), 1u);
    EXPECT_EQ(LogCount("Exited killProcessByName function"), 1u);
}

TEST_F(KvmAgent, IsLeftWhenTheProcessesCannotBeListed) {
    Launch(kAgent);
    Gate().FailNth("CreateToolhelp32Snapshot", 1, ERROR_NOT_ENOUGH_MEMORY);
    killProcessByName(kAgent);
    EXPECT_EQ(Agents(), 1u);
    EXPECT_EQ(LogCount("Exited killProcessByName function"), 1u);
}

TEST_F(KvmAgent, EndsByTheCodeNine) {
    const uint32_t id = Launch(kAgent);
    const UniqueHandle process(OpenProcess(SYNCHRONIZE, FALSE, id));
    ASSERT_TRUE(process);
    killProcessByName(kAgent);
    EXPECT_EQ(WaitForSingleObject(process.Get(), INFINITE), DWORD{WAIT_OBJECT_0});
    EXPECT_EQ(ArgumentsOf("TerminateProcess", "uExitCode"), std::vector<uint32_t>{9});
}

TEST_F(KvmAgent, ListingAndKillingKeepsNoHandles) {
    const size_t before = OpenHandles();
    for (int count = 0; count < 10; ++count) {
        Launch(kAgent);
        killProcessByName(kAgent);
        ASSERT_TRUE(AwaitAgents(0));
    }
    EXPECT_EQ(OpenHandles(), before);
}

TEST_F(KvmAgent, IsSeenToRunUntilItHasEnded) {
    const uint32_t id = Launch(kAgent);
    EXPECT_TRUE(KVMAgent::IsProcessRunning(id));
    const size_t before = OpenHandles();
    EXPECT_TRUE(KVMAgent::IsProcessRunning(id));
    EXPECT_EQ(OpenHandles(), before);
    EXPECT_TRUE(KVMAgent::IsKVMAgentRunning());

    ExpectError("IsProcessRunning: OpenProcess failed with error: 87");
    killProcessByName(kAgent);
    ASSERT_TRUE(AwaitAgents(0));
    EXPECT_FALSE(KVMAgent::IsProcessRunning(id));
    EXPECT_FALSE(KVMAgent::IsKVMAgentRunning());
    EXPECT_TRUE(HasLine("ERROR", "IsProcessRunning: OpenProcess failed with error: 87"));
}

TEST_F(KvmAgent, OfAnEarlierRunIsMadeToLeaveWhenTheServiceStarts) {
    Launch(kAgent);
    Launch(kAgent);
    WriteFile(TerminateFile(), "terminate\n");
    WriteFile(DisplayMgrLog(), "log");
    StartService();
    EXPECT_TRUE(AwaitAgents(0));
    EXPECT_FALSE(Exists(TerminateFile()));
    EXPECT_FALSE(Exists(DisplayMgrLog()));
    ExpectLogInOrder({"Forcefully exited ZELKVMApp.exe by kill by process",
                      "Forcefully exited ZELKVMApp.exe by kill by process",
                      "Exited killProcessByName function", "Terminate file deleted successfully",
                      "DisplayMgr file deleted successfully"});
    AwaitListener();
}

TEST_F(KvmAgent, LeavesNothingToRemoveAtAnOrdinaryStart) {
    StartService();
    ExpectLogInOrder({"Exited killProcessByName function", "Terminate file does not exist",
                      "DisplayMgr file does not exist"});
    EXPECT_TRUE(HasLine("INFO", "Terminate file does not exist"));
    EXPECT_TRUE(HasLine("INFO", "DisplayMgr file does not exist"));
    AwaitListener();
}
