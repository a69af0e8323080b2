// Who may change the service's folders, and what happens when a user of the PC was there first.
#include "kvm/KVMAgent.h"
#include "tests/unit/service/WorkingFolderFixture.h"

TEST_F(WorkingFolder, UsersReadItAndChangeNothing) {
    EXPECT_TRUE(service->InitializeLogging());
    ExpectThatUsersOnlyRead();
    EXPECT_TRUE(winhost::SecurityOf(HostPath(kWorking)).isProtected);
}

TEST_F(WorkingFolder, AFolderThatIsSecureIsLeftAlone) {
    ASSERT_TRUE(service->InitializeLogging());
    Give(kWorking, "backup", FILE_GENERIC_READ);
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_EQ(0u, Warnings());
    EXPECT_TRUE(AsUser("backup", [] { return Opens(kWorking, GENERIC_READ); }));
}

TEST_F(WorkingFolder, FoldersThatUsersMayWriteToAreProtectedAndKeepTheirLog) {
    AnEarlierVersionCreatesTheFolders();
    Write(In(kWorking, "zel.log"), "old\n");
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_EQ(2u, Warnings("could be written to by users and is protected"));
    EXPECT_EQ(std::string("InitializeLogging: ") + kMaker + " could be written to by users and is protected",
              Log()[2].message);
    EXPECT_EQ("old", Log()[0].text);
    ExpectThatUsersOnlyRead();
}

TEST_F(WorkingFolder, WhatUsersHavePutThereIsRemoved) {
    AnEarlierVersionCreatesTheFolders();
    Write(In(kWorking, "zel.log"), "old\n");
    AliceCreates(In(kWorking, "version.dll"));
    AliceCreatesFolder(In(kWorking, "certs"));
    fs::create_symlink(HostPath(kVictim), HostPath(In(kWorking, "junction")));
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_EQ(1u, Entries(kWorking).size());
    EXPECT_TRUE(Exists(kVictim));
    ExpectThatUsersOnlyRead();
}

TEST_F(WorkingFolder, AFileThatKeepsTheSystemOutIsRemovedToo) {
    AnEarlierVersionCreatesTheFolders();
    AliceCreates(In(kWorking, "version.dll"));
    winhost::FileSecurity own{winhost::SidOfUser("alice"), true, {}};
    ASSERT_EQ(DWORD{ERROR_SUCCESS}, winhost::StoreSecurity(HostPath(In(kWorking, "version.dll")), own));
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_FALSE(Exists(In(kWorking, "version.dll")));
    EXPECT_EQ(0u, Warnings("renamed"));
    ExpectThatUsersOnlyRead();
}

TEST_F(WorkingFolder, OtherProgramsFilesInTheMakersFolderStay) {
    AnEarlierVersionCreatesTheFolders();
    AliceCreates(In(kMaker, "other.txt"));
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_TRUE(Exists(In(kMaker, "other.txt")));
}

