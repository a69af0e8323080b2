// The file that the logger writes: the form of its lines, and who may disturb it.
#include <winsock2.h>
#include <windows.h>
#include <psapi.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "base/Log.h"
#include "base/ZELLogger.h"
#include "tests/support/PcFixture.h"
#include "tests/support/ServiceLog.h"

namespace {

constexpr char kLoggerPath[] = "C:\\Logs\\zel.log";
constexpr char kLoggerFolder[] = "C:\\Logs";
constexpr uint64_t kLoggerLimit = 0xA00000;

class Logger : public PcFixture {
  protected:
    void SetUp() override {
        PcFixture::SetUp();
        std::filesystem::create_directories(HostPath(kLoggerFolder));
        ASSERT_TRUE(logger.OpenLog("zel", kLoggerPath, kLoggerFolder, kLoggerLimit, ZELLogger::kOneBackup));
    }

    std::string Content(const std::string& path = kLoggerPath) {
        std::ifstream stream(HostPath(path), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::vector<LogLine> Lines(const std::string& path = kLoggerPath) { return ReadLog(HostPath(path)); }

    ZELLogger logger;
};

}  // namespace

TEST_F(Logger, ALineCarriesProcessMemoryTagTimeAndThread) {
    const std::vector<char> memory(64u << 20, 'm');
    logger.LogInfo("ZELService", "Open MPM Device Success");
    const std::string line = Content();
    std::smatch match;
    ASSERT_TRUE(
        std::regex_match(line, match,
                         std::regex("\\[(\\d+)\\]-\\[ (\\d+) M \\] INFO:  Open MPM Device Success "
                                    "\\$\\$<ZELService> <(.*)> <thread = (\\d+) \\(0x([0-9a-f]+)\\)>\n")))
        << line;
    EXPECT_EQ(match[1], std::to_string(GetCurrentProcessId()));
    PROCESS_MEMORY_COUNTERS_EX counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                            sizeof counters);
    EXPECT_GE(std::stoul(match[2]), memory.size() >> 20);
    EXPECT_NEAR(std::stod(match[2]), static_cast<double>(counters.PrivateUsage >> 20), 8);
    EXPECT_EQ(match[4], std::to_string(GetCurrentThreadId()));
    EXPECT_EQ(std::stoul(match[5], nullptr, 16), GetCurrentThreadId());
}

TEST_F(Logger, TheTimeStampIsEnglishWithUnpaddedMillisecondsAndTheZonesStandardName) {
    // The clock stands still: what the line says is what it says here.
    SYSTEMTIME now{};
    GetLocalTime(&now);
    Clock().SetWallOffset(std::chrono::milliseconds(7 + (1000 - now.wMilliseconds)));
    GetLocalTime(&now);
    ASSERT_EQ(now.wMilliseconds, 7);
    logger.LogInfo("ZELService", "x");

    constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char stamp[128];
    std::snprintf(stamp, sizeof stamp, "<%s  %s %02d %02d:%02d:%02d.7 %d W. Europe Standard Time>",
                  kDays[now.wDayOfWeek], kMonths[now.wMonth - 1], now.wDay, now.wHour, now.wMinute,
                  now.wSecond, now.wYear);
    EXPECT_NE(Content().find(stamp), std::string::npos) << Content() << stamp;
}

TEST_F(Logger, TheTimeStampPadsDayAndHour) {
    // 5 January 2026, a Monday, 03:02:01.009 in UTC and on this PC.
    constexpr uint64_t kMoment = 134120557210090000;  // as a FILETIME
    Clock().SetWallOffset({});
    const auto now = static_cast<int64_t>(Clock().FileTime());
    Clock().SetWallOffset(std::chrono::nanoseconds((static_cast<int64_t>(kMoment) - now) * 100));
    logger.LogInfo("ZELService", "x");
    EXPECT_NE(Content().find("<Mon  Jan 05 03:02:01.9 2026 W. Europe Standard Time>"), std::string::npos)
        << Content();
}

TEST_F(Logger, EachLevelHasItsText) {
    logger.LogInfo("ZELService", "a");
    logger.LogWarn("ZELService", "b");
    logger.LogError("ZELService", "c");
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[0].text.find("] INFO:  a $$"), std::string::npos);
    EXPECT_NE(lines[1].text.find("] WARN:  b $$"), std::string::npos);
    EXPECT_NE(lines[2].text.find("] ERROR: c $$"), std::string::npos);
}

TEST_F(Logger, DebugAndTraceWriteNothing) {
    logger.LogDebug("ZELService", "a");
    logger.LogTrace("ZELService", "b");
    EXPECT_EQ(Content(), "");
}

TEST_F(Logger, AMessageOf2000CharactersMakesALineOf1024BytesWithTheWholeSuffix) {
    logger.LogInfo("ZELService", std::string(2000, 'm').c_str());
    const std::string content = Content();
    EXPECT_EQ(content.size(), 1024u);
    EXPECT_EQ(content.back(), '\n');
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, "INFO");
    EXPECT_EQ(lines[0].thread, GetCurrentThreadId());
    EXPECT_EQ(lines[0].message.find_first_not_of('m'), std::string::npos);
}

TEST_F(Logger, ALineOfExactlyTheLimitIsNotCut) {
    logger.LogInfo("ZELService", "");
    const size_t room = 1024 - Content().size();
    logger.LogInfo("ZELService", std::string(room, 'm').c_str());
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].message, std::string(room, 'm'));
    EXPECT_EQ(lines[1].text.size(), 1023u);
}

TEST_F(Logger, LineBreaksInAMessageAreRemoved) {
    logger.LogInfo("ZELService", "\r\none\r\ntwo\n\nthree\nfour\r");
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "onetwothreefour");
}

