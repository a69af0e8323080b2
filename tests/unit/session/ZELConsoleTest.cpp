// The program of a remote console, and the thread that watches it.
#include "session/ZELConsole.h"

#include <csignal>
#include <system_error>

#include "tests/support/LinkedFixture.h"

namespace {

using namespace std::chrono_literals;

class RemoteConsole : public LinkedFixture {
  protected:
    static constexpr char kProgram[] = "RemoteShell.exe";
    static constexpr char kRuns[] = "MonitorZELConsoleThread: ZEL Console App PID: ";
    static constexpr char kGone[] = "MonitorZELConsoleThread: ***  ZEL Console Launched again  ***";
    static constexpr char kExit[] = "MonitorZELConsoleThread: Exiting Thread Handler";

    void TearDown() override {
        service->SignalStop();
        m_console.DoCleanUp();
        LinkedFixture::TearDown();
    }
    void InstallProgram() { WriteProgram(kProgram, kStubborn); }
    // Ends the program, and waits until the PC has none.
    void EndProgram() {
        kill(static_cast<pid_t>(m_console.m_consolePID), SIGKILL);
        EXPECT_TRUE(Eventually([] { return IdsOf(kProgram).empty(); }));
    }

    ZELConsole m_console;
};

}  // namespace

TEST_F(RemoteConsole, StartsItsProgramOnTheDesktop) {
    InstallProgram();
    EXPECT_TRUE(m_console.DoInitZELConsole("10.0.0.7"));
    const std::string command = "\"" + std::string(kBin) + kProgram + "\"  -X 1920  -Y 1080  -h 10.0.0.7";
    const auto launches = Pc().Records<winhost::ProcessLaunch>();
    ASSERT_EQ(launches.size(), 1u);
    EXPECT_EQ(launches[0].commandLine, command);
    EXPECT_EQ(launches[0].desktop, "Winsta0\\Default");
    EXPECT_EQ(IdsOf(kProgram), std::vector<DWORD>{m_console.m_consolePID});
    const std::string pid = std::to_string(m_console.m_consolePID);
    AwaitLog(kRuns + pid);
    ExpectLogInOrder({"IPAddress passed 10.0.0.7", "ZEL Console APP Command:" + command,
                      "LaunchZELConsole: ZEL Console PID: " + pid, kRuns + pid});
    for (const std::string& line :
         {std::string("IPAddress passed 10.0.0.7"), "ZEL Console APP Command:" + command,
          "LaunchZELConsole: ZEL Console PID: " + pid, kRuns + pid})
        EXPECT_TRUE(HasLine("INFO", line)) << line;
}

TEST_F(RemoteConsole, LooksAtItsProgramEveryTwoSeconds) {
    InstallProgram();
    EXPECT_TRUE(m_console.DoInitZELConsole("10.0.0.7"));
    for (size_t round = 1; round <= 3; ++round) {
        AwaitLog(kRuns, round);
        PassSleepOf(2s);
    }
    EXPECT_EQ(m_console.m_bMonitorEnabled, 1);
    EXPECT_EQ(m_console.m_bMonitorClosed, 0);
}

TEST_F(RemoteConsole, ReportsAProgramThatHasGoneAndEnds) {
    InstallProgram();
    ExpectError(kGone);
    AllowError("IsProcessRunning: OpenProcess failed with error: 87");
    EXPECT_TRUE(m_console.DoInitZELConsole("10.0.0.7"));
    AwaitLog(kRuns);
    EndProgram();
    PassSleepOf(2s);
    AwaitLog(kExit);
    EXPECT_TRUE(Eventually([this] { return m_console.m_bMonitorClosed == 1; }));
    ExpectLogInOrder({kRuns, kGone, kExit});
    EXPECT_TRUE(HasLine("ERROR", kGone));
    EXPECT_TRUE(HasLine("INFO", kExit));
    EXPECT_EQ(Pc().Records<winhost::ProcessLaunch>().size(), 1u);
}

