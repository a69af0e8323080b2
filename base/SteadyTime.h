// A clock for distances in time: it only goes forward, whatever is done to the date.
#pragma once

#include <cstdint>

// Nanoseconds; starts anywhere. 0 where the platform can't tell. Any thread.
uint64_t SteadyTime();
