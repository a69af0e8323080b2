// Links and foreign files in the place of those that the service writes.
#include "kvm/KVMAgent.h"
#include "tests/unit/service/WorkingFolderFixture.h"

namespace {

class WorkingFiles : public WorkingFolder {
  protected:
    void SetUp() override {
        WorkingFolder::SetUp();
        Write(kTarget, "precious");
        ASSERT_TRUE(service->InitializeLogging());
    }
    static void PlantLink(const std::string& name) {
        fs::remove(HostPath(In(kWorking, name)));
        fs::create_symlink(HostPath(kTarget), HostPath(In(kWorking, name)));
    }
    static void PlantHardLink(const std::string& name) {
        fs::remove(HostPath(In(kWorking, name)));
        fs::create_hard_link(HostPath(kTarget), HostPath(In(kWorking, name)));
    }
    static bool IsPlainFile(const std::string& name) {
        const fs::path path = HostPath(In(kWorking, name));
        return fs::is_regular_file(fs::symlink_status(path)) && fs::hard_link_count(path) == 1;
    }
    static size_t Replacements(const std::string& name) {
        return Warnings(In(kWorking, name) + " was a link or could be changed by users, and is replaced");
    }

    static constexpr char kTarget[] = R"(C:\Windows\system.ini)";
};

}  // namespace

TEST_F(WorkingFiles, TheLogReplacesALinkInItsPlace) {
    for (const auto plant : {PlantLink, PlantHardLink}) {
        ZELLogger::Instance()->CloseLog();
        plant("zel.log");
        EXPECT_TRUE(service->InitializeLogging());
        EXPECT_TRUE(IsPlainFile("zel.log"));
        EXPECT_EQ(1u, Replacements("zel.log"));
        EXPECT_EQ("precious", Read(HostPath(kTarget)));
    }
}

TEST_F(WorkingFiles, TheLogCreatesNothingBehindALinkToNowhere) {
    ZELLogger::Instance()->CloseLog();
    fs::remove(HostPath(In(kWorking, "zel.log")));
    fs::create_symlink(HostPath(R"(C:\Windows\new.ini)"), HostPath(In(kWorking, "zel.log")));
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_TRUE(IsPlainFile("zel.log"));
    EXPECT_FALSE(Exists(R"(C:\Windows\new.ini)"));
}

TEST_F(WorkingFiles, ALogThatUsersMayWriteToIsReplaced) {
    ZELLogger::Instance()->CloseLog();
    Give(In(kWorking, "zel.log"), "alice", FILE_WRITE_DATA);
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_EQ(1u, Replacements("zel.log"));
    EXPECT_FALSE(AliceOpens(In(kWorking, "zel.log"), FILE_WRITE_DATA));
}

TEST_F(WorkingFiles, ARotationFollowsNoLink) {
    ZELLogger& logger = *ZELLogger::Instance();
    ASSERT_TRUE(logger.OpenLog("zel", In(kWorking, "zel.log"), kWorking, 1, ZELLogger::kOneBackup));
    PlantLink("zel.lo_");
    logger.LogInfo("ZELService", "first in the new file");
    EXPECT_TRUE(IsPlainFile("zel.lo_"));
    ASSERT_EQ(1u, Log().size());
    EXPECT_EQ("first in the new file", Log()[0].message);
    EXPECT_EQ("precious", Read(HostPath(kTarget)));
}

TEST_F(WorkingFiles, TheStatusFileReplacesALinkInItsPlace) {
    for (const auto plant : {PlantLink, PlantHardLink}) {
        plant("zel_json_data.txt");
        service->m_statusFile.UpdateStatusFile();
        EXPECT_TRUE(IsPlainFile("zel_json_data.txt"));
        EXPECT_EQ("precious", Read(HostPath(kTarget)));
    }
    EXPECT_EQ(2u, Replacements("zel_json_data.txt"));
    service->m_statusFile.UpdateStatusFile();
    EXPECT_EQ(2u, Replacements("zel_json_data.txt"));
}

TEST_F(WorkingFiles, ADeletionRemovesTheLinkAlone) {
    PlantLink("zel_json_data.txt");
    service->m_statusFile.DeleteStatusFile();
    PlantLink("terminate.txt");
    PlantLink("DisplayMgr.log");
    KVMAgent().RemoveKVMAgent();
    for (const char* name : {"zel_json_data.txt", "terminate.txt", "DisplayMgr.log"})
        EXPECT_FALSE(Exists(In(kWorking, name))) << name;
    EXPECT_EQ("precious", Read(HostPath(kTarget)));
}

TEST_F(WorkingFiles, TheTerminateFileReplacesALinkInItsPlace) {
    for (const auto plant : {PlantLink, PlantHardLink}) {
        plant("terminate.txt");
        KVMAgent().TerminateKVMAgent();
        EXPECT_TRUE(IsPlainFile("terminate.txt"));
        EXPECT_EQ("terminate\n", Read(HostPath(In(kWorking, "terminate.txt"))));
        EXPECT_EQ("precious", Read(HostPath(kTarget)));
    }
    EXPECT_EQ(2u, Replacements("terminate.txt"));
}

TEST_F(WorkingFiles, AFileThatCannotBeCheckedIsNotWritten) {
    for (const char* call : {"CreateFileA", "GetFileInformationByHandle", "GetKernelObjectSecurity"}) {
        Gate().FailNth(call, 1, ERROR_ACCESS_DENIED);
        KVMAgent().TerminateKVMAgent();
        EXPECT_EQ("", Read(HostPath(In(kWorking, "terminate.txt")))) << call;
        Gate().FailNth(call, 1, ERROR_ACCESS_DENIED);
        service->m_statusFile.UpdateStatusFile();
        EXPECT_EQ("", Read(HostPath(In(kWorking, "zel_json_data.txt")))) << call;
    }
}

TEST_F(WorkingFiles, ADescriptorThatNeedsNoMoreRoomIsNotAskedForAgain) {
    Gate().FailNth("GetKernelObjectSecurity", 1, ERROR_INSUFFICIENT_BUFFER);
    KVMAgent().TerminateKVMAgent();
    EXPECT_EQ("", Read(HostPath(In(kWorking, "terminate.txt"))));
}
