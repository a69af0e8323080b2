#include <windows.h>
#include <psapi.h>
#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <thread>

#include <unistd.h>

#include "winhost/tests/PcFixture.h"

namespace {

using ProcessTest = PcFixture;

TEST_F(ProcessTest, TheUserIsThatOfThePc) {
    StartPc([](auto& pc) { pc.userName = "SYSTEM"; });
    char name[257] = "";
    DWORD size = sizeof name;
    EXPECT_TRUE(GetUserNameA(name, &size));
    EXPECT_STREQ(name, "SYSTEM");
    EXPECT_EQ(size, 7u);
}

TEST_F(ProcessTest, AUserNameThatDoesNotFitTellsItsSize) {
    char name[6] = "";
    DWORD size = sizeof name;
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOf(GetUserNameA(name, &size)));
    EXPECT_EQ(size, 7u);
}

TEST_F(ProcessTest, TheModuleIsWhereThePcSaysItIs) {
    StartPc([](auto& pc) { pc.modulePath = R"(C:\Program Files\bin\ZELService.exe)"; });
    char path[MAX_PATH] = "";
    EXPECT_EQ(GetModuleFileNameA(nullptr, path, sizeof path), 35u);
    EXPECT_STREQ(path, R"(C:\Program Files\bin\ZELService.exe)");
}

TEST_F(ProcessTest, AModulePathThatDoesNotFitIsCut) {
    StartPc([](auto& pc) { pc.modulePath = R"(C:\bin\ZELService.exe)"; });
    char path[7];
    EXPECT_EQ(GetModuleFileNameA(nullptr, path, sizeof path), 7u);
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
    const auto texts = winhost::Pc::Instance().Records<winhost::DebugText>();
    ASSERT_EQ(1u, texts.size());
    EXPECT_EQ("Log file is: x\n", texts[0].text);
}

TEST_F(ProcessTest, TheBootModeIsAMetric) {
    StartPc([](auto& pc) { pc.cleanBoot = 2; });
    EXPECT_EQ(GetSystemMetrics(SM_CLEANBOOT), 2);
    EXPECT_EQ(GetSystemMetrics(999), 0) << "a metric that there isn't";
}

TEST_F(ProcessTest, TheEnvironmentIsThatOfThePcWhateverTheCase) {
    StartPc([](auto& pc) { pc.environment["PROGRAMDATA"] = R"(C:\ProgramData)"; });
    size_t needed = 0;
    EXPECT_EQ(getenv_s(&needed, nullptr, 0, "ProgramData"), 0);
    EXPECT_EQ(needed, 15u);
    char value[15] = "";
    EXPECT_EQ(getenv_s(&needed, value, sizeof value, "ProgramData"), 0);
    EXPECT_STREQ(value, R"(C:\ProgramData)");
}

TEST_F(ProcessTest, AVariableThatDoesNotFitIsNotStored) {
    StartPc([](auto& pc) { pc.environment["PROGRAMDATA"] = R"(C:\ProgramData)"; });
    size_t needed = 0;
    char value[14] = "old";
    EXPECT_EQ(getenv_s(&needed, value, sizeof value, "PROGRAMDATA"), ERANGE);
    EXPECT_EQ(needed, 15u);
    EXPECT_STREQ(value, "");
}

TEST_F(ProcessTest, AnAbsentVariableNeedsNoRoom) {
    size_t needed = 1;
    char value[4] = "old";
    EXPECT_EQ(getenv_s(&needed, value, sizeof value, "PROGRAMDATA"), 0);
    EXPECT_EQ(needed, 0u);
    EXPECT_STREQ(value, "");
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

TEST_F(ProcessTest, MemoryCountersNeedTheirRoom) {
    PROCESS_MEMORY_COUNTERS counters{};
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER,
              ErrorOf(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters - 1)));
    EXPECT_TRUE(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters));
    EXPECT_EQ(counters.cb, sizeof counters);
}

TEST_F(ProcessTest, MemoryCountersAreOfThisProcessAlone) {
    PROCESS_MEMORY_COUNTERS counters{};
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
