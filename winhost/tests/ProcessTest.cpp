#include <psapi.h>
#include <stdlib.h>

#include <cerrno>

#include <unistd.h>

#include "winhost/tests/PcFixture.h"

namespace {

using ProcessTest = PcFixture;

TEST_F(ProcessTest, TheUserIsThatOfThePc) {
    SetUser("SYSTEM");
    char name[257] = "";
    DWORD size = 6;
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOf(GetUserNameA(name, &size)));
    EXPECT_EQ(size, 7u);
    EXPECT_TRUE(GetUserNameA(name, &size));
    EXPECT_STREQ(name, "SYSTEM");
    EXPECT_EQ(size, 7u);
}

TEST_F(ProcessTest, TheModuleIsWhereThePcSaysItIs) {
    StartPc([](auto& pc) { pc.modulePath = R"(C:\bin\ZELService.exe)"; });
    char path[MAX_PATH] = "";
    EXPECT_EQ(GetModuleFileNameA(nullptr, path, sizeof path), 21u);
    EXPECT_STREQ(path, R"(C:\bin\ZELService.exe)");
    EXPECT_EQ(GetModuleFileNameA(nullptr, path, 7), 7u) << "it is cut";
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_STREQ(path, R"(C:\bin)");
}

TEST_F(ProcessTest, EveryThreadHasAnIdOfItsOwn) {
    DWORD other = 0;
    std::thread([&] { other = GetCurrentThreadId(); }).join();
    EXPECT_NE(other, GetCurrentThreadId());
    EXPECT_EQ(GetCurrentProcessId(), static_cast<DWORD>(getpid()));
}

TEST_F(ProcessTest, TerminatingWhatIsNoThreadHasNoEffect) {
    int object = 0;
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(TerminateThread(&object, 0)));
}

TEST_F(ProcessTest, ExitEndsItWithItsCodeAtOnce) {
    EXPECT_EXIT(ExitProcess(3), testing::ExitedWithCode(3), "");
}

TEST_F(ProcessTest, DebugTextsAreKept) {
    OutputDebugStringA("Log file is: x\n");
    const auto texts = Records<winhost::DebugText>();
    ASSERT_EQ(1u, texts.size());
    EXPECT_EQ("Log file is: x\n", texts[0].text);
}

TEST_F(ProcessTest, TheBootModeIsAMetric) {
    StartPc([](auto& pc) { pc.cleanBoot = 2; });
    EXPECT_EQ(GetSystemMetrics(SM_CLEANBOOT), 2);
    EXPECT_EQ(GetSystemMetrics(999), 0) << "a metric that there isn't";
}

TEST_F(ProcessTest, TheEnvironmentIsThatOfThePcWhateverTheCase) {
    size_t needed = 1;
    char value[15] = "old";
    EXPECT_EQ(getenv_s(&needed, value, sizeof value, "PROGRAMDATA"), 0);
    EXPECT_EQ(needed, 0u) << "there is none";
    EXPECT_STREQ(value, "");
    StartPc([](auto& pc) { pc.environment["PROGRAMDATA"] = R"(C:\ProgramData)"; });
    EXPECT_EQ(getenv_s(&needed, nullptr, 0, "ProgramData"), 0);
    EXPECT_EQ(needed, 15u);
    EXPECT_EQ(getenv_s(&needed, value, sizeof value, "ProgramData"), 0);
    EXPECT_STREQ(value, R"(C:\ProgramData)");
    needed = 0;
    EXPECT_EQ(getenv_s(&needed, value, sizeof value - 1, "PROGRAMDATA"), ERANGE);
    EXPECT_EQ(needed, 15u);
    EXPECT_STREQ(value, "") << "what does not fit is not stored";
}

PROCESS_MEMORY_COUNTERS_EX MemoryCounters() {
    PROCESS_MEMORY_COUNTERS_EX counters{};
    EXPECT_TRUE(K32GetProcessMemoryInfo(
        GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof counters));
    return counters;
}

TEST_F(ProcessTest, PrivateUsageGrowsWithTheMemoryInUse) {
    const size_t before = MemoryCounters().PrivateUsage;
    constexpr size_t kSize = 64 << 20;
    const auto block = std::make_unique<char[]>(kSize);
    std::memset(block.get(), 1, kSize);
    // A figure serves for 10 ms.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    const auto after = MemoryCounters();
    EXPECT_GE(after.PrivateUsage, before + kSize);
    EXPECT_GE(after.WorkingSetSize, after.PrivateUsage);
}

TEST_F(ProcessTest, MemoryCountersNeedTheirRoomAndAreOfThisProcessAlone) {
    PROCESS_MEMORY_COUNTERS counters{};
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER,
              ErrorOf(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters - 1)));
    EXPECT_TRUE(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters));
    EXPECT_EQ(counters.cb, sizeof counters);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(K32GetProcessMemoryInfo(nullptr, &counters, sizeof counters)));
}

// The whole output of a command, and its exit code.
std::pair<std::string, int> OutputOf(const char* command) {
    FILE* pipe = _popen(command, "r");
    std::string output;
    char line[128];
    while (pipe && fgets(line, sizeof line, pipe))
        output += line;
    return {output, pipe ? _pclose(pipe) : -1};
}

TEST_F(ProcessTest, VerPrintsAnEmptyLineAndTheSystem) {
    StartPc([](auto& pc) { pc.osVersionLine = "Bob's Windows [Version %s 10.0]"; });
    EXPECT_EQ(OutputOf("ver"), std::make_pair(std::string("\nBob's Windows [Version %s 10.0]\n"), 0));
}

TEST_F(ProcessTest, OtherCommandsGoToTheShell) {
    EXPECT_EQ(OutputOf("echo a; exit 3"), std::make_pair(std::string("a\n"), 3));
}

TEST_F(ProcessTest, ACommandIsReadFromAlone) {
    EXPECT_EQ(nullptr, _popen("cat", "w"));
    EXPECT_EQ(EINVAL, errno);
}

}  // namespace
