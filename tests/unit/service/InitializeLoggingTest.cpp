// How the log comes to be, and what the event log receives when it does not.
#include <fstream>

#include "base/ZELLogger.h"
#include "tests/support/ServiceFixture.h"

namespace {

class LogStart : public PcFixture {
  protected:
    void SetUp() override {
        PcFixture::SetUp();
        service = std::make_unique<ZELService>("");
    }
    void TearDown() override {
        ZELLogger::Instance()->CloseLog();
        service.reset();
        PcFixture::TearDown();
    }
    std::vector<LogLine> Log() {
        return ReadLog(HostPath("C:\\ProgramData\\Tarvix\\Manageability\\zel.log"));
    }

    // As an earlier run has left it.
    void LeaveLogOf(uint64_t size) {
        ASSERT_TRUE(service->InitializeLogging());
        ZELLogger::Instance()->CloseLog();
        std::ofstream(HostPath(kFolder) / "zel.log") << std::string(size - 1, '.') << '\n';
    }
    bool HasBackup() { return std::filesystem::exists(HostPath(kFolder) / "zel.lo_"); }

    static constexpr char kFolder[] = "C:\\ProgramData\\Tarvix\\Manageability";
    static constexpr uint64_t kTenMebibytes = 0xA00000;
    std::unique_ptr<ZELService> service;
};

class LogStartWithoutProgramData : public LogStart {
  protected:
    void Describe(winhost::PcDescription& description) override {
        description.environment.erase("PROGRAMDATA");
    }
};

}  // namespace

TEST_F(LogStart, CreatesTheFoldersAndSaysWhichSystemItRunsOn) {
    EXPECT_TRUE(service->InitializeLogging());
    const auto lines = Log();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].message, "***   ZEL 5.1.0.1481 Logging started   ***");
    EXPECT_EQ(lines[1].message, "OS Version = Microsoft Windows [Version 10.0.19045.3803]");
    EXPECT_EQ(lines[1].level, "INFO");
    EXPECT_TRUE(Pc().Records<winhost::EventLogEntry>().empty());
}

TEST_F(LogStart, FoldersThatAreThereAlreadyAreNoFailure) {
    ASSERT_TRUE(service->InitializeLogging());
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_TRUE(Pc().Records<winhost::EventLogEntry>().empty());
}

TEST_F(LogStart, ALogOfMoreThanTenMebibytesBecomesTheBackup) {
    LeaveLogOf(kTenMebibytes + 1);
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_TRUE(HasBackup());
    EXPECT_EQ(Log().size(), 2u);
}

TEST_F(LogStart, ALogOfExactlyTenMebibytesTakesOneMoreLine) {
    LeaveLogOf(kTenMebibytes);
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_TRUE(HasBackup());
    EXPECT_EQ(Log().size(), 1u);
}

TEST_F(LogStart, ALogThatHasRoomGoesOn) {
    LeaveLogOf(kTenMebibytes - 4096);
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_FALSE(HasBackup());
    EXPECT_EQ(Log().size(), 3u);
}

TEST_F(LogStart, GoesOnWithoutTheMakersFolderAndGivesUpWithoutTheWorkingFolder) {
    Gate().FailNth("SHCreateDirectoryExA", 1, ERROR_ACCESS_DENIED, true);
    EXPECT_FALSE(service->InitializeLogging());
    const auto entries = Pc().Records<winhost::EventLogEntry>();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].source, "");
    EXPECT_EQ(entries[0].type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(entries[0].eventId, 0xC0020001u);
    ASSERT_EQ(entries[0].strings.size(), 2u);
    EXPECT_EQ(entries[0].strings[0], "");
    EXPECT_EQ(entries[0].strings[1].rfind(
                  "ZELService failed to create Tarvix folder in ProgramData path failed with error: ", 0),
              0u);
    EXPECT_EQ(
        entries[1].strings[1].rfind(
            "ZELService failed to create Manageability folder in ProgramData path failed with error: ", 0),
        0u);
    EXPECT_FALSE(std::filesystem::exists(HostPath("C:\\ProgramData\\Tarvix")));
}

TEST_F(LogStart, AMakersFolderThatFailsAloneOnlyShowsInTheEventLog) {
    Gate().FailNth("SHCreateDirectoryExA", 1, ERROR_ACCESS_DENIED);
    EXPECT_TRUE(service->InitializeLogging());
    EXPECT_EQ(Pc().Records<winhost::EventLogEntry>().size(), 1u);
    EXPECT_EQ(Log().size(), 2u);
}

