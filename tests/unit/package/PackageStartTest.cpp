// The start and the stop of a service that runs from a package.
#include <thread>

#include "tests/unit/package/PackageFixture.h"

namespace {

using Texts = std::vector<std::string>;

class PackageStart : public PackageFixture {
  protected:
    void AllowErrorsOfTheStop() {
        AllowError("Error Invalid Handle, returning: 6 to the caller");
        AllowError("m_pDeviceInterfaceDetailData is NULL.");
    }
    // A service on the same PC after the end of this one.
    void Restart() {
        AllowErrorsOfTheStop();
        service->ServiceCleanup();
        service.reset();
        service = std::make_unique<ZELService>("");
        ASSERT_TRUE(service->InitializeLogging());
        service->m_bRunAsConsole = 1;
    }
};

}  // namespace

TEST_F(PackageStart, PreparesThePackageInPlaceOfThePathTest) {
    Initialise();
    AwaitRecovery();
    EXPECT_TRUE(service->m_packageContext.GetIsPackage());
    EXPECT_EQ(
        (Texts{kQueryStart, StartRegistration(), CleanUpRegistration(), kQueryTray, TrayRegistration()}),
        Commands());
    EXPECT_EQ(1u, RecoveryCommands());
    ExpectLogInOrder({"Enter ZEL Initialization Block", "Package Full Name", "Package Full Path",
                      "CopyKVMAgent: ", "CopyWiFiSyncDataReader: ", "CopyTaskCleanupScript: ",
                      "commmand sent to powershell: ", "CleanUpZEL_Service task is added",
                      "Register Tray UI task: ", "Boot mode is Regular boot"});
    EXPECT_EQ(0u, LogCount("RegOpenKeyEx"));
    EXPECT_EQ(0u, LogCount("(INST: "));
    for (const auto& [place, name] : Files())
        EXPECT_EQ(name + " 1", Read(InWorking(name)));
    EXPECT_FALSE(Exists("nul")) << "a redirection must not create a file";
}

TEST_F(PackageStart, ASecondStartCopiesTheProgramsAgainAndNotTheScripts) {
    Initialise();
    AwaitRecovery();
    Restart();
    for (const auto& [place, name] : Files())
        Write(InPackage(place + name), name + " 2");
    const size_t before = Commands().size();
    Initialise();
    EXPECT_EQ("ZELKVMApp.exe 2", Read(InWorking(kAgent)));
    EXPECT_EQ("WiFiSyncDataReader.exe 2", Read(InWorking(kReader)));
    EXPECT_EQ("ZELUninstallCleanup.ps1 1", Read(InWorking(kCleanup)));
    EXPECT_EQ("ConfigureRecoveryEnvironmentSupport.ps1 1", Read(InWorking(kRecovery)));
    Texts commands = Commands();
    commands.erase(commands.begin(), commands.begin() + static_cast<ptrdiff_t>(before));
    EXPECT_EQ((Texts{kQueryStart, CleanUpRegistration(), kQueryTray}), commands);
    EXPECT_EQ(1u, RecoveryCommands());
    EXPECT_EQ(1u, service->m_packageContext.m_bRecoveryConfigDone);
}

TEST_F(PackageStart, NoStepNeedsAnother) {
    ExpectErrors({"CopyKVMAgent: CopyFile() API failed", "CopyWiFiSyncDataReader: CopyFile() API failed",
                  "CopyTaskCleanupScript: CopyFile() API failed", "Start KVM functionality will not work",
                  "Wi-Fi Sync functionality will not work",
                  "The cleanup process after uninstallation will not work",
                  "The Recovery Environment is not restored to original during uninstallation",
                  "Recovery Environment script encountered the followng error: 1",
                  "Adding Start_ZEL task to Task Schedular failed with Error: 1",
                  "Adding CleanUpZEL_Service task to Task Scheduler failed with Error: 1",
                  "RegisterStartZELTrayUI.ps1 failed: 1"});
    std::filesystem::remove_all(HostPath(R"(C:\Windows)"));
    std::filesystem::remove_all(HostPath(kPackage));
    Initialise();
    AwaitRecovery();
    EXPECT_EQ(5u, Commands().size());
}

TEST_F(PackageStart, TheStopTakesTheProgramsAwayLast) {
    AllowErrorsOfTheStop();
    Initialise();
    AwaitRecovery();
    EXPECT_TRUE(service->ServiceCleanup());
    ExpectLogInOrder({"Cleanup Driver Interfaces", "ZELKVMApp.exe: ", "WiFiSyncDataReader.exe: "});
    EXPECT_FALSE(Exists(InWorking(kAgent)));
    EXPECT_FALSE(Exists(InWorking(kReader)));
    EXPECT_TRUE(Exists(InWorking(kCleanup)));
    EXPECT_TRUE(Exists(InWorking(kRecovery)));
}

TEST_F(PackageStart, AProcessWithoutAPathInItsPackageIsClassic) {
    ExpectErrors(
        {"IsRunningFromMSIXPackage: GetCurrentPackagePath failed with error: 5", "Service path is empty"});
    Gate().FailNth("GetCurrentPackagePath", 1, 5);
    std::thread start([&] { EXPECT_EQ(service->DoInitialization(), 3u); });
    for (int second = 0; second < 10; ++second)
        PassSleepOf(std::chrono::seconds(1));
    start.join();
    EXPECT_FALSE(service->m_packageContext.GetIsPackage());
    EXPECT_EQ(0u, Commands().size());
}
