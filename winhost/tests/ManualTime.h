// The PC's clock stands still for as long as one of these lives.
#pragma once

#include "winhost/core/Clock.h"

struct ManualTime {
    ManualTime() { winhost::Clock::Instance().SetManual(true); }
    ~ManualTime() { winhost::Clock::Instance().SetManual(false); }
    ManualTime(const ManualTime&) = delete;
    ManualTime& operator=(const ManualTime&) = delete;
};
