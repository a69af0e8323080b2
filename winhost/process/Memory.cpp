// The process's memory figures.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

#include <psapi.h>
#include <winbase.h>

#include "winhost/core/Gate.h"

namespace {

// Asking the kernel costs more than a whole line of a log, and every line asks: so a figure serves for a
// moment.
class MemoryFigures {
  public:
    static MemoryFigures& Instance() {
        static MemoryFigures& figures = *new MemoryFigures;
        return figures;
    }

    // Bytes of memory that is resident, and of that what belongs to no file.
    struct Figures {
        size_t resident, peakResident, anonymous, peakAnonymous;
    };
    Figures Read() {
        constexpr int64_t kMaxAge = 10'000'000;  // ns
        const int64_t now = CoarseNow();
        int64_t readAt = m_readAt.load(std::memory_order_relaxed);
        if (now - readAt > kMaxAge && m_readAt.compare_exchange_strong(readAt, now)) Refresh();
        return {m_resident, m_peakResident, m_anonymous, m_peakAnonymous};
    }

  private:
    MemoryFigures() : m_statm(open("/proc/self/statm", O_RDONLY | O_CLOEXEC)), m_readAt(CoarseNow()) {
        Refresh();
    }

    static int64_t CoarseNow() {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
        return now.tv_sec * 1'000'000'000 + now.tv_nsec;
    }

    void Refresh() {
        char text[128];
        const ssize_t length = pread(m_statm, text, sizeof text - 1, 0);
        size_t resident = 0, ofFiles = 0;
        if (length <= 0) return;
        text[length] = '\0';
        if (std::sscanf(text, "%*u %zu %zu", &resident, &ofFiles) != 2) return;
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        m_resident = resident * page;
        m_anonymous = (resident - std::min(ofFiles, resident)) * page;
        m_peakResident = std::max<size_t>(m_peakResident, m_resident);
        m_peakAnonymous = std::max<size_t>(m_peakAnonymous, m_anonymous);
    }

    const int m_statm;
    std::atomic<int64_t> m_readAt;
    std::atomic<size_t> m_resident{0}, m_peakResident{0}, m_anonymous{0}, m_peakAnonymous{0};
};

}  // namespace

BOOL K32GetProcessMemoryInfo(HANDLE process, PPROCESS_MEMORY_COUNTERS counters, DWORD size) {
    WINHOST_GATE("K32GetProcessMemoryInfo", FALSE);
    if (process != GetCurrentProcess() || size < sizeof *counters) {
        SetLastError(process != GetCurrentProcess() ? ERROR_INVALID_HANDLE : ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    const auto figures = MemoryFigures::Instance().Read();
    PROCESS_MEMORY_COUNTERS_EX result{};
    result.cb = std::min<DWORD>(size, sizeof result);
    result.WorkingSetSize = figures.resident;
    result.PeakWorkingSetSize = figures.peakResident;
    result.PagefileUsage = result.PrivateUsage = figures.anonymous;
    result.PeakPagefileUsage = figures.peakAnonymous;
    std::memcpy(counters, &result, result.cb);
    return TRUE;
}
