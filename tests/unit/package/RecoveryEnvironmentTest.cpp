// The configuration of the recovery environment, and the stop that waits for it.
#include <atomic>
#include <thread>

#include "tests/unit/package/PackageFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr char kWaiting[] = "Waiting for WinRE Config to complete, Attempt ";

class RecoveryEnvironment : public PackageFixture {
  protected:
    void SetUp() override {
        PackageFixture::SetUp();
        Identify();
    }
    uint8_t IsDone() const { return service->m_packageContext.m_bRecoveryConfigDone; }
    // A first start whose script runs on.
    void StartHeld() {
        Hold();
        CopyTaskCleanupScript();
        ASSERT_TRUE(Eventually([&] { return RecoveryCommands() == 1 && !IsDone(); }));
    }
    // The stop of a service that has found no device.
    void AllowErrorsOfTheStop() {
        AllowError("Error Invalid Handle, returning: 6 to the caller");
        AllowError("m_pDeviceInterfaceDetailData is NULL.");
    }
};

}  // namespace

TEST_F(RecoveryEnvironment, ItsScriptRunsFromTheWorkingFolder) {
    CopyTaskCleanupScript();
    AwaitRecovery();
    ASSERT_EQ(1u, Pc().Records<winhost::SystemCommand>().size());
    EXPECT_EQ(
        R"(PowerShell -NoProfile -ExecutionPolicy Bypass -Command "&'C:\ProgramData\Tarvix\Manageability\)"
        R"(ConfigureRecoveryEnvironmentSupport.ps1' -Action Install")",
        Pc().Records<winhost::SystemCommand>()[0].command);
    ExpectLogInOrder({"Command sent to PowerShell: " + RecoveryCommand(),
                      "Recovery Environment script ran successfully."});
    EXPECT_TRUE(HasLine("INFO", "Recovery Environment script ran successfully."));
}

TEST_F(RecoveryEnvironment, TheFlagIsClearWhileItsScriptRuns) {
    EXPECT_EQ(1u, IsDone());
    StartHeld();
    EXPECT_EQ(0u, LogCount("Command sent to PowerShell"));
    Release();
    AwaitRecovery();
}

TEST_F(RecoveryEnvironment, AScriptThatFailsIsLoggedWithItsExitCode) {
    ExpectError("Recovery Environment script encountered the followng error: 9");
    Fail("recovery", 9);
    CopyTaskCleanupScript();
    AwaitRecovery();
    EXPECT_EQ(0u, LogCount("ran successfully"));
}

TEST_F(RecoveryEnvironment, AMissingPowerShellIsLogged) {
    ExpectError("Recovery Environment script encountered the followng error: 1");
    std::filesystem::remove_all(HostPath(R"(C:\Windows)"));
    CopyTaskCleanupScript();
    AwaitRecovery();
}

TEST_F(RecoveryEnvironment, IsConfiguredEvenWhenItsScriptIsMissingInThePackage) {
    ExpectErrors({"CopyTaskCleanupScript: CopyFile() API failed with error: 2",
                  "The Recovery Environment is not restored to original during uninstallation"});
    std::filesystem::remove(HostPath(InPackage(std::string("\\scripts\\") + kRecovery)));
    CopyTaskCleanupScript();
    AwaitRecovery();
    EXPECT_EQ(1u, RecoveryCommands());
}

TEST_F(RecoveryEnvironment, AThreadThatCannotStartIsLogged) {
    ExpectError("Recovery Environment script encountered the followng error: 11");
    Gate().FailNth("std::thread", 1, 8);
    CopyTaskCleanupScript();
    EXPECT_EQ(1u, IsDone());
    EXPECT_EQ(0u, RecoveryCommands());
}

TEST_F(RecoveryEnvironment, AStopWaitsForAScriptThatRunsForAMinute) {
    AllowErrorsOfTheStop();
    StartHeld();
    std::atomic<bool> isOver{false};
    std::thread stop([&] {
        EXPECT_TRUE(service->ServiceCleanup());
        isOver = true;
    });
    for (int second = 1; second <= 60; ++second) {
        PassSleepOf(1s);
        AwaitLog(kWaiting + std::to_string(second));
    }
    EXPECT_FALSE(isOver);
    Release();
    AwaitRecovery();
    PassSleepOf(1s);
    stop.join();
    EXPECT_EQ(61u, LogCount(kWaiting));
    EXPECT_TRUE(HasLine("INFO", std::string(kWaiting) + "61"));
    ExpectLogInOrder({"DeleteFile() API failed", kWaiting, "Recovery Environment script ran successfully."});
}

TEST_F(RecoveryEnvironment, AStopDoesNotWaitForAScriptThatHasEnded) {
    AllowErrorsOfTheStop();
    CopyTaskCleanupScript();
    AwaitRecovery();
    EXPECT_TRUE(service->ServiceCleanup());
    EXPECT_EQ(0u, LogCount(kWaiting));
}

TEST_F(RecoveryEnvironment, AStopWaitsTenMinutesAtMost) {
    AllowErrorsOfTheStop();
    StartHeld();
    std::thread stop([&] { EXPECT_TRUE(service->ServiceCleanup()); });
    for (int second = 1; second <= 600; ++second)
        PassSleepOf(1s);
    stop.join();
    EXPECT_EQ(600u, LogCount(kWaiting));
    Release();
    AwaitRecovery();
}
