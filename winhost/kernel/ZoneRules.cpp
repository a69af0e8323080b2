#include "winhost/kernel/ZoneRules.h"

#include <chrono>

namespace winhost {
namespace {

constexpr int64_t kSecondsPerMinute = 60;
constexpr uint32_t kLastWeek = 5;

// The transition of a year, by the clock on the wall before it.
int64_t WallTime(std::chrono::year year, const ZoneTransition& transition) {
    using namespace std::chrono;
    const year_month month = year / std::chrono::month(transition.month);
    const weekday day(transition.weekday);
    const sys_days date =
        transition.week == kLastWeek ? sys_days(month / day[last]) : sys_days(month / day[transition.week]);
    return seconds(date.time_since_epoch() + hours(transition.hour)).count();
}

}  // namespace

bool ZoneRules::HasSummerTime() const {
    return daylightBiasMinutes != 0 && daylightStart.month != 0 && standardStart.month != 0;
}

bool ZoneRules::IsSummer(int64_t time) const {
    using namespace std::chrono;
    if (!HasSummerTime()) return false;
    const int64_t winterTime = time - biasMinutes * kSecondsPerMinute;
    const auto today = floor<days>(sys_seconds(seconds(winterTime)));
    const year year = year_month_day(today).year();
    const int64_t begin = WallTime(year, daylightStart);
    // The wall shows summer time until then.
    const int64_t end = WallTime(year, standardStart) + daylightBiasMinutes * kSecondsPerMinute;
    // South of the equator the summer spans the turn of the year.
    if (begin > end) return winterTime >= begin || winterTime < end;
    return winterTime >= begin && winterTime < end;
}

int64_t ZoneRules::SecondsEast(int64_t time) const {
    return -kSecondsPerMinute * (biasMinutes + (IsSummer(time) ? daylightBiasMinutes : 0));
}

ZoneRules RulesOf(const PcDescription& pc) {
    return {pc.timeZoneBiasMinutes, pc.timeZoneDaylightBiasMinutes, pc.timeZoneDaylightStart,
            pc.timeZoneStandardStart};
}

}  // namespace winhost
