// The C runtime's view of the PC's clock and time zone.
#include <time.h>

#include <cerrno>
#include <mutex>
#include <set>
#include <string>

#include <winbase.h>

#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/core/Singleton.h"
#include "winhost/kernel/ZoneRules.h"
#include "winhost/pc/Pc.h"

namespace {

constexpr time_t kEndOfYear3000 = 32'535'215'999;
constexpr size_t kTextSize = 26;

struct Zone {
    winhost::ZoneRules rules;
    const char* name = "UTC";
};

// A struct tm points to the name of its zone, and may outlive every setting of the PC.
const char* Kept(const std::string& name) {
    static auto& mutex = *new std::mutex;
    static auto& names = *new std::set<std::string>;
    std::lock_guard lock(mutex);
    return names.insert(name).first->c_str();
}

// The C runtime's copy of the PC's zone. The first conversion of a process makes it, and only _tzset makes it
// anew: a process does not notice a change of the zone by itself.
class RuntimeZone {
  public:
    Zone Get() {
        std::lock_guard lock(m_mutex);
        if (m_start != winhost::Pc::Instance().Starts()) Read();
        return m_zone;
    }
    void Set() {
        std::lock_guard lock(m_mutex);
        Read();
    }

  private:
    void Read() {
        winhost::Pc& pc = winhost::Pc::Instance();
        m_start = pc.Starts();
        const winhost::PcDescription description = pc.Description();
        m_zone = {winhost::RulesOf(description), Kept(description.timeZoneName)};
    }

    std::mutex m_mutex;
    uint64_t m_start = 0;  // the PC's start that the copy belongs to
    Zone m_zone{};
};

bool IsWithin(int value, int lowest, int highest) {
    return value >= lowest && value <= highest;
}

bool IsDate(const struct tm& time) {
    return IsWithin(time.tm_wday, 0, 6) && IsWithin(time.tm_mon, 0, 11) && IsWithin(time.tm_mday, 1, 31) &&
           IsWithin(time.tm_hour, 0, 23) && IsWithin(time.tm_min, 0, 59) && IsWithin(time.tm_sec, 0, 60) &&
           IsWithin(time.tm_year, 0, 8099);
}

// The calendar of a time moved into a zone. 0, or EINVAL with every field at -1.
errno_t ToCalendar(struct tm* calendar, const time_t* time, const Zone& zone) {
    if (!calendar) return EINVAL;
    if (!time || *time < 0 || *time > kEndOfYear3000) {
        *calendar = {};
        for (int* field :
             {&calendar->tm_sec, &calendar->tm_min, &calendar->tm_hour, &calendar->tm_mday, &calendar->tm_mon,
              &calendar->tm_year, &calendar->tm_wday, &calendar->tm_yday, &calendar->tm_isdst}) {
            *field = -1;
        }
        return EINVAL;
    }
    const int64_t east = zone.rules.SecondsEast(*time);
    const time_t shifted = *time + east;
    gmtime_r(&shifted, calendar);
    calendar->tm_isdst = zone.rules.IsSummer(*time) ? 1 : 0;
    calendar->tm_gmtoff = east;
    calendar->tm_zone = zone.name;
    return 0;
}

}  // namespace

__time64_t _time64(__time64_t* time) {
    WINHOST_GATE_PASS("_time64");
    const __time64_t now = winhost::Clock::Instance().UnixTime();
    if (time) *time = now;
    return now;
}

void _tzset() {
    WINHOST_GATE_PASS("_tzset");
    winhost::Singleton<RuntimeZone>().Set();
}

errno_t localtime_s(struct tm* local, const time_t* time) {
    WINHOST_GATE_CODE("localtime_s");
    return ToCalendar(local, time, winhost::Singleton<RuntimeZone>().Get());
}

errno_t gmtime_s(struct tm* utc, const time_t* time) {
    WINHOST_GATE_CODE("gmtime_s");
    return ToCalendar(utc, time, Zone{});
}

errno_t asctime_s(char* buffer, size_t size, const struct tm* time) {
    WINHOST_GATE_CODE("asctime_s");
    if (!buffer || size == 0) return EINVAL;
    buffer[0] = '\0';
    if (size < kTextSize || !time || !IsDate(*time)) return EINVAL;
    // No program here sets a locale, so that the names are English.
    std::strftime(buffer, size, "%a %b %d %H:%M:%S %Y\n", time);
    return 0;
}
