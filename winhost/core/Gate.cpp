#include "winhost/core/Gate.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <optional>
#include <string_view>
#include <thread>

// The linker's names for the ends of the section that WINHOST_CALL_NAME fills.
extern "C" const char* const __start_winhost_calls[];
extern "C" const char* const __stop_winhost_calls[];

namespace winhost {
namespace {

// How many letters have to be inserted, removed or replaced to turn one name into the other; upper and lower
// case are the same.
size_t Distance(std::string_view left, std::string_view right) {
    const auto fold = [](char letter) { return std::tolower(static_cast<unsigned char>(letter)); };
    std::vector<size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < left.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < right.size(); ++j) {
            const size_t replaced = diagonal + (fold(left[i]) == fold(right[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

// Never destroyed: calls are made until the process is gone.
Gate& Gate::Instance() {
    static Gate& gate = *new Gate;
    return gate;
}

void Gate::Add(GateSite& site) {
    std::lock_guard lock(m_mutex);
    m_sites.push_back(&site);
    site.m_armed = IsArmedFor(site.m_name);
}

void Gate::Arm() {
    for (GateSite* site : m_sites)
        site->m_armed = IsArmedFor(site->m_name);
}

bool Gate::IsArmedFor(const std::string& call) const {
    const auto counts = [&](const Rule& rule) { return rule.call.empty() || rule.call == call; };
    return m_judge || m_delays.count(call) != 0 || std::any_of(m_rules.begin(), m_rules.end(), counts);
}

void Gate::Reset() {
    std::lock_guard lock(m_mutex);
    m_failures = 0;
    m_rules.clear();
    m_judge.reset();
    m_delays.clear();
    Arm();
    for (GateSite* site : m_sites)
        site->m_calls = 0;
}

void Gate::FailNth(const std::string& call, uint64_t n, uint32_t error, bool forEver) {
    std::lock_guard lock(m_mutex);
    m_rules.push_back({call, n, error, forEver});
    Arm();
}

void Gate::Ask(Judge judge) {
    std::lock_guard lock(m_mutex);
    m_judge = std::make_shared<const Judge>(std::move(judge));
    Arm();
}

void Gate::Delay(const std::string& call, std::chrono::milliseconds by) {
    std::lock_guard lock(m_mutex);
    m_delays[call] = by;
    Arm();
}

uint64_t Gate::Count(const std::string& call) const {
    std::lock_guard lock(m_mutex);
    uint64_t count = 0;
    for (const GateSite* site : m_sites)
        if (call.empty() || call == site->m_name) count += site->m_calls;
    return count;
}

void Gate::Hold(const char* call) const {
    std::optional<std::chrono::milliseconds> delay;
    {
        std::lock_guard lock(m_mutex);
        if (const auto found = m_delays.find(call); found != m_delays.end()) delay = found->second;
    }
    if (delay) std::this_thread::sleep_for(*delay);
}

bool Gate::Knows(const std::string& call) {
    return std::find(__start_winhost_calls, __stop_winhost_calls, call) != __stop_winhost_calls;
}

std::string Gate::Nearest(const std::string& call) {
    std::string nearest;
    size_t least = call.size() / 3 + 1;
    for (const char* const* known = __start_winhost_calls; known != __stop_winhost_calls; ++known) {
        const size_t distance = Distance(call, *known);
        if (distance >= least) continue;
        least = distance;
        nearest = *known;
    }
    return nearest;
}

bool Gate::IsInfallible(const std::string& call) {
    static const std::set<std::string> calls = {"CloseHandle",        "closesocket", "ReleaseMutex",
                                                "ResetEvent",         "SetEvent",    "VariantClear",
                                                "WaitForSingleObject"};
    return calls.count(call) != 0;
}

std::set<std::string> Gate::Called() const {
    std::lock_guard lock(m_mutex);
    std::set<std::string> names;
    for (const GateSite* site : m_sites)
        if (site->m_calls != 0) names.insert(site->m_name);
    return names;
}

uint32_t Gate::ErrorFor(const char* call, const void* caller) {
    std::shared_ptr<const Judge> judge;
    {
        std::lock_guard lock(m_mutex);
        judge = m_judge;
    }
    uint32_t error = judge ? (*judge)(call, caller) : 0;
    if (error == 0) error = ErrorByRule(call);
    if (error != 0) ++m_failures;
    return error;
}

uint32_t Gate::ErrorByRule(const char* call) {
    std::lock_guard lock(m_mutex);
    uint32_t error = 0;
    for (Rule& rule : m_rules) {
        if (rule.call.empty() ? IsInfallible(call) : rule.call != call) continue;
        // A spent rule has no calls left; one that fails for ever stays at its last.
        if (rule.callsLeft == 0 || --rule.callsLeft != 0) continue;
        if (rule.forEver) rule.callsLeft = 1;
        if (error == 0) error = rule.error;
    }
    return error;
}

GateSite::GateSite(const char* name) : m_name(name), m_gate(Gate::Instance()) {
    m_gate.Add(*this);
}

}  // namespace winhost
