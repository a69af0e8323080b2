// The service's log as pages follow it.
#include "firmware/web/LogFollower.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "testbed/Json.h"

namespace mpm::web::test {
namespace {

class LogFollowerTest : public testing::Test {
  protected:
    LogFollowerTest() {
        std::string folder = testing::TempDir() + "log-XXXXXX";
        m_folder = mkdtemp(folder.data());
        m_path = m_folder / "zel.log";
        m_follower.emplace(m_path.string());
    }
    ~LogFollowerTest() override { std::filesystem::remove_all(m_folder); }

    void Write(const std::string& text, std::ios::openmode mode = std::ios::app) const {
        std::ofstream(m_path, std::ios::binary | mode) << text;
    }
    std::vector<std::string> Texts() {
        std::vector<std::string> texts;
        for (const LogLine& line : m_follower->Poll())
            texts.push_back(line.text);
        return texts;
    }

    using Lines = std::vector<std::string>;
    std::filesystem::path m_folder, m_path;
    std::optional<LogFollower> m_follower;
};

// A line of the log at this time of a PC whose clock is so far ahead of UTC.
std::string LineAt(std::chrono::system_clock::time_point time, std::chrono::minutes ahead) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time + ahead);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char stamp[64];
    std::strftime(stamp, sizeof stamp, "%a  %b %d %H:%M:%S.0 %Y", &parts);
    return std::string("[7]-[ 3 M ] INFO:  text $$<tag> <") + stamp + " Some Time> <thread = 1 (0x1)>\n";
}

}  // namespace

TEST(LogLineTest, HasItsLevelItsTextAndItsTime) {
    const LogLine line = LogLine::Parse(
        "[4711]-[ 12 M ] ERROR: recv() $$<x> failed $$<ZELService> <Fri  Nov 13 17:23:26.5 2026 W. Europe "
        "Standard Time> <thread = 9 (0x9)>");
    EXPECT_EQ(line.level, "ERROR");
    EXPECT_EQ(line.text, "recv() $$<x> failed");
    EXPECT_EQ(line.tag, "ZELService");
    EXPECT_EQ(line.stamp, std::chrono::milliseconds(1794590606005));
}

TEST(LogLineTest, WhatIsNoLineOfTheLogIsItsText) {
    for (const char* text :
         {"", "[", "[1]-[ 2 M ] ", "[1]-[ 2 M ] FATAL: x", "INFO", "a text", "[1]-[ 2 M ]INFO: x"}) {
        const LogLine line = LogLine::Parse(text);
        EXPECT_EQ(line.level, "") << text;
        EXPECT_EQ(line.text, text);
    }
}

TEST(LogLineTest, ALineWithoutAValidTimeHasNone) {
    for (const char* stamp : {"", "Fri  Nov 31 10:00:00.0 2026 Z", "Fri  Nev 13 10:00:00.0 2026 Z",
                              "Fri  Nov 13 25:00:00.0 2026 Z", "Fri  ovD 13 10:00:00.0 2026 Z"})
        EXPECT_FALSE(
            LogLine::Parse(std::string("[1]-[ 2 M ] INFO:  x $$<t> <") + stamp + "> <thread = 1>").stamp)
            << stamp;
}

TEST(LogLineTest, ItsJsonIsAsciiWhateverItHolds) {
    const std::string json = LogLine::Parse("[1]-[ 2 M ] WARN:  \x81\xff\n\x01 \"\\ $$<t> <> <>").ToJson(3);
    for (const char c : json)
        EXPECT_TRUE(c >= ' ' && c <= '~') << int(c);
    EXPECT_EQ(testbed::ParseObject(json)["serial"], 3);
}

TEST_F(LogFollowerTest, FollowsAFileThatComesLater) {
    EXPECT_EQ(Texts(), Lines());
    Write("one\ntwo\nthr");
    EXPECT_EQ(Texts(), (Lines{"one", "two"}));
    Write("ee\n");
    EXPECT_EQ(Texts(), Lines{"three"});
    EXPECT_EQ(Texts(), Lines());
}

TEST_F(LogFollowerTest, BeginsAnewInATruncatedFile) {
    Write("a long first line\n");
    Texts();
    Write("new\n", std::ios::trunc);
    EXPECT_EQ(Texts(), Lines{"new"});
}

TEST_F(LogFollowerTest, GoesOnInAReplacedFileWhenItHasReadTheOldOne) {
    Write("one\n");
    Texts();
    Write("two\n");
    std::filesystem::rename(m_path, m_folder / "zel.old");
    Write("three\n");
    EXPECT_EQ(Texts(), Lines{"two"});
    EXPECT_EQ(Texts(), Lines{"three"});
}

TEST_F(LogFollowerTest, BeginsWithTheNewestLinesOfALargeFile) {
    std::ofstream file(m_path, std::ios::binary);
    for (int i = 0; i < 400'000; ++i)
        file << i << " is a line of a log that has grown for long\n";
    file.close();
    const Lines lines = Texts();
    EXPECT_LE(lines.size() * 48, LogFollower::kMostBehind);
    EXPECT_GT(lines.size(), 20'000u);
    EXPECT_EQ(lines.front().find(" is a line"), 6u);
    EXPECT_EQ(lines.back(), "399999 is a line of a log that has grown for long");
}

TEST_F(LogFollowerTest, SaysWhatItPassesOver) {
    Write("one\n");
    Texts();
    Write(std::string(3u << 20, 'x') + "\nlast\n");
    const Lines lines = Texts();
    EXPECT_EQ(lines, (Lines{"(1048582 bytes of the log are not shown)", "last"}));
}

TEST_F(LogFollowerTest, CutsALineThatIsTooLong) {
    Write(std::string(100'000, 'x') + "\nnext\n");
    EXPECT_EQ(Texts(), (Lines{std::string(LogFollower::kLongestLine, 'x'), "next"}));
}

TEST_F(LogFollowerTest, TurnsThePcsLocalTimeIntoUtc) {
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    for (const int minutes : {0, 60, -480, 345, -210}) {
        std::filesystem::remove(m_path);
        m_follower.emplace(m_path.string());
        Write(LineAt(now, std::chrono::minutes(minutes)));
        const auto lines = m_follower->Poll();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].time, now) << minutes;
    }
}

TEST_F(LogFollowerTest, FollowsNothingButAFile) {
    std::filesystem::create_directory(m_path);
    EXPECT_EQ(Texts(), Lines());
}

}  // namespace mpm::web::test
