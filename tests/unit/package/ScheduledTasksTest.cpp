// The scheduled tasks that a packaged service registers.
#include "tests/unit/package/PackageFixture.h"

namespace {

using Texts = std::vector<std::string>;

class ScheduledTasks : public PackageFixture {
  protected:
    void SetUp() override {
        PackageFixture::SetUp();
        Identify();
    }
    static void RemovePrograms() { std::filesystem::remove_all(HostPath(R"(C:\Windows)")); }
};

}  // namespace

TEST_F(ScheduledTasks, ATaskExistsWhenTheSchedulerFindsIt) {
    EXPECT_FALSE(TaskExists("StartZEL_Service"));
    AddTask("StartZEL_Service");
    EXPECT_TRUE(TaskExists("StartZEL_Service"));
    EXPECT_EQ((Texts{kQueryStart, kQueryStart}), Commands());
}

TEST_F(ScheduledTasks, ATaskDoesNotExistWithoutAScheduler) {
    RemovePrograms();
    EXPECT_FALSE(TaskExists("StartZEL_Service"));
}

TEST_F(ScheduledTasks, AMissingStartTaskIsRegistered) {
    RegisterStartZELServiceTask();
    EXPECT_EQ((Texts{kQueryStart, StartRegistration()}), Commands());
    EXPECT_TRUE(HasTask("StartZEL_Service"));
    EXPECT_TRUE(HasLine("INFO", "commmand sent to powershell: " + StartRegistration()));
    ExpectLogInOrder({"commmand sent to powershell: ", "Start_ZEL task is added to Task Schedular."});
}

TEST_F(ScheduledTasks, TheCommandOfTheStartTaskIsThis) {
    EXPECT_EQ(
        "PowerShell -NoProfile -ExecutionPolicy Bypass -Command \"&'C:\\Program Files\\WindowsApps\\"
        "Tarvix.ZEL_5.1.0.1481_x64__8wekyb3d8bbwe\\scripts\\StartZEL.ps1' 'C:\\Program Files\\WindowsApps\\"
        "Tarvix.ZEL_5.1.0.1481_x64__8wekyb3d8bbwe\\scripts\\StartZEL_Service_Trigger_Wake.xml' "
        "'StartZEL_Service'\"",
        StartRegistration());
}

TEST_F(ScheduledTasks, AStartTaskThatIsThereIsLeftAlone) {
    AddTask("StartZEL_Service");
    RegisterStartZELServiceTask();
    EXPECT_EQ((Texts{kQueryStart}), Commands());
    EXPECT_TRUE(HasLine("INFO", "Task StartZEL_Service already exists in the task scheduler."));
}

TEST_F(ScheduledTasks, TheCleanUpTaskIsRegisteredAtEachStart) {
    AddTask("CleanUpZEL_Service");
    RegisterCleanUpTask();
    EXPECT_EQ((Texts{CleanUpRegistration()}), Commands());
    EXPECT_TRUE(HasLine("INFO", "Command sent to PowerShell: " + CleanUpRegistration()));
    ExpectLogInOrder({"Command sent to PowerShell: ", "CleanUpZEL_Service task is added to Task Scheduler."});
}

TEST_F(ScheduledTasks, AMissingTrayTaskIsRegistered) {
    RegisterTrayUITask();
    EXPECT_EQ((Texts{kQueryTray, TrayRegistration()}), Commands());
    EXPECT_TRUE(HasTask("Start_ZEL_Tray_UI"));
    ExpectLogInOrder({"Register Tray UI task: " + TrayRegistration(),
                      "Start_ZEL_Tray_UI task is added to Task Schedular."});
}

TEST_F(ScheduledTasks, ATrayTaskThatIsThereIsLeftAlone) {
    AddTask("Start_ZEL_Tray_UI");
    RegisterTrayUITask();
    EXPECT_EQ((Texts{kQueryTray}), Commands());
    EXPECT_TRUE(HasLine("INFO", "Tray UI task already exists: Start_ZEL_Tray_UI"));
}

TEST_F(ScheduledTasks, WithoutAFamilyNameTheTrayTaskIsSkipped) {
    const std::string line = "WARN PFN not available; skip Tray UI scheduling.";
    Pc().Change([](auto& pc) { pc.package.familyName = ""; });
    RegisterTrayUITask();
    Pc().Change([](auto& pc) { pc.package.familyName = kFamilyName; });
    for (const uint64_t call : {1, 2}) {
        Gate().FailNth("GetCurrentPackageFamilyName", call, 15702);
        RegisterTrayUITask();
    }
    EXPECT_EQ((Texts{line, line, line}), LinesWith("PFN not available"));
    EXPECT_EQ((Texts{kQueryTray, kQueryTray, kQueryTray}), Commands());
}

TEST_F(ScheduledTasks, AScriptThatFailsIsLoggedWithItsExitCode) {
    ExpectErrors({"Adding Start_ZEL task to Task Schedular failed with Error: 3",
                  "Adding CleanUpZEL_Service task to Task Scheduler failed with Error: 4",
                  "RegisterStartZELTrayUI.ps1 failed: 5"});
    Fail("StartZEL_Service", 3);
    Fail("CleanUpZEL_Service", 4);
    Fail("Start_ZEL_Tray_UI", 5);
    RegisterStartZELServiceTask();
    RegisterCleanUpTask();
    RegisterTrayUITask();
    EXPECT_EQ(0u, LogCount("is added to"));
}

TEST_F(ScheduledTasks, AMissingPowerShellFailsEachTask) {
    ExpectErrors({"Adding Start_ZEL task to Task Schedular failed with Error: 1",
                  "Adding CleanUpZEL_Service task to Task Scheduler failed with Error: 1",
                  "RegisterStartZELTrayUI.ps1 failed: 1"});
    RemovePrograms();
    RegisterStartZELServiceTask();
    RegisterCleanUpTask();
    RegisterTrayUITask();
}

TEST_F(ScheduledTasks, ATaskThatFailedIsTriedAgain) {
    ExpectError("Adding Start_ZEL task to Task Schedular failed with Error: 3");
    Fail("StartZEL_Service", 3);
    RegisterStartZELServiceTask();
    std::filesystem::remove(HostPath(R"(C:\tasks\StartZEL_Service.result)"));
    RegisterStartZELServiceTask();
    EXPECT_TRUE(HasTask("StartZEL_Service"));
}

TEST_F(ScheduledTasks, ACommandProcessorThatFailsIsLogged) {
    ExpectError("Adding CleanUpZEL_Service task to Task Scheduler failed with Error: -1");
    Gate().FailNth("system", 1, ERROR_NOT_ENOUGH_MEMORY);
    RegisterCleanUpTask();
}
