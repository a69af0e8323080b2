#include "tests/faults/Injector.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "tests/faults/FailureTable.h"
#include "winhost/core/Gate.h"

// Of the sanitizers' libraries, in their builds.
extern "C" [[gnu::weak]] void __sanitizer_symbolize_pc(void* address, const char* format, char* text,
                                                       size_t size);

namespace {

struct Series {
    uint64_t site = 0;
    int length = 0;
};
thread_local Series t_series;
thread_local int t_outside = 0;

uint64_t Base() {
    static const uint64_t base = [] {
        Dl_info info{};
        dladdr(reinterpret_cast<const void*>(&DescribeSite), &info);
        return reinterpret_cast<uint64_t>(info.dli_fbase);
    }();
    return base;
}

template <size_t size>
void CopyName(char (&field)[size], const char* name) {
    std::snprintf(field, size, "%s", name);
}

}  // namespace

Injector& Injector::Instance() {
    static Injector& injector = *new Injector;
    return injector;
}

void Injector::Arm(const Selection& selection, Account& account) {
    {
        std::lock_guard lock(m_mutex);
        m_selection = selection;
        m_account = &account;
        m_account->counted = 0;
        m_siteHits.clear();
        m_counting = true;
    }
    winhost::Gate::Instance().Ask(
        [this](const char* call, const void* caller) { return Judge(call, caller); });
}

void Injector::StopCounting() {
    std::lock_guard lock(m_mutex);
    m_counting = false;
}

bool Injector::Polls(int thread) {
    std::lock_guard lock(m_mutex);
    return m_polling.count(thread) != 0;
}

uint32_t Injector::Judge(const char* call, const void* caller) {
    if (t_outside > 0) return 0;
    const uint64_t site = reinterpret_cast<uint64_t>(caller) - Base();
    t_series = t_series.site == site ? Series{site, t_series.length + 1} : Series{site, 1};
    const bool repeats = t_series.length > kCountedRepeats;
    if (!repeats) m_activity.fetch_add(1, std::memory_order_relaxed);
    const FailureEntry* const entry = FindFailure(call);

    std::lock_guard lock(m_mutex);
    if (t_series.length == kPollLength) m_polling.insert(gettid());
    if (t_series.length == 1) m_polling.erase(gettid());
    if (!entry) CopyName(m_account->unknown, call);
    if (!entry || entry->errors.empty()) return 0;
    if (m_failing == call) {
        ++m_account->injected;
        return m_failingError;
    }
    if (!m_counting || repeats) return 0;
    const uint64_t hit = ++m_siteHits[site];
    if (entry->perLine && hit > kCountedLines && !m_selection.everyLine) return 0;
    const uint64_t number = ++m_account->counted;
    if (number <= Account::kMostCalls) {
        CallRecord& record = m_account->calls[number - 1];
        CopyName(record.call, call);
        record.site = site;
    }
    const bool selected =
        m_selection.site ? m_selection.site == site && m_selection.at == hit : m_selection.at == number;
    if (!selected) return 0;
    const uint32_t error =
        m_selection.error ? m_selection.error : entry->errors[(m_selection.at - 1) % entry->errors.size()];
    ++m_account->injected;
    CopyName(m_account->call, call);
    m_account->error = error;
    m_account->at = number;
    m_account->site = site;
    m_account->siteHit = hit;
    if (m_selection.forEver) {
        m_failing = call;
        m_failingError = error;
    }
    return error;
}

OutsideService::OutsideService() {
    ++t_outside;
}

OutsideService::~OutsideService() {
    --t_outside;
}

std::string DescribeSite(uint64_t site) {
    if (site == 0) return "an unknown place";
    // The place before the return is in the call.
    char* const address = reinterpret_cast<char*>(Base() + site) - 1;
    if (__sanitizer_symbolize_pc) {
        char text[512];
        __sanitizer_symbolize_pc(address, "%f at %s:%l", text, sizeof text);
        return text;
    }
    Dl_info info{};
    if (!dladdr(address, &info) || !info.dli_sname) return kUnknownPlace;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, nullptr), &std::free);
    const std::string text = name ? name.get() : info.dli_sname;
    // The name of a function that returns another one stands within brackets.
    if (text.find("(*") < text.find('<')) return text;
    return text.substr(0, text.find('('));
}
