// The programs and scripts that a packaged service copies to the working folder.
#include <algorithm>
#include <chrono>
#include <thread>

#include "tests/unit/package/PackageFixture.h"
#include "winhost/process/ProcessList.h"

namespace {

using namespace std::chrono_literals;

class PackageFiles : public PackageFixture {
  protected:
    void SetUp() override {
        PackageFixture::SetUp();
        Identify();
    }
    void LoseProgramData() {
        Pc().Change([](auto& pc) { pc.environment.clear(); });
        service->m_pathCache.clear();
        AllowError("Error: PROGRAMDATA environment variable not found.");
    }
};

}  // namespace

TEST_F(PackageFiles, TheAgentIsCopied) {
    CopyKVMAgent();
    EXPECT_EQ("ZELKVMApp.exe 1", Read(InWorking(kAgent)));
    EXPECT_EQ(
        (std::vector<std::string>{
            "INFO CopyKVMAgent: KVM Agent source path: " + InPackage(R"(\KVM_Agent\ZELKVMApp.exe)"),
            "INFO CopyKVMAgent: KVM Agent destination path: " + InWorking(kAgent),
            "INFO CopyKVMAgent: KVM Agent copied successfully for MSIX package, KVM functionality should "
            "work."}),
        LinesWith("CopyKVMAgent: "));
}

TEST_F(PackageFiles, TheReaderIsCopied) {
    CopyWiFiSyncDataReader();
    EXPECT_EQ("WiFiSyncDataReader.exe 1", Read(InWorking(kReader)));
    EXPECT_EQ(
        (std::vector<std::string>{
            "INFO CopyWiFiSyncDataReader: WiFiSyncDataReader source path: " +
                InPackage(R"(\WiFiSyncDataReader\WiFiSyncDataReader.exe)"),
            "INFO CopyWiFiSyncDataReader: WiFiSyncDataReader destination path: " + InWorking(kReader),
            "INFO CopyWiFiSyncDataReader: WiFiSyncDataReader copied successfully for MSIX package, Wi-Fi "
            "Sync functionality should work."}),
        LinesWith("CopyWiFiSyncDataReader: "));
}

TEST_F(PackageFiles, BothScriptsAreCopied) {
    CopyTaskCleanupScript();
    AwaitRecovery();
    EXPECT_EQ("ZELUninstallCleanup.ps1 1", Read(InWorking(kCleanup)));
    EXPECT_EQ("ConfigureRecoveryEnvironmentSupport.ps1 1", Read(InWorking(kRecovery)));
    const std::string scripts = InPackage("\\scripts\\");
    EXPECT_EQ(
        (std::vector<std::string>{
            "INFO CopyTaskCleanupScript: Clean up script source path: " + scripts + kCleanup,
            "INFO CopyTaskCleanupScript: Clean up script destination path: " + InWorking(kCleanup),
            "INFO CopyTaskCleanupScript: Clean up script copied successfully for MSIX package, The cleanup "
            "process after uninstallation should work.",
            "INFO CopyTaskCleanupScript: Recovery Environment script source path: " + scripts + kRecovery,
            "INFO CopyTaskCleanupScript: Clean up script destination path: " + InWorking(kRecovery),
            "INFO CopyTaskCleanupScript: Recovery Environment configuration script copied successfully for "
            "MSIX package, Recovery Environment should be restored after uninstallation."}),
        LinesWith("CopyTaskCleanupScript: "));
}

TEST_F(PackageFiles, TheProgramsOfAnEarlierStartAreOverwritten) {
    Write(InWorking(kAgent), "the agent of an earlier version");
    Write(InWorking(kReader), "the reader of an earlier version");
    CopyKVMAgent();
    CopyWiFiSyncDataReader();
    EXPECT_EQ("ZELKVMApp.exe 1", Read(InWorking(kAgent)));
    EXPECT_EQ("WiFiSyncDataReader.exe 1", Read(InWorking(kReader)));
}

