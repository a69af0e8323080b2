// The resolution of the system's timer.
#pragma once

#include <minwindef.h>

typedef UINT MMRESULT;

#define TIMERR_BASE 96
#define TIMERR_NOERROR (0)
#define TIMERR_NOCANDO (TIMERR_BASE + 1)

// Milliseconds. TIMERR_NOCANDO below the PC's "timerPeriod". It has no effect: waits are as exact as those of
// Linux.
MMRESULT timeBeginPeriod(UINT uPeriod);
