// The trace file.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "runtime/software/Trace.h"

using namespace lux;

namespace {

class RuntimeTrace : public testing::Test {
  protected:
    void SetUp() override {
        std::string name = (std::filesystem::temp_directory_path() / "luxtrace.XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        path = (folder / "trace.log").string();
    }
    void TearDown() override { std::filesystem::remove_all(folder); }
    static std::string Content(const std::string& file) {
        std::ostringstream text;
        text << std::ifstream(file).rdbuf();
        return text.str();
    }

    std::filesystem::path folder;
    std::string path;
};

size_t LinesIn(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

TEST_F(RuntimeTrace, ALineHasTimeLevelScopeTextAndPlace) {
    luxrt::Trace trace(path.c_str());
    trace.TraceText("folder/File", 77, LUX_TRACE_WARNING, "Scope", "something happened");
    EXPECT_TRUE(std::regex_match(
        Content(path), std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} WARNING "
                                  "Scope: something happened "
                                  "\\(folder/File:77\\)\n")))
        << Content(path);
}

TEST_F(RuntimeTrace, LinesAreAddedToWhatIsThere) {
    std::ofstream(path) << "before\n";
    luxrt::Trace trace(path.c_str());
    trace.TraceText("File", 1, LUX_TRACE_ERROR, "Scope", "after");
    EXPECT_EQ(Content(path).find("before\n"), 0u);
    EXPECT_NE(Content(path).find(" ERROR   Scope: after"), std::string::npos);
}

TEST_F(RuntimeTrace, NullTextsAreEmpty) {
    luxrt::Trace trace(path.c_str());
    trace.TraceText(nullptr, 0, static_cast<LUXTraceLevel>(9), nullptr, nullptr);
    EXPECT_EQ(LinesIn(Content(path)), 1u);
}

TEST_F(RuntimeTrace, AFileThatReachesItsLimitIsMovedAside) {
    luxrt::Trace trace(path.c_str(), 300);
    for (int line = 0; line < 20; ++line) {
        trace.TraceText("File", line, LUX_TRACE_INFO, "Scope", "a line of a trace that grows");
    }
    EXPECT_LT(std::filesystem::exists(path) ? std::filesystem::file_size(path) : 0, 300u);
    EXPECT_GE(std::filesystem::file_size(path + ".1"), 300u);
    EXPECT_LT(std::filesystem::file_size(path + ".1"), 500u);
}

TEST_F(RuntimeTrace, OnlyTheWriterOfTheEnvironmentExists) {
    luxrt::Trace trace(path.c_str());
    EXPECT_EQ(trace.EnableWriter(L"File", false), LUX_OK);
    trace.TraceText("File", 1, LUX_TRACE_INFO, "Scope", "one");
    EXPECT_EQ(LinesIn(Content(path)), 1u);
    EXPECT_EQ(trace.EnableWriter(L"File", true), LUX_NOT_FOUND);
    EXPECT_EQ(trace.EnableWriter(nullptr, true), LUX_INVALID_POINTER);
    EXPECT_EQ(trace.EnableWriter(L"Environment", false), LUX_OK);
    trace.TraceText("File", 1, LUX_TRACE_INFO, "Scope", "two");
    EXPECT_EQ(LinesIn(Content(path)), 1u);
    EXPECT_EQ(trace.EnableWriter(L"Environment", true), LUX_OK);
    trace.TraceText("File", 1, LUX_TRACE_INFO, "Scope", "three");
    EXPECT_EQ(LinesIn(Content(path)), 2u);
}

TEST_F(RuntimeTrace, WithoutAPathLinesGoNowhere) {
    for (const char* none : {static_cast<const char*>(nullptr), ""}) {
        luxrt::Trace trace(none);
        EXPECT_EQ(trace.EnableWriter(L"Environment", true), LUX_OK);
        trace.TraceText("File", 1, LUX_TRACE_INFO, "Scope", "one");
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(RuntimeTrace, APathThatCannotBeOpenedDoesNoHarm) {
    luxrt::Trace trace((folder / "missing" / "trace.log").c_str());
    trace.TraceText("File", 1, LUX_TRACE_INFO, "Scope", "one");
    luxrt::Trace endless((std::string(5000, 'x')).c_str());
    endless.TraceText("File", 1, LUX_TRACE_INFO, "Scope", "one");
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(RuntimeTrace, LinesOfSeveralThreadsStayWhole) {
    luxrt::Trace trace(path.c_str());
    trace.EnableAsync(true);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int line = 0; line < 50; ++line) {
                trace.TraceText("File", line, LUX_TRACE_INFO, "Scope", "whole");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream lines(Content(path));
    size_t count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        EXPECT_TRUE(std::regex_search(line, std::regex(" INFO    Scope: whole \\(File:[0-9]+\\)$"))) << line;
    }
    EXPECT_EQ(count, 200u);
}

TEST_F(RuntimeTrace, EveryResultAndFormatHasAName) {
    luxrt::Trace trace(nullptr);
    EXPECT_STREQ(trace.GetResultText(LUX_OK), "LUX_OK");
    EXPECT_STREQ(trace.GetResultText(LUX_INPUT_FULL), "LUX_INPUT_FULL");
    EXPECT_STREQ(trace.GetResultText(static_cast<LUX_RESULT>(999)), "unknown result");
    for (int result = LUX_OK; result <= LUX_VERSION_TOO_OLD; ++result) {
        EXPECT_EQ(std::string(trace.GetResultText(static_cast<LUX_RESULT>(result))).find("LUX_"), 0u)
            << result;
    }
    EXPECT_STREQ(trace.GetSurfaceFormatName(LUX_SURFACE_NV12), "NV12");
    EXPECT_STREQ(trace.GetSurfaceFormatName(LUX_SURFACE_BGRA), "BGRA");
    EXPECT_STREQ(trace.GetSurfaceFormatName(static_cast<LUXSurfaceFormat>(99)), "unknown format");
}