TEST_F(PackageFiles, TheCleanUpScriptMarksAPackageThatHasRunBefore) {
    WriteScripts();
    CopyTaskCleanupScript();
    EXPECT_TRUE(HasLine("INFO", "File already exists: " + InWorking(kCleanup)));
    EXPECT_EQ("cleanup 0", Read(InWorking(kCleanup)));
    EXPECT_EQ("recovery 0", Read(InWorking(kRecovery)));
    EXPECT_EQ(0u, Gate().Count("CopyFileA"));
    EXPECT_EQ(0u, RecoveryCommands());
    EXPECT_EQ(1u, service->m_packageContext.m_bRecoveryConfigDone);
}

TEST_F(PackageFiles, ARecoveryScriptThatIsLeftOverIsRemovedFirst) {
    Write(InWorking(kRecovery), "recovery 0");
    CopyTaskCleanupScript();
    AwaitRecovery();
    EXPECT_EQ("ConfigureRecoveryEnvironmentSupport.ps1 1", Read(InWorking(kRecovery)));
    ExpectLogInOrder({"Clean up script copied successfully",
                      "File already exists: " + InWorking(kRecovery) + ". Attempting to remove file",
                      "Terminate file deleted successfully", "Recovery Environment script source path"});
    EXPECT_TRUE(HasLine("INFO", "Terminate file deleted successfully"));
}

TEST_F(PackageFiles, ARecoveryScriptThatCannotBeRemovedStays) {
    ExpectErrors({"CopyTaskCleanupScript: CopyFile() API failed with error: 5",
                  "The Recovery Environment is not restored to original during uninstallation"});
    Write(InWorking(kRecovery), "recovery 0");
    MakeReadOnly(InWorking(kRecovery));
    CopyTaskCleanupScript();
    AwaitRecovery();
    EXPECT_TRUE(HasLine("WARN", "Terminate file deletion failed"));
    EXPECT_EQ("recovery 0", Read(InWorking(kRecovery)));
    EXPECT_EQ(1u, RecoveryCommands());
}

TEST_F(PackageFiles, AMissingCleanUpScriptDoesNotKeepTheRecoveryScriptBack) {
    ExpectErrors({"CopyTaskCleanupScript: CopyFile() API failed with error: 2",
                  "The cleanup process after uninstallation will not work"});
    std::filesystem::remove(HostPath(InPackage(R"(\scripts\ZELUninstallCleanup.ps1)")));
    CopyTaskCleanupScript();
    AwaitRecovery();
    EXPECT_FALSE(Exists(InWorking(kCleanup)));
    EXPECT_TRUE(Exists(InWorking(kRecovery)));
}

TEST_F(PackageFiles, AMissingProgramIsLogged) {
    ExpectErrors({"CopyKVMAgent: CopyFile() API failed with error: 3",
                  "Start KVM functionality will not work",
                  "CopyWiFiSyncDataReader: CopyFile() API failed with error: 2",
                  "Wi-Fi Sync functionality will not work"});
    std::filesystem::remove_all(HostPath(InPackage(R"(\KVM_Agent)")));
    std::filesystem::remove(HostPath(InPackage(R"(\WiFiSyncDataReader\WiFiSyncDataReader.exe)")));
    CopyKVMAgent();
    CopyWiFiSyncDataReader();
}

TEST_F(PackageFiles, AnAgentThatRunsKeepsItsFile) {
    ExpectErrors(
        {"CopyKVMAgent: CopyFile() API failed with error: 32", "Start KVM functionality will not work"});
    WriteProgram(InWorking(kAgent), "while [ ! -e C:/leave ]; do sleep 0.01; done");
    std::thread agent([] { EXPECT_EQ(0, system(R"(C:\ProgramData\Tarvix\Manageability\ZELKVMApp.exe)")); });
    EXPECT_TRUE(Eventually([] {
        const auto processes = winhost::ListProcesses();
        return std::any_of(processes.begin(), processes.end(),
                           [](const winhost::ProcessEntry& process) { return process.name == kAgent; });
    }));
    CopyKVMAgent();
    EXPECT_TRUE(Read(InWorking(kAgent)).starts_with("#!/bin/sh"));
    Write(R"(C:\leave)", "");
    agent.join();
}

