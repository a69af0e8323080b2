// A clock for time intervals. It only moves forward, even when the date is changed.
#pragma once

#include <cstdint>

// Returns nanoseconds from an arbitrary start, or 0 when the platform has no such clock. Any thread.
uint64_t SteadyTime();
