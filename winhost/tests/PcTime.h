// What tests of the PC's time and zone set on it.
#pragma once

#include <chrono>

#include "winhost/core/Clock.h"
#include "winhost/pc/Pc.h"

// Stops the PC's clock at this time since 1970 in UTC.
inline void StopClockAt(std::chrono::nanoseconds utc) {
    winhost::Clock& clock = winhost::Clock::Instance();
    clock.SetManual(true);
    clock.SetWallOffset({});
    const auto now = std::chrono::nanoseconds((clock.FileTime() - 116444736000000000) * 100);
    clock.SetWallOffset(utc - now);
}

// One hour east of UTC, and two from the last Sunday of March to that of October.
inline void LiveInWesternEurope(winhost::PcDescription& pc) {
    pc.timeZoneBiasMinutes = -60;
    pc.timeZoneDaylightBiasMinutes = -60;
    pc.timeZoneDaylightStart = {3, 5, 0, 2};
    pc.timeZoneStandardStart = {10, 5, 0, 3};
}
