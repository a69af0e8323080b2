// The steady time in nanoseconds, from a counter of 10 MHz.
#include "base/SteadyTime.h"

#include <winsock2.h>
#include <windows.h>

#include "tests/support/PcFixture.h"

namespace {

using namespace std::chrono_literals;
using SteadyTimeReading = PcFixture;

}  // namespace

// 31 minutes of nanoseconds times ten million exceed 64 bits.
TEST_F(SteadyTimeReading, GoesOnForMonths) {
    uint64_t last = SteadyTime();
    for (const std::chrono::nanoseconds step : {1000000000ns, 1900000000000ns, 7776000000000000ns, 100ns}) {
        Advance(step);
        EXPECT_EQ(SteadyTime() - last, static_cast<uint64_t>(step.count()));
        last = SteadyTime();
    }
}

TEST_F(SteadyTimeReading, IsZeroWithoutACounter) {
    Advance(1s);
    Gate().FailNth("QueryPerformanceCounter", 1, ERROR_GEN_FAILURE);
    EXPECT_EQ(SteadyTime(), 0u);
}
