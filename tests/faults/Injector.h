// Makes one call of the service fail, or one and all later ones of that function, and keeps account of it
// where another process can read it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>

// A call of the service's: which function, and the place in the code that made it, counted from the start of
// the executable, so that it holds for all runs of one build.
struct CallRecord {
    char call[40];
    uint64_t site;
};

// Lies in memory that a run shares with the sweep, which reads it also when the run has crashed.
struct Account {
    static constexpr size_t kMostCalls = 16384;

    enum class End : uint32_t { None, Passed, Failed, AsSpecified };
    End end = End::None;
    char finding[8192] = "";  // what is wrong; for AsSpecified, how the process ended

    uint64_t injected = 0;  // calls that were made to fail
    char call[40] = "";     // of the first of them
    uint32_t error = 0;
    uint64_t at = 0;        // its number among all calls
    uint64_t site = 0;      // where it was made
    uint64_t siteHit = 0;   // its number among those made there
    char unknown[40] = "";  // a call that the table of failures doesn't know

    uint64_t counted = 0;  // calls that could have been made to fail
    CallRecord calls[kMostCalls];
};

// Which call fails.
struct Selection {
    uint64_t at = 0;    // its number, from 1; 0 for none
    uint64_t site = 0;  // counted among the calls from this place alone; 0: among all
    bool forEver = false;
    uint32_t error = 0;  // 0: one that the table names
    // Also the calls that the log makes for each of its lines, beyond the first lines.
    bool everyLine = false;
};

class Injector {
  public:
    static Injector& Instance();

    // Begins to count, and to fail what is selected. Called once a run, with a gate that is reset.
    void Arm(const Selection& selection, Account& account);
    // Selects no further call; what fails for ever goes on.
    void StopCounting();

    // A number that changes while the service does something, but for calls that repeat one another.
    uint64_t Activity() const { return m_activity.load(std::memory_order_relaxed); }
    // Whether this thread, by its Linux id, does nothing but repeat a call.
    bool Polls(int thread);

  private:
    uint32_t Judge(const char* call, const void* caller);

    // So many calls in a row that a thread makes from the same place are counted, the rest of a poll is not.
    static constexpr int kCountedRepeats = 2;
    // A walk over a list is shorter than that, a poll is not.
    static constexpr int kPollLength = 200;
    // So many lines of the log are written with failing calls, unless all are asked for.
    static constexpr uint64_t kCountedLines = 10;

    std::atomic<uint64_t> m_activity{0};
    std::mutex m_mutex;
    bool m_counting = false;
    Selection m_selection;
    Account* m_account = nullptr;
    std::string m_failing;  // the function that fails for ever
    uint32_t m_failingError = 0;
    std::set<int> m_polling;
    std::map<uint64_t, uint64_t> m_siteHits;
};

// While one lives, the calls of its thread are not the service's: it plays the rest of the world.
class OutsideService {
  public:
    OutsideService();
    ~OutsideService();
    OutsideService(const OutsideService&) = delete;
    OutsideService& operator=(const OutsideService&) = delete;
};

// The place in the executable, readable: its function, and where it is known its file and line. The function
// alone is kUnknownPlace where it is one that only its file knows.
inline constexpr char kUnknownPlace[] = "?";
std::string DescribeSite(uint64_t site);