TEST_F(RemoteConsole, AProgramThatCannotBeOpenedCountsAsGone) {
    InstallProgram();
    ExpectError("IsProcessRunning: OpenProcess failed with error: 5");
    ExpectError(kGone);
    EXPECT_TRUE(m_console.DoInitZELConsole("10.0.0.7"));
    AwaitLog(kRuns);
    Gate().FailNth("OpenProcess", 1, ERROR_ACCESS_DENIED);
    PassSleepOf(2s);
    AwaitLog(kExit);
}

TEST_F(RemoteConsole, ACleanUpEndsTheMonitorAndLeavesTheProgram) {
    InstallProgram();
    EXPECT_TRUE(m_console.DoInitZELConsole("10.0.0.7"));
    AwaitLog(kRuns);
    std::thread cleanUp([this] { m_console.DoCleanUp(); });
    AwaitLog("TerminateZELConsoleMonitorThread: Waiting for the MonitorZELConsoleThread to exit");
    // Until the monitor wakes, it is asked every second.
    PassSleepOf(1s);
    PassSleepOf(1s);
    AwaitLog(kExit);
    EXPECT_TRUE(Eventually([this] {
        if (LogCount("DoCleanUp, function exit") == 0 && Clock().AwaitSleeper(1s, 1ms)) Advance(1s);
        return LogCount("DoCleanUp, function exit") == 1;
    }));
    cleanUp.join();
    EXPECT_FALSE(m_console.m_pZELConsoleMonitorThreadObj);
    EXPECT_EQ(IdsOf(kProgram).size(), 1u);
    ExpectLogInOrder({"TerminateZELConsoleMonitorThread: Waiting for the MonitorZELConsoleThread to exit",
                      "TerminateZELConsoleMonitorThread: m_pZELConsoleMonitorThreadObj exit complete",
                      "DoCleanUp, function exit"});
}

TEST_F(RemoteConsole, ACleanUpWithoutAMonitorIsOneLine) {
    const size_t before = Messages().size();
    m_console.DoCleanUp();
    EXPECT_EQ(Messages().size(), before + 1);
    EXPECT_TRUE(HasLine("INFO", "DoCleanUp, function exit"));
}

TEST_F(RemoteConsole, AProgramThatCannotBeStartedIsNotWatched) {
    ExpectError("DoInitZELConsole: Launch ZEL Console failed");
    ExpectError("LaunchProcess: RemoteShell.exe CreateProcessAsUser failed with error: ");
    EXPECT_FALSE(m_console.DoInitZELConsole("10.0.0.7"));
    EXPECT_FALSE(m_console.m_pZELConsoleMonitorThreadObj);
    EXPECT_EQ(m_console.m_bMonitorEnabled, 0);
}

TEST_F(RemoteConsole, WithoutAFolderNothingIsStarted) {
    Pc().Change([](winhost::PcDescription& pc) { pc.modulePath = "ZELService.exe"; });
    ExpectError("DoInitZELConsole: Launch ZEL Console failed");
    EXPECT_FALSE(m_console.DoInitZELConsole("10.0.0.7"));
    EXPECT_TRUE(HasLine("INFO", "Failed to locate service binary path"));
    EXPECT_TRUE(Pc().Records<winhost::ProcessLaunch>().empty());
}

TEST_F(RemoteConsole, AMonitorThatCannotBeStartedThrows) {
    InstallProgram();
    Gate().FailNth("std::thread", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_THROW(m_console.DoInitZELConsole("10.0.0.7"), std::system_error);
}

TEST_F(RemoteConsole, WhileTheServiceStopsThereIsNoMonitor) {
    InstallProgram();
    ExpectError("DoInitZELConsole: Monitor ZEL Console thread launch failed");
    service->m_detachedThreads.AwaitEnd(0);
    EXPECT_FALSE(m_console.DoInitZELConsole("10.0.0.7"));
}

TEST_F(RemoteConsole, AStopOfTheServiceEndsTheMonitor) {
    InstallProgram();
    EXPECT_TRUE(m_console.DoInitZELConsole("10.0.0.7"));
    AwaitLog(kRuns);
    service->SignalStop();
    AwaitLog(kExit);
}
