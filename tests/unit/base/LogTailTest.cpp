// How a test follows the service's log.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "tests/support/PcFixture.h"
#include "tests/support/ServiceLog.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class Tail : public PcFixture {
  protected:
    void Write(const std::string& text) {
        std::ofstream(File(), std::ios::binary | std::ios::app) << text << std::flush;
    }
    fs::path File() const { return Folder() / "log"; }
    std::string Texts(LogTail& tail) {
        std::string texts;
        for (const LogLine& line : tail.All())
            texts += line.text + ";";
        return texts;
    }
    static auto HasLines(size_t count) {
        return [count](const LogTail::Lines& lines) { return lines.size() >= count; };
    }
};

}  // namespace

TEST_F(Tail, HoldsTheCompleteLinesOfAFileThatGrows) {
    LogTail tail(File());
    EXPECT_EQ(Texts(tail), "");
    Write("a\nb");
    EXPECT_EQ(Texts(tail), "a;");
    Write("c\n" + std::string(70000, 'd') + "\n");
    EXPECT_EQ(Texts(tail), "a;bc;" + std::string(70000, 'd') + ";");
}

TEST_F(Tail, BeginsAnewWithTheFile) {
    LogTail tail(File());
    Write("first\nsecond\n");
    EXPECT_EQ(Texts(tail), "first;second;");
    fs::rename(File(), Folder() / "moved");
    Write("a line that is longer than both\n");
    EXPECT_EQ(Texts(tail), "a line that is longer than both;");
    fs::resize_file(File(), 0);
    Write("short\n");
    EXPECT_EQ(Texts(tail), "short;");
    fs::remove(File());
    EXPECT_EQ(Texts(tail), "");
}

TEST_F(Tail, IsWokenByALine) {
    LogTail tail(File());
    std::thread writer([this] {
        for (int line = 0; line < 3; ++line)
            Write("line\n");
    });
    EXPECT_TRUE(tail.Await(HasLines(3), kPatience));
    writer.join();
    EXPECT_FALSE(tail.Await(HasLines(4), 50ms));
}

TEST_F(Tail, AwaitsALogWhoseFolderIsNotThereYet) {
    LogTail tail(Folder() / "later" / "log");
    std::thread writer([this] {
        fs::create_directory(Folder() / "later");
        std::ofstream(Folder() / "later" / "log") << "line\n";
    });
    EXPECT_TRUE(tail.Await(HasLines(1), kPatience));
    writer.join();
}
