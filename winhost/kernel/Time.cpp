// Readings of the PC's clock, its time zone, and the resolution that programs ask of its timer.
#include <chrono>
#include <type_traits>

#include <mmsystem.h>
#include <winbase.h>

#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/core/WideText.h"
#include "winhost/kernel/ZoneRules.h"
#include "winhost/pc/Pc.h"

using winhost::Clock;
using winhost::Pc;

namespace {

// A transition in the form of TIME_ZONE_INFORMATION: wDay is the week of the month.
SYSTEMTIME TransitionDate(const winhost::ZoneTransition& transition) {
    SYSTEMTIME date{};
    date.wMonth = static_cast<WORD>(transition.month);
    date.wDay = static_cast<WORD>(transition.week);
    date.wDayOfWeek = static_cast<WORD>(transition.weekday);
    date.wHour = static_cast<WORD>(transition.hour);
    return date;
}

struct Zone {
    winhost::ZoneRules rules;
    TIME_ZONE_INFORMATION information;
};

Zone ZoneOf(const winhost::PcDescription& pc) {
    Zone zone{winhost::RulesOf(pc), {}};
    TIME_ZONE_INFORMATION& information = zone.information;
    information.Bias = pc.timeZoneBiasMinutes;
    if (zone.rules.HasSummerTime()) {
        information.DaylightBias = zone.rules.daylightBiasMinutes;
        information.DaylightDate = TransitionDate(zone.rules.daylightStart);
        information.StandardDate = TransitionDate(zone.rules.standardStart);
    }
    winhost::PutWide(information.StandardName, pc.timeZoneName);
    winhost::PutWide(information.DaylightName, pc.timeZoneName);
    return zone;
}

// Each line of a log asks for it: a thread keeps the answer until the description changes. The main thread
// asks also while the process ends, when only those of its thread_locals are left that need no destructor.
const Zone& LocalZone() {
    static_assert(std::is_trivially_destructible_v<Zone>);
    thread_local uint64_t revision = 0;
    thread_local Zone zone{};
    const Pc& pc = Pc::Instance();
    // Read first: a change that comes between is noticed by the next call.
    if (const uint64_t now = pc.Revision(); now != revision) {
        zone = pc.Get(ZoneOf);
        revision = now;
    }
    return zone;
}

SYSTEMTIME FromFileTime(uint64_t fileTime) {
    using namespace std::chrono;
    using Ticks = duration<int64_t, std::ratio<1, 10'000'000>>;
    const auto sinceMidnight1601 = Ticks(static_cast<int64_t>(fileTime));
    const auto days = floor<std::chrono::days>(sinceMidnight1601);
    const sys_days date = sys_days(year(1601) / 1 / 1) + days;
    const year_month_day ymd(date);
    const hh_mm_ss time(duration_cast<milliseconds>(sinceMidnight1601 - days));
    SYSTEMTIME result{};
    result.wYear = static_cast<WORD>(static_cast<int>(ymd.year()));
    result.wMonth = static_cast<WORD>(static_cast<unsigned>(ymd.month()));
    result.wDay = static_cast<WORD>(static_cast<unsigned>(ymd.day()));
    result.wDayOfWeek = static_cast<WORD>(weekday(date).c_encoding());
    result.wHour = static_cast<WORD>(time.hours().count());
    result.wMinute = static_cast<WORD>(time.minutes().count());
    result.wSecond = static_cast<WORD>(time.seconds().count());
    result.wMilliseconds = static_cast<WORD>(time.subseconds().count());
    return result;
}

}  // namespace

void GetLocalTime(LPSYSTEMTIME time) {
    WINHOST_CALL("GetLocalTime");
    const uint64_t now = Clock::Instance().FileTime();
    const int64_t secondsEast = LocalZone().rules.SecondsEast(Clock::UnixTimeOf(now));
    *time = FromFileTime(now + static_cast<uint64_t>(secondsEast * Clock::kTicksPerSecond));
}

void GetSystemTimeAsFileTime(LPFILETIME time) {
    WINHOST_GATE_PASS("GetSystemTimeAsFileTime");
    const uint64_t now = Clock::Instance().FileTime();
    *time = {static_cast<DWORD>(now), static_cast<DWORD>(now >> 32)};
}

BOOL QueryPerformanceCounter(LARGE_INTEGER* count) {
    WINHOST_GATE("QueryPerformanceCounter", FALSE);
    count->QuadPart = Clock::Instance().Steady().count() / 100;
    return TRUE;
}

BOOL QueryPerformanceFrequency(LARGE_INTEGER* perSecond) {
    WINHOST_GATE("QueryPerformanceFrequency", FALSE);
    perSecond->QuadPart = 10'000'000;
    return TRUE;
}

DWORD GetTimeZoneInformation(LPTIME_ZONE_INFORMATION zone) {
    WINHOST_GATE("GetTimeZoneInformation", TIME_ZONE_ID_INVALID);
    const Zone& local = LocalZone();
    *zone = local.information;
    if (!local.rules.HasSummerTime()) return TIME_ZONE_ID_UNKNOWN;
    return local.rules.IsSummer(Clock::Instance().UnixTime()) ? TIME_ZONE_ID_DAYLIGHT : TIME_ZONE_ID_STANDARD;
}

MMRESULT timeBeginPeriod(UINT uPeriod) {
    WINHOST_GATE_CODE("timeBeginPeriod");
    const bool taken = uPeriod != 0 && uPeriod >= Pc::Instance().Get(&winhost::PcDescription::timerPeriod);
    return taken ? TIMERR_NOERROR : TIMERR_NOCANDO;
}
