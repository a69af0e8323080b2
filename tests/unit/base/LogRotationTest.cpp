// What becomes of a log that has grown too large.
#include <winsock2.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "base/ZELLogger.h"
#include "tests/support/PcFixture.h"
#include "tests/support/ServiceLog.h"

namespace {

namespace fs = std::filesystem;

constexpr char kPath[] = "C:\\Logs\\zel.log";
constexpr char kBackup[] = "C:\\Logs\\zel.lo_";
constexpr char kFolder[] = "C:\\Logs";
constexpr uint64_t kLimit = 0xA00000;

class LogRotation : public PcFixture {
  protected:
    void SetUp() override {
        PcFixture::SetUp();
        fs::create_directories(HostPath(kFolder));
    }

    void Fill(const std::string& path, uint64_t size) {
        std::ofstream(HostPath(path), std::ios::binary) << std::string(size - 1, '.') << '\n';
    }
    void Open(uint32_t mode = ZELLogger::kOneBackup) {
        ASSERT_TRUE(logger.OpenLog("zel", kPath, kFolder, kLimit, mode));
    }
    void Log(const char* message) { logger.LogInfo("ZELService", message); }
    uint64_t Size(const std::string& path) { return fs::file_size(HostPath(path)); }
    bool Exists(const std::string& path) { return fs::exists(HostPath(path)); }

    ZELLogger logger;
};

}  // namespace

TEST_F(LogRotation, AFileOfExactlyTheLimitTakesOneMoreLineAndTheNextBeginsANewFile) {
    Fill(kPath, kLimit);
    Open();
    Log("one more");
    EXPECT_FALSE(Exists(kBackup));
    EXPECT_GT(Size(kPath), kLimit);

    Log("first of the new file");
    EXPECT_GT(Size(kBackup), kLimit);
    const auto lines = ReadLog(HostPath(kPath));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "first of the new file");
}

TEST_F(LogRotation, ReplacesAnOlderBackup) {
    Fill(kBackup, 10);
    Fill(kPath, kLimit + 1);
    Open();
    Log("x");
    EXPECT_EQ(Size(kBackup), kLimit + 1);
    EXPECT_EQ(ReadLog(HostPath(kPath)).size(), 1u);
}

TEST_F(LogRotation, GoesOnInTheSameFileWhileItCannotBeMoved) {
    Fill(kPath, kLimit + 1);
    Open();
    Gate().FailNth("MoveFileA", 1, ERROR_SHARING_VIOLATION, true);
    Log("a");
    Log("b");
    EXPECT_FALSE(Exists(kBackup));
    const auto lines = ReadLog(HostPath(kPath));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2].message, "b");
    EXPECT_EQ(Gate().Count("MoveFileA"), 2u);
}

TEST_F(LogRotation, TheDebuggerGetsTheLineWhenTheNewFileCannotBeOpenedAndTheNextTriesAgain) {
    Fill(kPath, kLimit + 1);
    Open();
    Gate().FailNth("_fsopen", 1, ERROR_ACCESS_DENIED);
    Log("to the debugger");
    EXPECT_TRUE(ReadLog(HostPath(kPath)).empty());
    const std::string text = Pc().Records<winhost::DebugText>().back().text;
    EXPECT_EQ(ParseLogLine(text.substr(0, text.size() - 1)).message, "to the debugger");
    Log("to the file");
    const auto lines = ReadLog(HostPath(kPath));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "to the file");
}

TEST_F(LogRotation, NumberedBackupsAreKept) {
    Fill("C:\\Logs\\zel0.log", 10);
    Fill(kPath, kLimit + 1);
    Open(ZELLogger::kNumberedBackups);
    Log("x");
    EXPECT_EQ(Size("C:\\Logs\\zel0.log"), 10u);
    EXPECT_EQ(Size("C:\\Logs\\zel1.log"), kLimit + 1);
    EXPECT_EQ(ReadLog(HostPath(kPath)).size(), 1u);
}

