// The resolution that programs ask of the timer.
#include <mmsystem.h>

#include "winhost/tests/PcFixture.h"

namespace {

using TimerPeriodTest = PcFixture;

TEST_F(TimerPeriodTest, ThePcHasALowestPeriod) {
    StartPc([](auto& pc) { pc.timerPeriod = 3; });
    for (const UINT period : {0u, 1u, 2u})
        EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeBeginPeriod(period));
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeBeginPeriod(3));
}

}  // namespace
