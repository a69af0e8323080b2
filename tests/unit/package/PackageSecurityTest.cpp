// What is copied to the working folder runs as SYSTEM: users can neither replace it nor put a library beside
// it.
#include "tests/unit/package/PackageFixture.h"
#include "winhost/files/FileSecurity.h"

namespace {

constexpr char kVictim[] = R"(C:\Windows\system.ini)";

class PackageSecurity : public PackageFixture {
  protected:
    void SetUp() override {
        PackageFixture::SetUp();
        Write(kVictim, "precious");
        Identify();
    }
    static bool AliceOpens(const std::string& path, DWORD access, DWORD disposition = OPEN_EXISTING) {
        Pc().Change([](auto& pc) { pc.userName = "alice"; });
        const HANDLE file = CreateFileA(path.c_str(), access, FILE_SHARE_READ, nullptr, disposition,
                                        FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        Pc().Change([](auto& pc) { pc.userName = "SYSTEM"; });
        return file != INVALID_HANDLE_VALUE && CloseHandle(file);
    }
    static bool AliceDeletes(const std::string& path) {
        Pc().Change([](auto& pc) { pc.userName = "alice"; });
        const bool deleted = DeleteFileA(path.c_str());
        Pc().Change([](auto& pc) { pc.userName = "SYSTEM"; });
        return deleted;
    }
    // As what alice has created while every user could write to the folder.
    static void GiveToAlice(const std::string& path) {
        winhost::FileSecurity security = winhost::SecurityOf(HostPath(path));
        security.owner = winhost::SidOfUser("alice");
        ASSERT_EQ(DWORD{ERROR_SUCCESS}, winhost::StoreSecurity(HostPath(path), security));
    }
    static void Plant(const std::string& name) {
        Write(InWorking(name), "planted");
        GiveToAlice(InWorking(name));
    }
    // It cannot be removed, because it is not empty.
    static void PlantFolder() {
        Write(InWorking(R"(ZELKVMApp.exe.local\version.dll)"), "planted");
        GiveToAlice(InWorking("ZELKVMApp.exe.local"));
    }
    void ExpectRefusals() {
        ExpectErrors({"CopyKVMAgent: CopyFile() API failed with error: 5",
                      "Start KVM functionality will not work",
                      "CopyWiFiSyncDataReader: CopyFile() API failed with error: 5",
                      "Wi-Fi Sync functionality will not work",
                      "CopyTaskCleanupScript: CopyFile() API failed with error: 5",
                      "The cleanup process after uninstallation will not work",
                      "The Recovery Environment is not restored to original during uninstallation",
                      "Recovery Environment script encountered the followng error: 5",
                      "Adding CleanUpZEL_Service task to Task Scheduler failed with Error: 5"});
    }
    void ExpectRemoval(const std::string& name) {
        EXPECT_TRUE(
            HasLine("WARN", InWorking(name) + " was a link or could be changed by users, and is removed"));
    }
};

}  // namespace

TEST_F(PackageSecurity, UsersReadTheCopiesAndChangeNothing) {
    PreparePackage();
    AwaitRecovery();
    for (const auto& [place, name] : Files()) {
        const std::string copy = InWorking(name);
        EXPECT_TRUE(AliceOpens(copy, GENERIC_READ | GENERIC_EXECUTE)) << name;
        for (const DWORD right : {DWORD{GENERIC_WRITE}, DWORD{FILE_WRITE_DATA}, DWORD{DELETE},
                                  DWORD{WRITE_DAC}, DWORD{WRITE_OWNER}})
            EXPECT_FALSE(AliceOpens(copy, right)) << name << " " << right;
        EXPECT_FALSE(AliceDeletes(copy)) << name;
        EXPECT_TRUE(Exists(copy)) << name;
    }
    EXPECT_FALSE(AliceOpens(InWorking("version.dll"), GENERIC_READ, OPEN_ALWAYS));
    EXPECT_TRUE(LinesWith("was a link").empty());
}

TEST_F(PackageSecurity, NoLinkInThePlaceOfACopyIsFollowed) {
    for (const char* name : {kAgent, kReader, kCleanup, kRecovery})
        std::filesystem::create_symlink(HostPath(kVictim), HostPath(InWorking(name)));
    PreparePackage();
    AwaitRecovery();
    EXPECT_EQ("precious", Read(kVictim));
    for (const auto& [place, name] : Files()) {
        EXPECT_TRUE(
            std::filesystem::is_regular_file(std::filesystem::symlink_status(HostPath(InWorking(name)))));
        EXPECT_EQ(name + " 1", Read(InWorking(name)));
        ExpectRemoval(name);
    }
}

TEST_F(PackageSecurity, NoHardLinkInThePlaceOfACopyIsWrittenTo) {
    std::filesystem::create_hard_link(HostPath(kVictim), HostPath(InWorking(kAgent)));
    PreparePackage();
    AwaitRecovery();
    EXPECT_EQ("precious", Read(kVictim));
    EXPECT_EQ("ZELKVMApp.exe 1", Read(InWorking(kAgent)));
    ExpectRemoval(kAgent);
}

TEST_F(PackageSecurity, ALibraryThatAUserHasPutBesideTheProgramsIsRemoved) {
    Plant("version.dll");
    PreparePackage();
    AwaitRecovery();
    EXPECT_FALSE(Exists(InWorking("version.dll")));
    ExpectRemoval("version.dll");
    EXPECT_TRUE(Exists(InWorking(kAgent)));
    EXPECT_TRUE(service->m_bWorkingFolderSecure);
}

TEST_F(PackageSecurity, AUsersScriptIsNoMarkOfAnEarlierRun) {
    Plant(kCleanup);
    Plant(kRecovery);
    PreparePackage();
    AwaitRecovery();
    EXPECT_EQ("ZELUninstallCleanup.ps1 1", Read(InWorking(kCleanup)));
    EXPECT_EQ("ConfigureRecoveryEnvironmentSupport.ps1 1", Read(InWorking(kRecovery)));
    EXPECT_FALSE(AliceOpens(InWorking(kCleanup), GENERIC_WRITE));
}

TEST_F(PackageSecurity, WhereAUsersFolderStaysNothingIsCopiedAndNothingRuns) {
    ExpectRefusals();
    PlantFolder();
    PreparePackage();
    AwaitRecovery();
    EXPECT_FALSE(service->m_bWorkingFolderSecure);
    EXPECT_TRUE(HasLine("WARN", InWorking("ZELKVMApp.exe.local") +
                                    " was a link or could be changed by users, and cannot be removed"));
    for (const auto& [place, name] : Files())
        EXPECT_FALSE(Exists(InWorking(name))) << name;
    EXPECT_EQ(0u, RecoveryCommands());
    EXPECT_EQ((std::vector<std::string>{kQueryStart, StartRegistration(), kQueryTray, TrayRegistration()}),
              Commands());
}

TEST_F(PackageSecurity, NoScriptOfAUserRunsInAFolderThatIsNotSecure) {
    ExpectRefusals();
    service->m_bWorkingFolderSecure = false;
    Write(InWorking(kRecovery), "planted");
    PreparePackage();
    AwaitRecovery();
    EXPECT_EQ(0u, RecoveryCommands());
    EXPECT_EQ("planted", Read(InWorking(kRecovery)));
    EXPECT_TRUE(HasLine("WARN", "Terminate file deletion failed"));
}

TEST_F(PackageSecurity, NothingIsDeletedInAFolderThatIsNotSecure) {
    Write(InWorking(kAgent), "another's");
    service->m_bWorkingFolderSecure = false;
    DeleteKVMAgent();
    EXPECT_TRUE(Exists(InWorking(kAgent)));
    EXPECT_TRUE(HasLine("INFO", "DeleteKVMAgent: DeleteFile() API failed with error: 5"));
}