TEST_F(LogRotation, TheNextNumberIsOneAboveTheHighest) {
    Open(ZELLogger::kNumberedBackups);
    Fill("C:\\Logs\\zel3.log", 1);
    Fill("C:\\Logs\\other9.log", 1);
    Fill("C:\\Logs\\zel9.txt", 2);
    logger.ScanBackupIndex();
    EXPECT_EQ(logger.NextBackupIndex(), 4);
}

TEST_F(LogRotation, AnEmptyFolderBeginsWithNumberZero) {
    Open(ZELLogger::kNumberedBackups);
    fs::remove(HostPath(kPath));
    logger.ScanBackupIndex();
    EXPECT_EQ(logger.NextBackupIndex(), 0);
}

TEST_F(LogRotation, ANameWithoutANumberSetsTheCountBack) {
    Open(ZELLogger::kNumberedBackups);
    fs::remove(HostPath(kPath));
    Fill("C:\\Logs\\zelx.log", 1);
    logger.ScanBackupIndex();
    EXPECT_EQ(logger.NextBackupIndex(), 1);
}

TEST_F(LogRotation, ANameWithoutANumberSetsTheCountBackFromTheNumbersListedBeforeIt) {
    Open(ZELLogger::kNumberedBackups);
    fs::remove(HostPath(kPath));
    // The order of the list is that of the file system.
    const auto isLast = [&](const std::string& name) {
        std::string last;
        for (const auto& entry : fs::directory_iterator(HostPath(kFolder)))
            last = entry.path().filename().string();
        return last == name;
    };
    std::string nameless;
    for (char letter = 'a'; nameless.empty() || !isLast(nameless); ++letter) {
        ASSERT_LE(letter, 'z');
        for (const auto& entry : fs::directory_iterator(HostPath(kFolder)))
            fs::remove(entry);
        nameless = std::string("zel") + letter + ".log";
        Fill("C:\\Logs\\" + nameless, 1);
        Fill("C:\\Logs\\zel7.log", 1);
    }
    logger.ScanBackupIndex();
    EXPECT_EQ(logger.NextBackupIndex(), 1);
}

TEST_F(LogRotation, TheNumberIsReadBehindThreeCharactersWhateverTheBaseNameIs) {
    Open();
    EXPECT_EQ(logger.ParseBackupIndex("zel.log"), 0);
    EXPECT_EQ(logger.ParseBackupIndex("zel12.log"), 12);
    EXPECT_EQ(logger.ParseBackupIndex("zel007.log"), 7);
    EXPECT_EQ(logger.ParseBackupIndex("zelx.log"), -1);
    EXPECT_EQ(logger.ParseBackupIndex("zel-1.log"), -1);
    EXPECT_EQ(logger.ParseBackupIndex("zel1.txt"), -1);
    EXPECT_EQ(logger.ParseBackupIndex("other1.log"), -1);
    ASSERT_TRUE(logger.OpenLog("agent", "C:\\Logs\\agent.log", kFolder, kLimit, ZELLogger::kNumberedBackups));
    EXPECT_EQ(logger.ParseBackupIndex("agent1.log"), -1);
}

TEST_F(LogRotation, ANumberOutOfRangeThrows) {
    Open();
    try {
        logger.ParseBackupIndex("zel99999999999.log");
        FAIL() << "nothing thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "stoi argument out of range");
    }
}

TEST_F(LogRotation, AFolderThatCannotBeListedThrows) {
    Open(ZELLogger::kNumberedBackups);
    fs::remove_all(HostPath(kFolder));
    try {
        logger.ScanBackupIndex();
        FAIL() << "nothing thrown";
    } catch (const fs::filesystem_error& error) {
        EXPECT_NE(std::string(error.what()).find("directory_iterator::directory_iterator"),
                  std::string::npos);
    }
}

TEST_F(LogRotation, ABackupThatCannotBeNumberedKeepsTheLinesComing) {
    Fill("C:\\Logs\\zel99999999999.log", 1);
    Fill(kPath, kLimit + 1);
    Open(ZELLogger::kNumberedBackups);
    Log("x");
    const auto lines = ReadLog(HostPath(kPath));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].message, "x");
}
