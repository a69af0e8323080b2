// The PC's time zone with its summer time.
#pragma once

#include <cstdint>

#include "winhost/pc/Pc.h"

namespace winhost {

struct ZoneRules {
    int32_t biasMinutes = 0;  // UTC = local + bias, in winter
    int32_t daylightBiasMinutes = 0;
    ZoneTransition daylightStart, standardStart;

    bool HasSummerTime() const;
    // Times are seconds since 1970, in UTC.
    bool IsSummer(int64_t time) const;
    int64_t SecondsEast(int64_t time) const;
};

ZoneRules RulesOf(const PcDescription& pc);

}  // namespace winhost
