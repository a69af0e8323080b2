// The resolution that programs ask of the system's timer.
#include <mmsystem.h>
#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/pc/Pc.h"

MMRESULT timeBeginPeriod(UINT uPeriod) {
    WINHOST_GATE_CODE("timeBeginPeriod");
    const bool taken =
        uPeriod != 0 && uPeriod >= winhost::Pc::Instance().Get(&winhost::PcDescription::timerPeriod);
    return taken ? TIMERR_NOERROR : TIMERR_NOCANDO;
}