TEST_F(Logger, EveryLineIsOnDiskWhenItsCallReturns) {
    for (int i = 1; i <= 3; ++i) {
        logger.LogInfo("ZELService", "line");
        EXPECT_EQ(Lines().size(), static_cast<size_t>(i));
    }
}

TEST_F(Logger, ANewRunAppends) {
    logger.LogInfo("ZELService", "first");
    logger.CloseLog();
    ASSERT_TRUE(logger.OpenLog("zel", kLoggerPath, kLoggerFolder, kLoggerLimit, ZELLogger::kOneBackup));
    logger.LogInfo("ZELService", "second");
    ASSERT_EQ(Lines().size(), 2u);
    EXPECT_EQ(Lines()[0].message, "first");
}

TEST_F(Logger, CallsAfterTheCloseAreDropped) {
    logger.LogInfo("ZELService", "kept");
    logger.CloseLog();
    logger.LogInfo("ZELService", "dropped");
    logger.CloseLog();
    EXPECT_EQ(Lines().size(), 1u);
}

TEST_F(Logger, CallsBeforeTheOpenAreDropped) {
    ZELLogger closed;
    closed.LogError("ZELService", "dropped");
    EXPECT_EQ(Content(), "");
}

TEST_F(Logger, TellsTheDebuggerWhichFileIsOpen) {
    EXPECT_EQ(Pc().Records<winhost::DebugText>().back().text, "Log file is: C:\\Logs\\zel.log\n");
}

TEST_F(Logger, AFileThatCannotBeOpenedLeavesTheLogClosed) {
    ZELLogger other;
    EXPECT_FALSE(
        other.OpenLog("zel", "C:\\Absent\\zel.log", "C:\\Absent", kLoggerLimit, ZELLogger::kOneBackup));
    EXPECT_EQ(Pc().Records<winhost::DebugText>().back().text,
              "ERROR: Unable to open log file: C:\\Absent\\zel.log\n");
    other.LogInfo("ZELService", "dropped");
    EXPECT_FALSE(std::filesystem::exists(HostPath("C:\\Absent")));
}

TEST_F(Logger, AProcessWithoutAMutexEndsWithCode0) {
    EXPECT_EXIT(
        {
            Gate().FailNth("CreateMutexA", 1, ERROR_NOT_ENOUGH_MEMORY);
            ZELLogger doomed;
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(Logger, AThreadThatDiesWhileItLogsEndsTheProcessWithCode0) {
    EXPECT_EXIT(
        {
            Gate().FailNth("ReleaseMutex", 1, ERROR_NOT_OWNER);
            std::thread([this] { logger.LogInfo("ZELService", "last words"); }).join();
            logger.LogInfo("ZELService", "too late");
        },
        ::testing::ExitedWithCode(0), "");
    ASSERT_EQ(Lines().size(), 1u);
    EXPECT_EQ(Lines()[0].message, "last words");
}

TEST_F(Logger, AWaitThatFailsIsRepeated) {
    const uint64_t before = Gate().Count("WaitForSingleObject");
    Gate().FailNth("WaitForSingleObject", 1, ERROR_INVALID_HANDLE);
    logger.LogInfo("ZELService", "patient");
    EXPECT_EQ(Lines().size(), 1u);
    EXPECT_EQ(Gate().Count("WaitForSingleObject"), before + 2);
}

TEST_F(Logger, ALineThatMeetsTheCloseGoesToTheDebugger) {
    // The last call before the line waits for the file.
    Gate().Ask([this](const char* call, const void*) -> uint32_t {
        if (std::string(call) == "K32GetProcessMemoryInfo") logger.CloseLog();
        return 0;
    });
    logger.LogInfo("ZELService", "homeless");
    EXPECT_EQ(Content(), "");
    EXPECT_TRUE(std::regex_match(
        Pc().Records<winhost::DebugText>().back().text,
        std::regex(R"(\[\d+\]-\[ \d+ M \] INFO:  homeless \$\$<ZELService> <.*> <thread = .*>\n)")))
        << Pc().Records<winhost::DebugText>().back().text;
}

TEST_F(Logger, AFullDiskIsNoAffairOfTheCallers) {
    logger.CloseLog();
    FillDiskFor(kLoggerPath);
    ASSERT_TRUE(logger.OpenLog("zel", kLoggerPath, kLoggerFolder, kLoggerLimit, ZELLogger::kOneBackup));
    for (int line = 0; line < 3; ++line)
        logger.LogInfo("ZELService", "lost");
    logger.CloseLog();
    EXPECT_TRUE(std::filesystem::is_symlink(HostPath(kLoggerPath)));
}

TEST_F(Logger, ThreadsDoNotBreakEachOthersLines) {
    constexpr int kThreads = 4, kEach = 100;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i)
                logger.LogInfo("ZELService", (std::to_string(t) + " " + std::to_string(i)).c_str());
        });
    for (std::thread& thread : threads)
        thread.join();
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), size_t{kThreads * kEach});
    int next[kThreads] = {};
    for (const LogLine& line : lines) {
        const int thread = line.message.at(0) - '0';
        // The order of one thread's lines is the order of its calls.
        EXPECT_EQ(line.message, std::to_string(thread) + " " + std::to_string(next[thread]++));
    }
}

TEST_F(Logger, ThePlatformsFailuresCostNothingButTheirFact) {
    Gate().FailNth("K32GetProcessMemoryInfo", 1, ERROR_ACCESS_DENIED, true);
    Gate().FailNth("WideCharToMultiByte", 1, ERROR_INVALID_PARAMETER, true);
    logger.LogInfo("ZELService", "still there");
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "still there");
    EXPECT_NE(lines[0].text.find("-[ 0 M ]"), std::string::npos);
}