TEST_F(PackageFiles, AReadOnlyTargetStays) {
    ExpectErrors(
        {"CopyKVMAgent: CopyFile() API failed with error: 5", "Start KVM functionality will not work"});
    Write(InWorking(kAgent), "old");
    MakeReadOnly(InWorking(kAgent));
    CopyKVMAgent();
    EXPECT_EQ("old", Read(InWorking(kAgent)));
}

TEST_F(PackageFiles, AFullDiskIsLogged) {
    ExpectErrors(
        {"CopyKVMAgent: CopyFile() API failed with error: 112", "Start KVM functionality will not work"});
    Gate().FailNth("CopyFileA", 1, ERROR_DISK_FULL);
    CopyKVMAgent();
    EXPECT_FALSE(Exists(InWorking(kAgent)));
}

TEST_F(PackageFiles, WithoutProgramDataNothingIsCopied) {
    ExpectErrors({"CopyKVMAgent: ProgramData environment variable is empty, unable to copy KVM App",
                  "Start KVM functionality will not work",
                  "CopyWiFiSyncDataReader: ProgramData environment variable is empty, unable to copy "
                  "WiFiSyncDataReader",
                  "Wi-Fi Sync functionality will not work",
                  "CopyTaskCleanupScript: ProgramData environment variable is empty, unable to copy KVM App",
                  "The cleanup process after uninstallation will not work"});
    LoseProgramData();
    CopyKVMAgent();
    CopyWiFiSyncDataReader();
    CopyTaskCleanupScript();
    EXPECT_EQ(0u, Gate().Count("CopyFileA"));
    EXPECT_EQ(0u, RecoveryCommands());
    EXPECT_EQ(0u, LogCount(" path: "));
}

TEST_F(PackageFiles, TheProgramsAreDeletedAtTheEndAndTheScriptsStay) {
    WriteScripts();
    CopyKVMAgent();
    CopyWiFiSyncDataReader();
    DeleteKVMAgent();
    DeleteWiFiSyncDataReader();
    EXPECT_FALSE(Exists(InWorking(kAgent)));
    EXPECT_FALSE(Exists(InWorking(kReader)));
    EXPECT_TRUE(Exists(InWorking(kCleanup)));
    EXPECT_TRUE(Exists(InWorking(kRecovery)));
    EXPECT_TRUE(
        HasLine("INFO", "ZELKVMApp.exe: " + InWorking(kAgent) + " deleted successfully for MSIX package."));
    EXPECT_TRUE(HasLine(
        "INFO", "WiFiSyncDataReader.exe: " + InWorking(kReader) + " deleted successfully for MSIX package."));
}

TEST_F(PackageFiles, AProgramThatHasJustBeenTerminatedIsDeletedAMomentLater) {
    CopyKVMAgent();
    Gate().FailNth("DeleteFileA", 1, ERROR_ACCESS_DENIED);
    std::thread stop([] { DeleteKVMAgent(); });
    PassSleepOf(100ms);
    stop.join();
    EXPECT_FALSE(Exists(InWorking(kAgent)));
    EXPECT_EQ(0u, LogCount("DeleteFile() API failed"));
}

TEST_F(PackageFiles, AProgramThatCannotBeDeletedIsLogged) {
    Clock().SetManual(false);
    Clock().SetRate(1000);
    DeleteKVMAgent();
    Write(InWorking(kReader), "");
    MakeReadOnly(InWorking(kReader));
    DeleteWiFiSyncDataReader();
    EXPECT_TRUE(HasLine("INFO", "DeleteKVMAgent: DeleteFile() API failed with error: 2"));
    EXPECT_TRUE(HasLine("INFO", "DeleteWiFiSyncDataReader: DeleteFile() API failed with error: 5"));
}
