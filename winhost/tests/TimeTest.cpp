#include <mmsystem.h>

#include <cstdio>

#include "winhost/tests/PcFixture.h"
#include "winhost/tests/PcTime.h"

using namespace std::chrono_literals;

namespace {

class TimeTest : public PcFixture {
  protected:
    static std::string Text(const SYSTEMTIME& time) {
        char text[64];
        std::snprintf(text, sizeof text, "day %u, %u-%02u-%02u %02u:%02u:%02u", time.wDayOfWeek, time.wYear,
                      time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond);
        return text;
    }
    static std::wstring ZoneName() {
        TIME_ZONE_INFORMATION zone{};
        GetTimeZoneInformation(&zone);
        return zone.StandardName;
    }
    static SYSTEMTIME LocalTimeAt(std::chrono::milliseconds utc) {
        StopClockAt(utc);
        SYSTEMTIME time{};
        GetLocalTime(&time);
        return time;
    }
};

TEST_F(TimeTest, TheLocalTimeIsUtcLessTheBias) {
    StartPc([](auto& pc) { pc.timeZoneBiasMinutes = -60; });
    const SYSTEMTIME time = LocalTimeAt(1794587006512ms);  // Fri 13 Nov 2026 16:23:26.512 UTC
    EXPECT_EQ("day 5, 2026-11-13 17:23:26", Text(time));
    EXPECT_NEAR(time.wMilliseconds, 512, 1);
    // Its date turns at the local midnight.
    StartPc([](auto& pc) { pc.timeZoneBiasMinutes = 330; });
    EXPECT_EQ("day 4, 2024-02-29 18:30:00", Text(LocalTimeAt(1709251200000ms)));  // Fri 1 Mar 2024 00:00 UTC
}

TEST_F(TimeTest, TheZoneIsThatOfThePc) {
    StartPc([](auto& pc) {
        pc.timeZoneName = "W. Europe Standard Time";
        pc.timeZoneBiasMinutes = -60;
    });
    TIME_ZONE_INFORMATION zone{};
    EXPECT_EQ(GetTimeZoneInformation(&zone), static_cast<DWORD>(TIME_ZONE_ID_UNKNOWN));
    EXPECT_EQ(zone.Bias, -60);
    EXPECT_EQ(std::wstring(zone.StandardName), L"W. Europe Standard Time");
}

TEST_F(TimeTest, AChangedZoneIsSeenAtOnceWithItsNameCutToTheField) {
    EXPECT_EQ(ZoneName(), L"W. Europe Standard Time");
    Change([](auto& pc) { pc.timeZoneName = "Tokyo Standard Time"; });
    EXPECT_EQ(ZoneName(), L"Tokyo Standard Time");
    Change([](auto& pc) { pc.timeZoneName = std::string(50, 'x'); });
    EXPECT_EQ(ZoneName(), std::wstring(31, L'x'));
}

TEST_F(TimeTest, SummerTimeBeginsAndEndsAtItsTransitions) {
    StartPc(LiveInWesternEurope);
    const auto at = [](std::chrono::seconds utc) {
        const WORD hour = LocalTimeAt(utc + 500ms).wHour;
        TIME_ZONE_INFORMATION zone{};
        const DWORD which = GetTimeZoneInformation(&zone);
        EXPECT_EQ(zone.Bias, -60);
        EXPECT_EQ(zone.DaylightBias, -60);
        EXPECT_EQ(zone.DaylightDate.wMonth, 3);
        EXPECT_EQ(zone.DaylightDate.wDay, 5);
        EXPECT_EQ(zone.StandardDate.wHour, 3);
        return std::pair(which, hour);
    };
    using Answer = std::pair<DWORD, WORD>;
    EXPECT_EQ(at(1774745999s), (Answer{TIME_ZONE_ID_STANDARD, 1}));  // Sun 29 Mar 2026 00:59:59 UTC
    EXPECT_EQ(at(1774746000s), (Answer{TIME_ZONE_ID_DAYLIGHT, 3}));
    EXPECT_EQ(at(1792889999s), (Answer{TIME_ZONE_ID_DAYLIGHT, 2}));  // Sun 25 Oct 2026 00:59:59 UTC
    EXPECT_EQ(at(1792890000s), (Answer{TIME_ZONE_ID_STANDARD, 2}));
}

TEST_F(TimeTest, InTheSouthTheSummerSpansTheTurnOfTheYear) {
    StartPc([](auto& pc) {
        pc.timeZoneBiasMinutes = -600;
        pc.timeZoneDaylightBiasMinutes = -60;
        pc.timeZoneDaylightStart = {10, 1, 0, 2};
        pc.timeZoneStandardStart = {4, 1, 0, 3};
    });
    const auto hour = [](std::chrono::seconds utc) { return LocalTimeAt(utc + 500ms).wHour; };
    EXPECT_EQ(hour(1798761600s), 11);  // Fri 1 Jan 2027 00:00 UTC
    EXPECT_EQ(hour(1782864000s), 10);  // Wed 1 Jul 2026 00:00 UTC
    EXPECT_EQ(hour(1775318399s), 2);   // Sat 4 Apr 2026 15:59:59 UTC, the last second of summer time
    EXPECT_EQ(hour(1775318400s), 2);
}

TEST_F(TimeTest, TheFileTimeIsTheClocks) {
    StopClockAt(1s);
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    const uint64_t ticks = static_cast<uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    EXPECT_EQ(ticks, Clock().FileTime());
    EXPECT_NEAR(static_cast<double>(ticks), 116444736010000000.0, 100.0);
}

TEST_F(TimeTest, ThePcHasALowestTimerPeriod) {
    StartPc([](auto& pc) { pc.timerPeriod = 3; });
    for (const UINT period : {0u, 1u, 2u})
        EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeBeginPeriod(period));
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeBeginPeriod(3));
}

}  // namespace
