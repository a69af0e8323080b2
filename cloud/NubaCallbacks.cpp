#include "cloud/NubaCallbacks.h"

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <string_view>

#include "base/Log.h"
#include "base/TerminableCalls.h"

namespace {

constexpr int8_t kInfoLevel = 2;
constexpr uint16_t kKvmPort = 22;
constexpr size_t kMaxHostName = 256;

// A call may come when the service's objects no longer exist.
std::atomic<EndpointText_Fn> s_getHost{nullptr}, s_getPort{nullptr};
std::atomic<uint16_t> s_dashPort{0};

char LowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (LowerCase(a[i]) != LowerCase(b[i])) return false;
    return true;
}

bool IsThisHost(const char* host) {
    char own[kMaxHostName] = "";
    return host && gethostname(own, static_cast<int>(sizeof own)) == 0 && EqualsIgnoringCase(own, host);
}

}  // namespace

void PrepareFilter(const NubaFunctions& functions, uint16_t dashPort) {
    s_getHost = functions.Endpoint_get_host;
    s_getPort = functions.Endpoint_get_port;
    s_dashPort = dashPort;
}

void LogOfNuba(int8_t level, const char* text) noexcept {
    const TerminableCalls::Callback callback;
    try {
        std::string line = text ? text : "";
        if (line.ends_with('\n')) line.pop_back();
        if (level == kInfoLevel)
            LogInfo("nuba: %s", line);
        else
            LogError("nuba: %s", line);
    } catch (...) {
        // Without memory there is no line.
    }
}

bool FilterOfNuba(void*, const Endpoint* endpoint) noexcept {
    const TerminableCalls::Callback callback;
    if (!endpoint || !IsThisHost(s_getHost.load()(endpoint))) return false;
    const char* const text = s_getPort.load()(endpoint);
    if (!text) return false;
    const long port = std::strtol(text, nullptr, 10);
    return port == s_dashPort || port == kKvmPort;
}