// A user's handle that was opened before could make a link of it.
TEST_F(WorkingFolder, AnEmptyFolderThatUsersMayWriteToIsCreatedAnew) {
    AnEarlierVersionCreatesTheFolders();
    fs::create_directory(HostPath(In(kMaker, "other")));
    const HANDLE folder = CreateFileA(kWorking, FILE_READ_ATTRIBUTES, 0, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    BY_HANDLE_FILE_INFORMATION before{}, after{};
    ASSERT_TRUE(GetFileInformationByHandle(folder, &before));
    EXPECT_TRUE(service->InitializeLogging());
    const HANDLE now = CreateFileA(kWorking, FILE_READ_ATTRIBUTES, 0, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    ASSERT_TRUE(GetFileInformationByHandle(now, &after));
    EXPECT_NE(before.nFileIndexLow, after.nFileIndexLow);
    CloseHandle(folder);
    CloseHandle(now);
}

TEST_F(WorkingFolder, AUsersFolderIsRenamedBeforeAnythingIsWritten) {
    AliceCreatesFolder(kWorking);
    AliceCreates(In(kWorking, "zel.log"));
    ExpectRepair(std::string(kMaker) + " could be changed by users and is renamed to " + kMaker +
                 ".replaced-");
    const auto aside = Entries(kProgramData, "Tarvix.replaced-");
    ASSERT_EQ(1u, aside.size());
    EXPECT_EQ("", Read(aside[0] / "Manageability" / "zel.log"));
}

TEST_F(WorkingFolder, AUsersFolderInTheMakersIsRenamedToo) {
    ASSERT_TRUE(service->InitializeLogging());
    ZELLogger::Instance()->CloseLog();
    fs::remove_all(HostPath(kWorking));
    Give(kMaker, "alice", FILE_ADD_SUBDIRECTORY);
    AliceCreatesFolder(kWorking);
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_EQ(1u, Entries(kMaker, "Manageability.replaced-").size());
    ExpectThatUsersOnlyRead();
}

TEST_F(WorkingFolder, AFolderThatKeepsTheSystemOutIsRenamed) {
    AliceCreatesFolder(kMaker);
    winhost::FileSecurity own{winhost::SidOfUser("alice"), true, {}};
    ASSERT_EQ(DWORD{ERROR_SUCCESS}, winhost::StoreSecurity(HostPath(kMaker), own));
    ExpectRepair("could be changed by users and is renamed to ");
}

// A handle that she has opened keeps its rights when the list changes.
TEST_F(WorkingFolder, AFolderWhoseRightsAUserMayChangeIsRenamed) {
    for (const DWORD right : {WRITE_DAC, WRITE_OWNER, DELETE}) {
        ASSERT_TRUE(service->InitializeLogging());
        ZELLogger::Instance()->CloseLog();
        Give(kWorking, "alice", right);
        ExpectRepair(std::string(kWorking) + " could be changed by users and is renamed to ");
    }
    EXPECT_EQ(3u, Entries(kMaker, "Manageability.replaced-").size());
}

// It is longer than anything that the process's own user can be.
TEST_F(WorkingFolder, TheRightsOfAnSidOfTheLargestSizeAreTheUsers) {
    ASSERT_TRUE(service->InitializeLogging());
    ZELLogger::Instance()->CloseLog();
    const std::string sid = std::string("\x01\xff\0\0\0\0\0\5", 8) + std::string(255 * sizeof(DWORD), '\1');
    GiveSid(kWorking, sid, WRITE_DAC);
    ExpectRepair(std::string(kWorking) + " could be changed by users and is renamed to ");
}

TEST_F(WorkingFolder, AUsersFolderThatIsNotEmptyTakesTheWholeFolderAside) {
    AnEarlierVersionCreatesTheFolders();
    AliceCreatesFolder(In(kWorking, R"(ZELKVMApp.exe.local\sub)"));
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_EQ(1u, Warnings(std::string(kWorking) + " could be changed by users and is renamed to "));
    EXPECT_EQ(1u, Entries(kWorking).size());
}

TEST_F(WorkingFolder, ALinkIsRemovedAndNothingIsWrittenWhereItLeads) {
    for (const std::string link : {kMaker, kWorking}) {
        ZELLogger::Instance()->CloseLog();
        fs::remove_all(HostPath(link));
        fs::create_symlink(HostPath(kVictim), HostPath(link));
        ExpectRepair(link + " was a link and is removed");
    }
}

TEST_F(WorkingFolder, ALinkToNowhereIsRemoved) {
    fs::create_symlink(HostPath(R"(C:\none)"), HostPath(kMaker));
    ExpectRepair(std::string(kMaker) + " was a link and is removed");
    EXPECT_FALSE(Exists(R"(C:\none)"));
}

TEST_F(WorkingFolder, AFileInTheWayIsLeftAlone) {
    Write(kMaker, "text");
    EXPECT_FALSE(service->InitializeLogging());
    EXPECT_EQ("text", Read(HostPath(kMaker)));
    EXPECT_EQ(2u, Pc().Records<winhost::EventLogEntry>().size());
}

// The user keeps a file in it open, for example.
TEST_F(WorkingFolder, AFolderThatCannotBeSecuredIsNotUsed) {
    AliceCreatesFolder(kWorking);
    AliceCreates(In(kWorking, "terminate.txt"));
    Gate().FailNth("MoveFileA", 1, ERROR_ACCESS_DENIED, true);
    EXPECT_FALSE(service->InitializeLogging());
    service->m_statusFile.UpdateStatusFile();
    service->m_statusFile.DeleteStatusFile();
    KVMAgent agent;
    agent.TerminateKVMAgent();
    agent.RemoveKVMAgent();
    const auto entries = Entries(kWorking);
    ASSERT_EQ(1u, entries.size());
    EXPECT_EQ("", Read(entries[0]));
    EXPECT_TRUE(AliceOpens(kWorking, WRITE_DAC));
    EXPECT_EQ(2u, Pc().Records<winhost::EventLogEntry>().size());
}

TEST_F(WorkingFolder, AnAccountThatMayNotOwnForTheSystemWritesNothing) {
    EXPECT_FALSE(AsUser("alice", [&] { return service->InitializeLogging(); }));
    EXPECT_FALSE(Exists(kMaker));
}

// Whatever fails, nothing is written where the links lead, and no log is open in a folder that users may
// change.
TEST_F(WorkingFolder, AFailureOfAnyCallLeavesNoOpening) {
    for (uint64_t n = 1;; ++n) {
        ZELLogger::Instance()->CloseLog();
        Gate().Reset();
        service = std::make_unique<ZELService>("");
        fs::remove_all(HostPath(kMaker));
        AnEarlierVersionCreatesTheFolders();
        Write(In(kWorking, "zel.lo_"), "old\n");
        AliceCreates(In(kWorking, "evil.dll"));
        fs::create_symlink(HostPath(In(kVictim, "system.ini")), HostPath(In(kWorking, "zel.log")));
        Gate().FailNth("", n, ERROR_ACCESS_DENIED);
        const bool isOpen = service->InitializeLogging();
        const bool isOver = Gate().Failures() == 0;
        Gate().Reset();
        if (isOpen) {
            ExpectThatUsersOnlyRead();
            EXPECT_FALSE(Exists(In(kWorking, "evil.dll"))) << "call " << n;
        }
        EXPECT_TRUE(Entries(kVictim).empty()) << "call " << n;
        if (isOver) {
            EXPECT_TRUE(isOpen);
            EXPECT_GT(n, 20u);
            break;
        }
    }
}