TEST_F(LogStart, AFileThatCannotBeOpenedIsTold) {
    Gate().FailNth("_fsopen", 1, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(service->InitializeLogging());
    ASSERT_EQ(Pc().Records<winhost::EventLogEntry>().size(), 1u);
    EXPECT_EQ(Pc().Records<winhost::EventLogEntry>()[0].strings[1].rfind(
                  "ZELService failed to create log file failed with error: ", 0),
              0u);
}

TEST_F(LogStart, TheSystemsVersionMayStayUnknown) {
    Gate().FailNth("_popen", 1, ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(service->InitializeLogging());
    ASSERT_EQ(Log().size(), 2u);
    EXPECT_EQ(Log()[1].level, "WARN");
    EXPECT_EQ(Log()[1].message, "Get OS version failed.");
}

TEST_F(LogStart, AnEventLogThatIsNotThereIsNoFurtherFailure) {
    Gate().FailNth("SHCreateDirectoryExA", 1, ERROR_ACCESS_DENIED, true);
    Gate().FailNth("RegisterEventSourceA", 1, ERROR_ACCESS_DENIED, true);
    EXPECT_FALSE(service->InitializeLogging());
    EXPECT_TRUE(Pc().Records<winhost::EventLogEntry>().empty());
}

TEST_F(LogStart, AnEntryOfTheEventLogHasTheFormOfItsType) {
    service->LogEventMessage("Something", EVENTLOG_INFORMATION_TYPE);
    service->LogEventMessage("Something", EVENTLOG_SUCCESS);
    SetLastError(5);
    service->LogEventMessage("Something", EVENTLOG_ERROR_TYPE);
    service->LogEventMessage(std::string(300, 'x').c_str(), EVENTLOG_INFORMATION_TYPE);
    const auto entries = Pc().Records<winhost::EventLogEntry>();
    ASSERT_EQ(entries.size(), 4u);
    EXPECT_EQ(entries[0].strings[1], "Something");
    EXPECT_EQ(entries[1].strings[1], "Something - successful");
    EXPECT_EQ(entries[2].strings[1], "Something failed with error: 5");
    EXPECT_EQ(entries[3].strings[1], std::string(127, 'x'));
    const uint16_t types[] = {EVENTLOG_INFORMATION_TYPE, EVENTLOG_SUCCESS, EVENTLOG_ERROR_TYPE,
                              EVENTLOG_INFORMATION_TYPE};
    for (size_t i = 0; i < entries.size(); ++i)
        EXPECT_EQ(entries[i].type, types[i]) << i;
}

TEST_F(LogStart, PathsHangOnProgramData) {
    EXPECT_EQ(service->GetProgramDataFolder(), "C:\\ProgramData");
    EXPECT_EQ(service->GetMakerFolder(), "C:\\ProgramData\\Tarvix");
    EXPECT_EQ(service->GetWorkingFolder(), "C:\\ProgramData\\Tarvix\\Manageability");
    EXPECT_EQ(service->GetTerminateFilePath(), "C:\\ProgramData\\Tarvix\\Manageability\\terminate.txt");
    EXPECT_EQ(service->GetDisplayMgrLogPath(), "C:\\ProgramData\\Tarvix\\Manageability\\DisplayMgr.log");
}

TEST_F(LogStart, PathsAreKeptOnceTheyAreKnown) {
    service->GetWorkingFolder();
    Pc().Change([](auto& description) { description.environment["PROGRAMDATA"] = "C:\\Elsewhere"; });
    EXPECT_EQ(service->GetTerminateFilePath(), "C:\\ProgramData\\Tarvix\\Manageability\\terminate.txt");
}

TEST_F(LogStartWithoutProgramData, TellsTheEventLogOnceAndPathsLackTheirRoot) {
    EXPECT_EQ(service->GetProgramDataFolder(), "");
    EXPECT_EQ(service->GetWorkingFolder(), "\\Tarvix\\Manageability");
    const auto entries = Pc().Records<winhost::EventLogEntry>();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(
        entries[0].strings[1].rfind("ProgramData Environment variable not found. failed with error: ", 0),
        0u);
}

TEST_F(LogStartWithoutProgramData, TellsALogThatIsOpenToo) {
    const std::string folder = "C:\\Logs";
    std::filesystem::create_directories(HostPath(folder));
    ASSERT_TRUE(ZELLogger::Instance()->OpenLog("zel", folder + "\\zel.log", folder, kTenMebibytes,
                                               ZELLogger::kOneBackup));
    service->GetProgramDataFolder();
    const auto lines = ReadLog(HostPath(folder) / "zel.log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, "ERROR");
    EXPECT_EQ(lines[0].message, "Error: PROGRAMDATA environment variable not found.");
}
