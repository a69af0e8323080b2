// What a call of LogInfo and its kin becomes.
#include "base/Log.h"

#include "tests/support/ServiceFixture.h"

namespace {

class LogFront : public ServiceFixture {
  protected:
    std::string Last() { return Messages().back(); }
};

}  // namespace

TEST_F(LogFront, NumbersHaveTheSizesThatTheirConversionsHaveOnWindows) {
    LogInfo("%lu %ld %d %u %x", uint64_t{1} << 32 | 5, int64_t{-7}, -1, -1, int8_t{-1});
    EXPECT_EQ(Last(), "5 -7 -1 4294967295 ffffffff");
    LogInfo("%llu %I64x %lld %zu", ~uint64_t{0}, uint64_t{0x1234567890ab}, int64_t{-5}, size_t{6});
    EXPECT_EQ(Last(), "18446744073709551615 1234567890ab -5 6");
    LogInfo("%02d|%.2X|%hhx|100%%", 3, 0xB, 0x1FF);
    EXPECT_EQ(Last(), "03|0B|ff|100%");
}

TEST_F(LogFront, LeadingZerosCountTheSignAndDigitsDoNot) {
    LogInfo("%03d|%03d|%.3d|%.3i", 5, -5, -5, 1234);
    EXPECT_EQ(Last(), "005|-05|-005|1234");
    LogInfo("%08x|%016llX|%.2X|%X", 0xBEEF, uint64_t{0xABCDEF}, 0x1234, 0);
    EXPECT_EQ(Last(), "0000beef|0000000000ABCDEF|1234|0");
}

TEST_F(LogFront, TheSmallestAndLargestNumbersAreWhole) {
    LogInfo("%lld %lld %llu", INT64_MIN, INT64_MAX, UINT64_MAX);
    EXPECT_EQ(Last(), "-9223372036854775808 9223372036854775807 18446744073709551615");
    LogInfo("%hhd %hd %d %hhu", 0x80, 0x8000, 0x80000000u, -1);
    EXPECT_EQ(Last(), "-128 -32768 -2147483648 255");
}

TEST_F(LogFront, PointersHaveSixteenDigits) {
    const int* const none = nullptr;
    LogInfo("%p and %p", none, reinterpret_cast<const void*>(uintptr_t{0x1234567890AB}));
    EXPECT_EQ(Last(), "0000000000000000 and 00001234567890AB");
}

TEST_F(LogFront, TextsComeAsPointersOrStrings) {
    const char* none = nullptr;
    LogInfo("%s %s %s", "a", std::string("b"), none);
    EXPECT_EQ(Last(), "a b (null)");
}

TEST_F(LogFront, ATextEndsAtItsFirstNul) {
    LogInfo("%s|%s", std::string("a\0b", 3), "c");
    EXPECT_EQ(Last(), "a|c");
}

TEST_F(LogFront, LongTextsAreCut) {
    LogWarn("%s", std::string(5000, 'x'));
    EXPECT_EQ(Log().back().text.size(), 1023u);
    EXPECT_EQ(Log().back().level, "WARN");
}

TEST_F(LogFront, AnEmptyTextIsALine) {
    LogInfo("before");
    LogInfo("%s", "");
    EXPECT_EQ(Last(), "");
}

TEST_F(LogFront, DebugAndTraceNeverReachTheFile) {
    const size_t lines = Log().size();
    LogDebug("%s", "a");
    LogTrace("%s", "b");
    EXPECT_EQ(Log().size(), lines);
}

TEST_F(LogFront, ALineKeepsTheLastError) {
    SetLastError(1234);
    // A call that fails while the line is assembled leaves an error of its own.
    Gate().FailNth("K32GetProcessMemoryInfo", 1, ERROR_ACCESS_DENIED);
    LogInfo("x");
    LogDebug("x");
    EXPECT_EQ(GetLastError(), 1234u);
}
