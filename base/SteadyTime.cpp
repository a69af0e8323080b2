#include "base/SteadyTime.h"

#include <winsock2.h>
#include <windows.h>

uint64_t SteadyTime() {
    LARGE_INTEGER frequency{}, count{};
    if (!QueryPerformanceFrequency(&frequency) || !QueryPerformanceCounter(&count)) return 0;
    const uint64_t perSecond = static_cast<uint64_t>(frequency.QuadPart);
    const uint64_t ticks = static_cast<uint64_t>(count.QuadPart);
    constexpr uint64_t kNanoseconds = 1'000'000'000;
    return ticks / perSecond * kNanoseconds + ticks % perSecond * kNanoseconds / perSecond;
}
