// The one place that every call enters winhost by. It counts calls, delays them, and makes the Nth one fail.
//
// An implementation begins with
//     WINHOST_GATE("CreateEventA", nullptr);      the error goes to SetLastError, the call returns nullptr
//     WINHOST_GATE_CODE("RegOpenKeyExA");         the call returns the error itself
// and costs one relaxed increment while nothing is armed.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

namespace winhost {

class Gate {
  public:
    static Gate& Instance();

    // Disarms everything and sets all counters to 0.
    void Reset();
    // The Nth call from now (1 is the next) fails with `error`; with `forEver` all after it too. An empty name counts
    // every call.
    void FailNth(const std::string& call, uint64_t n, uint32_t error, bool forEver = false);
    // Every call of this name is held for so long, in real time, before it does anything.
    void Delay(const std::string& call, std::chrono::milliseconds by);
    // Calls since the last Reset; an empty name counts all.
    uint64_t Count(const std::string& call) const;
};

// One for each call of the API, with static lifetime.
class GateSite {
  public:
    explicit GateSite(const char* name);
    // 0, or the error with which this call has to fail.
    uint32_t Enter();
};

}  // namespace winhost

#define WINHOST_GATE(name, failure)                  \
    do {                                             \
        static ::winhost::GateSite site(name);       \
        if (uint32_t error = site.Enter()) {         \
            SetLastError(error);                     \
            return failure;                          \
        }                                            \
    } while (false)

#define WINHOST_GATE_CODE(name)                                \
    do {                                                       \
        static ::winhost::GateSite site(name);                 \
        if (uint32_t error = site.Enter()) return (LONG)error; \
    } while (false)
