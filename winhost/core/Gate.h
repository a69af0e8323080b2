// The one place that every call enters winhost by. It counts calls, delays them, and makes the Nth one fail.
//
// An implementation begins with
//     WINHOST_GATE("CreateEventA", nullptr);      the error goes to SetLastError, the call returns nullptr
//     WINHOST_GATE_CODE("RegOpenKeyExA");         the call returns the error itself
//     WINHOST_GATE_PASS("WlanFreeMemory");        the call has no way to fail: it is counted and delayed only
//     WINHOST_CALL("GetLocalTime");               so too, and not counted: each line of a log makes it
// and costs one relaxed increment while nothing is armed for it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "winhost/core/CallingThread.h"

namespace winhost {

class GateSite;

class Gate {
  public:
    static Gate& Instance();

    // Disarms everything and sets all counters to 0.
    void Reset();
    // The Nth call from now (1 is the next) fails with `error`; with `forEver` all after it too. An empty
    // name counts every call but the infallible ones.
    void FailNth(const std::string& call, uint64_t n, uint32_t error, bool forEver = false);
    // Asks `judge` at each call that can fail, on the calling thread, with the place in the code that made
    // the call: what it answers is the error, 0 is none. Until the next Reset; several threads ask at a time.
    using Judge = std::function<uint32_t(const char* call, const void* caller)>;
    void Ask(Judge judge);
    // True for a call that cannot fail on a valid handle, so that injecting a failure would be a test bug.
    static bool IsInfallible(const std::string& call);
    // Whether this program holds an implementation of the call.
    static bool Knows(const std::string& call);
    // The known call whose name is most like this one, for a message; empty when none is like it.
    static std::string Nearest(const std::string& call);
    // Every call of this name is held for so long, in real time, before it does anything.
    void Delay(const std::string& call, std::chrono::milliseconds by);
    // Calls since the last Reset; an empty name counts all.
    uint64_t Count(const std::string& call) const;
    // The names of the calls that were made since the last Reset.
    std::set<std::string> Called() const;
    // Calls that were made to fail since the last Reset: 0 tells a sweep that it has gone past the last call.
    uint64_t Failures() const { return m_failures; }

  private:
    friend class GateSite;
    struct Rule {
        std::string call;
        uint64_t callsLeft;  // until the one that fails
        uint32_t error;
        bool forEver;
    };

    Gate() = default;
    void Add(GateSite& site);
    // The caller holds the mutex.
    void Arm();
    bool IsArmedFor(const std::string& call) const;
    void Hold(const char* call) const;
    uint32_t ErrorFor(const char* call, const void* caller);
    uint32_t ErrorByRule(const char* call);

    std::atomic<uint64_t> m_failures{0};
    mutable std::mutex m_mutex;
    std::vector<GateSite*> m_sites;
    std::vector<Rule> m_rules;
    std::shared_ptr<const Judge> m_judge;
    std::map<std::string, std::chrono::milliseconds> m_delays;
};

// One for each call of the API, with static lifetime.
class GateSite {
  public:
    explicit GateSite(const char* name);
    // 0, or the error with which this call has to fail.
    uint32_t Enter(const void* caller) {
        Pass();
        return m_armed.load(std::memory_order_acquire) ? m_gate.ErrorFor(m_name, caller) : 0;
    }
    void Pass() {
        m_calls.store(m_calls.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        if (m_armed.load(std::memory_order_acquire)) m_gate.Hold(m_name);
    }

  private:
    friend class Gate;
    const char* const m_name;
    Gate& m_gate;
    // Two threads that call at the same moment may count as one call. A locked increment at each call would
    // take a tenth of the time of a log line.
    std::atomic<uint64_t> m_calls{0};
    std::atomic<bool> m_armed{false};  // for this call
};

}  // namespace winhost

// Puts the call's name into the list of those that this program knows, whether or not it is ever made.
#define WINHOST_CALL_NAME(name) \
    [[gnu::section("winhost_calls"), gnu::used]] static const char* const knownCall = name

// The first line of each call.
#define WINHOST_CALL(name)   \
    WINHOST_CALL_NAME(name); \
    const ::winhost::CallScope winhostCall

#define WINHOST_GATE(name, failure)                                     \
    WINHOST_CALL(name);                                                 \
    do {                                                                \
        static ::winhost::GateSite site(name);                          \
        if (uint32_t error = site.Enter(__builtin_return_address(0))) { \
            SetLastError(error);                                        \
            return failure;                                             \
        }                                                               \
    } while (false)

#define WINHOST_GATE_CODE(name)                                                           \
    WINHOST_CALL(name);                                                                   \
    do {                                                                                  \
        static ::winhost::GateSite site(name);                                            \
        if (uint32_t error = site.Enter(__builtin_return_address(0))) return (LONG)error; \
    } while (false)

#define WINHOST_GATE_PASS(name)                \
    WINHOST_CALL(name);                        \
    do {                                       \
        static ::winhost::GateSite site(name); \
        site.Pass();                           \
    } while (false)
