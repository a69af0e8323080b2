// The resolution that programs ask of the system's timer.
#include <mmsystem.h>

#include <map>
#include <mutex>

#include "winhost/core/Gate.h"
#include "winhost/pc/Pc.h"

namespace {

struct Periods {
    std::mutex mutex;
    std::map<UINT, unsigned> begun;
    uint64_t start = 0;  // of the PC, which they belong to
};

// Never destroyed: periods end while the process does. Locked.
Periods& ThePeriods(std::unique_lock<std::mutex>& lock) {
    static Periods& periods = *new Periods;
    lock = std::unique_lock(periods.mutex);
    const uint64_t start = winhost::Pc::Instance().Starts();
    if (periods.start != start) periods.begun.clear();
    periods.start = start;
    return periods;
}

}  // namespace

MMRESULT timeBeginPeriod(UINT uPeriod) {
    WINHOST_GATE_CODE("timeBeginPeriod");
    if (uPeriod == 0 || uPeriod < winhost::Pc::Instance().Description().timerPeriod) return TIMERR_NOCANDO;
    std::unique_lock<std::mutex> lock;
    ++ThePeriods(lock).begun[uPeriod];
    return TIMERR_NOERROR;
}

MMRESULT timeEndPeriod(UINT uPeriod) {
    WINHOST_GATE_CODE("timeEndPeriod");
    std::unique_lock<std::mutex> lock;
    Periods& periods = ThePeriods(lock);
    const auto found = periods.begun.find(uPeriod);
    if (found == periods.begun.end()) return TIMERR_NOCANDO;
    if (--found->second == 0) periods.begun.erase(found);
    return TIMERR_NOERROR;
}
