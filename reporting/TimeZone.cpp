#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include "base/Log.h"
#include "reporting/NetworkInventory.h"

namespace {

// Returns a sign, two digits of hours and two of minutes. "%z" does not have this format in every C runtime,
// so the offset is the difference of the two calendar times.
std::string OffsetText(struct tm local, struct tm utc) {
    int minutes = (local.tm_hour - utc.tm_hour) * 60 + local.tm_min - utc.tm_min;
    if (local.tm_yday != utc.tm_yday) {
        const bool localIsAhead =
            local.tm_year != utc.tm_year ? local.tm_year > utc.tm_year : local.tm_yday > utc.tm_yday;
        minutes += localIsAhead ? 24 * 60 : -24 * 60;
    }
    char text[8];
    std::snprintf(text, sizeof text, "%c%02d%02d", minutes < 0 ? '-' : '+', std::abs(minutes) / 60 % 100,
                  std::abs(minutes) % 60);
    return text;
}

// The C runtime reads the time zone once and converts with it for as long as the process lives. Two reports
// may run at once, so one conversion must not see the zone while the other one sets it.
bool ToLocalTime(struct tm& local, const time_t& time) {
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    _tzset();
    return localtime_s(&local, &time) == 0;
}

}  // namespace

int32_t GetTimezoneDiff() {
    const time_t now = _time64(nullptr);
    struct tm local {
    }, utc{};
    if (!ToLocalTime(local, now) || gmtime_s(&utc, &now) != 0) {
        LogInfo("Failed to retrieve local time");
        return 0;
    }
    char date[26] = "";
    if (asctime_s(date, sizeof date, &local) == 0) {
        LogInfo("Current date and time: %s", date);
    } else {
        LogInfo("Failed to convert time to string");
    }
    const std::string offset = OffsetText(local, utc);
    const int hours = std::stoi(offset.substr(0, 3));
    const int minutes = std::stoi(offset[0] + offset.substr(3));
    return (hours * 60 + minutes) * 60;
}
