// What a removal of the service deletes from its working folder, and what it never touches.
#include "installer/setup/RemoveData.h"

#include "tests/unit/service/WorkingFolderFixture.h"

class RemovedData : public WorkingFolder {
  protected:
    void SetUp() override {
        WorkingFolder::SetUp();
        Write(In(kVictim, "cloud.txt"), "precious");
    }
    // The folder of a service that has run, with all that it can hold.
    void TheServiceHasRun() {
        ASSERT_TRUE(service->InitializeLogging());
        ZELLogger::Instance()->CloseLog();
        for (const char* folder : {"certs", "CSRCert"})
            fs::create_directory(HostPath(In(kWorking, folder)));
        for (const char* name : {"cloud.txt", "zel_json_data.txt", "terminate.txt", "certs\\key.pem",
                                 "certs\\cert.pem", "CSRCert\\request.csr", "zel.lo_", "DisplayMgr.log"})
            Write(In(kWorking, name), "text");
    }
    static void ExpectVictimUntouched() { EXPECT_EQ("precious", Read(HostPath(In(kVictim, "cloud.txt")))); }
};

TEST_F(RemovedData, OnlyTheLogsStay) {
    TheServiceHasRun();
    EXPECT_TRUE(RemoveData(kProgramData));
    EXPECT_EQ(3u, Entries(kWorking).size());
    for (const char* name : {"zel.log", "zel.lo_", "DisplayMgr.log"})
        EXPECT_TRUE(Exists(In(kWorking, name))) << name;
}

TEST_F(RemovedData, FoldersWithoutLogsGoToo) {
    TheServiceHasRun();
    for (const char* name : {"zel.log", "zel.lo_", "DisplayMgr.log"})
        fs::remove(HostPath(In(kWorking, name)));
    EXPECT_TRUE(RemoveData(kProgramData));
    EXPECT_FALSE(Exists(kMaker));
    EXPECT_TRUE(Exists(kProgramData));
}

TEST_F(RemovedData, WithoutAFolderThereIsNothingToDo) {
    EXPECT_TRUE(RemoveData(kProgramData));
    EXPECT_FALSE(Exists(kMaker));
}

TEST_F(RemovedData, OtherFilesStay) {
    TheServiceHasRun();
    Write(In(kWorking, "notes.txt"), "an administrator's");
    EXPECT_TRUE(RemoveData(kProgramData));
    EXPECT_TRUE(Exists(In(kWorking, "notes.txt")));
}

TEST_F(RemovedData, ALinkInPlaceOfTheFolderIsNotFollowed) {
    ASSERT_EQ(0, SHCreateDirectoryExA(nullptr, kMaker, nullptr));
    fs::create_directory_symlink(HostPath(kVictim), HostPath(kWorking));
    EXPECT_TRUE(RemoveData(kProgramData));
    ExpectVictimUntouched();
    EXPECT_FALSE(Exists(kMaker));
}

TEST_F(RemovedData, ALinkInPlaceOfAFolderOfCertificatesIsNotFollowed) {
    TheServiceHasRun();
    fs::remove_all(HostPath(In(kWorking, "certs")));
    fs::create_directory_symlink(HostPath(kVictim), HostPath(In(kWorking, "certs")));
    EXPECT_TRUE(RemoveData(kProgramData));
    ExpectVictimUntouched();
    EXPECT_FALSE(Exists(In(kWorking, "certs")));
}

TEST_F(RemovedData, AFolderThatUsersOwnIsNotSearched) {
    AliceCreatesFolder(kMaker);
    AliceCreatesFolder(kWorking);
    AliceCreates(In(kWorking, "cloud.txt"));
    EXPECT_TRUE(RemoveData(kProgramData));
    const auto aside = Entries(kProgramData, "Tarvix.replaced-");
    ASSERT_EQ(1u, aside.size());
    EXPECT_TRUE(fs::exists(aside[0] / "Manageability" / "cloud.txt"));
}

TEST_F(RemovedData, WhatCannotBeDeletedIsReportedAndTheRestGoes) {
    TheServiceHasRun();
    fs::create_directory(HostPath(In(kWorking, "certs\\another")));
    EXPECT_FALSE(RemoveData(kProgramData));
    EXPECT_TRUE(Exists(In(kWorking, "certs\\another")));
    EXPECT_FALSE(Exists(In(kWorking, "certs\\cert.pem")));
    EXPECT_FALSE(Exists(In(kWorking, "CSRCert")));
}
