// The C runtime's local time on the PC.
#include <time.h>

#include <cerrno>

#include "winhost/tests/PcFixture.h"
#include "winhost/tests/PcTime.h"

namespace {

constexpr time_t kMoment = 1794587006;  // Fri 13 Nov 2026 16:23:26 UTC

class LocalTimeTest : public PcFixture {
  protected:
    void LiveAt(int32_t bias) {
        StartPc([&](auto& pc) { pc.timeZoneBiasMinutes = bias; });
    }
    static struct tm Local(time_t time = kMoment) {
        struct tm local {};
        EXPECT_EQ(0, localtime_s(&local, &time));
        return local;
    }
    static std::string Formatted(const char* format) {
        const struct tm local = Local();
        char text[64];
        const size_t length = strftime(text, sizeof text, format, &local);
        return {text, length};
    }
};

TEST_F(LocalTimeTest, FollowsTheZoneOfThePc) {
    LiveAt(-60);
    EXPECT_EQ("2026-11-13 17:23:26 +0100", Formatted("%Y-%m-%d %H:%M:%S %z"));
    LiveAt(330);
    EXPECT_EQ("2026-11-13 10:53:26 -0530", Formatted("%Y-%m-%d %H:%M:%S %z"));
    LiveAt(-345);
    EXPECT_EQ("2026-11-13 22:08:26 +0545", Formatted("%Y-%m-%d %H:%M:%S %z"));
    LiveAt(0);
    EXPECT_EQ("+0000", Formatted("%z"));
}

TEST_F(LocalTimeTest, KeepsTheFirstZoneUntilTheProcessSetsItAnew) {
    LiveAt(0);
    EXPECT_EQ(16, Local().tm_hour);
    Change([](auto& pc) {
        pc.timeZoneBiasMinutes = -540;
        pc.timeZoneName = "Tokyo Standard Time";
    });
    EXPECT_EQ("2026-11-13 16 +0000 W. Europe Standard Time", Formatted("%Y-%m-%d %H %z %Z"));
    _tzset();
    EXPECT_EQ("2026-11-14 01 +0900 Tokyo Standard Time", Formatted("%Y-%m-%d %H %z %Z"));
}

TEST_F(LocalTimeTest, TakesTheZoneAtTheFirstConversionAndNotBefore) {
    LiveAt(0);
    Change([](auto& pc) { pc.timeZoneBiasMinutes = -540; });
    EXPECT_EQ(1, Local().tm_hour);
}

TEST_F(LocalTimeTest, HasSummerTime) {
    StartPc(LiveInWesternEurope);
    const struct tm summer = Local(1782864000);  // Wed 1 Jul 2026 00:00 UTC
    EXPECT_EQ(2, summer.tm_hour);
    EXPECT_EQ(1, summer.tm_isdst);
    const struct tm winter = Local();
    EXPECT_EQ(17, winter.tm_hour);
    EXPECT_EQ(0, winter.tm_isdst);
}

TEST_F(LocalTimeTest, HasUtcBesideIt) {
    LiveAt(-345);
    const time_t time = kMoment;
    struct tm utc {};
    EXPECT_EQ(0, gmtime_s(&utc, &time));
    EXPECT_EQ(16, utc.tm_hour);
    EXPECT_EQ(23, utc.tm_min);
    EXPECT_EQ(0, utc.tm_gmtoff);
    EXPECT_EQ(EINVAL, gmtime_s(&utc, nullptr));
}

TEST_F(LocalTimeTest, DoesNotFollowTheMachine) {
    setenv("TZ", "America/New_York", 1);
    tzset();
    LiveAt(-60);
    EXPECT_EQ("17:23 +0100", Formatted("%H:%M %z"));
    unsetenv("TZ");
    tzset();
}

TEST_F(LocalTimeTest, RefusesWhatNoLocalTimeHas) {
    time_t time = -1;
    struct tm local {};
    EXPECT_EQ(EINVAL, localtime_s(&local, &time));
    EXPECT_EQ(-1, local.tm_hour);
    EXPECT_EQ(EINVAL, localtime_s(&local, nullptr));
    EXPECT_EQ(EINVAL, localtime_s(nullptr, &time));
    time = 32'535'216'000;
    EXPECT_EQ(EINVAL, localtime_s(&local, &time)) << "after the year 3000";
}

TEST_F(LocalTimeTest, HasATextOf26Characters) {
    LiveAt(0);
    const struct tm local = Local(1709338085);  // Sat 2 Mar 2024 00:08:05 UTC
    char text[26];
    ASSERT_EQ(0, asctime_s(text, sizeof text, &local));
    EXPECT_STREQ("Sat Mar 02 00:08:05 2024\n", text);
    EXPECT_EQ(EINVAL, asctime_s(text, sizeof text - 1, &local));
    EXPECT_STREQ("", text);
    EXPECT_EQ(EINVAL, asctime_s(nullptr, sizeof text, &local));
    struct tm wrong = local;
    wrong.tm_mon = 12;
    EXPECT_EQ(EINVAL, asctime_s(text, sizeof text, &wrong));
    EXPECT_EQ(EINVAL, asctime_s(text, sizeof text, nullptr));
}

TEST_F(LocalTimeTest, TheTimeIsThatOfThePcsClock) {
    winhost::Clock& clock = Clock();
    clock.SetManual(true);
    __time64_t first = 0;
    const __time64_t answer = _time64(&first);
    EXPECT_EQ(answer, first);
    clock.Advance(std::chrono::hours(1));
    EXPECT_EQ(first + 3600, _time64(nullptr));
    clock.SetWallOffset(std::chrono::hours(-1));
    EXPECT_EQ(first, _time64(nullptr)) << "set back by an hour";
}

}  // namespace
