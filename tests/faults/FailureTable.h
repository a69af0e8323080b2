// How each call of the platform can fail, by its documentation.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

struct FailureEntry {
    const char* call;
    // What it may fail with. None for a call that cannot fail on what its caller owns; then
    // `reason` says so.
    std::vector<uint32_t> errors;
    // Why the log need not name the failure; null where it has to.
    const char* reason = nullptr;
    // What else follows from the failure.
    enum class Effect {
        None,
        StaysOpen,     // the call closes something, which stays open
        HoldsThreads,  // a thread goes on waiting, and ends with the process
        EndsProcess,   // at once, with exit code 0
        Unstoppable,   // the service manager can't be informed that the service has stopped
    };
    Effect effect = Effect::None;
    // Made for each line of the log, whatever that says.
    bool perLine = false;
};

// Null for a call that the table doesn't know.
const FailureEntry* FindFailure(std::string_view call);
const std::vector<FailureEntry>& FailureTable();
// Whether the log need not name its failure with this error when the call is made there, described as by
// DescribeSite, in this scenario.
bool MayBeSilent(const FailureEntry& entry, uint32_t error, std::string_view place,
                 std::string_view scenario);
