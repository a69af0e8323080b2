// The resolution that programs ask of the timer.
#include <windows.h>

#include <mmsystem.h>

#include "winhost/core/Gate.h"
#include "winhost/tests/PcFixture.h"

namespace {

using TimerPeriodTest = PcFixture;

TEST_F(TimerPeriodTest, ThePcHasALowestPeriod) {
    StartPc([](auto& pc) { pc.timerPeriod = 3; });
    for (const UINT period : {0u, 1u, 2u})
        EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeBeginPeriod(period));
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeBeginPeriod(3));
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeEndPeriod(3));
}

TEST_F(TimerPeriodTest, APeriodEndsAsOftenAsItBegan) {
    EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeEndPeriod(1));
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeBeginPeriod(1));
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeBeginPeriod(1));
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeEndPeriod(1));
    EXPECT_EQ(MMRESULT{TIMERR_NOERROR}, timeEndPeriod(1));
    EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeEndPeriod(1));
}

TEST_F(TimerPeriodTest, EachCallCanFail) {
    winhost::Gate::Instance().FailNth("timeBeginPeriod", 1, TIMERR_NOCANDO);
    EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeBeginPeriod(1));
    winhost::Gate::Instance().FailNth("timeEndPeriod", 1, TIMERR_NOCANDO);
    EXPECT_EQ(MMRESULT{TIMERR_NOCANDO}, timeEndPeriod(1));
}

}  // namespace
