#include "tests/faults/Terminate.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>

#include "tests/faults/Stacks.h"

namespace {

Account* g_account = nullptr;

// Functions that start threads and whose exception ends the process, because none of their callers can do
// without the thread.
constexpr std::string_view kEndingFunctions[] = {
    "ZELService::ZELService",               // before there is a service
    "ZELService::DoDriverInitialization",   // no read loop, no listener, no first report
    "ZELService::UpdatePlatformInfoToMPM",  // no scans
    "NetworkMonitor::OnWlanNotification",   // on a thread of Windows
};

bool IsFailedThreadStart() {
    try {
        std::rethrow_exception(std::current_exception());
    } catch (const std::system_error& error) {
        return error.code() == std::errc::resource_unavailable_try_again;
    } catch (...) {
        return false;
    }
}

[[noreturn]] void OnTerminate() {
    const auto functions = FunctionsOfThisThread();
    const auto ending = std::find_first_of(functions.begin(), functions.end(), std::begin(kEndingFunctions),
                                           std::end(kEndingFunctions));
    const bool injected = g_account->injected > 0 && std::string_view(g_account->call) == "std::thread";
    if (injected && std::current_exception() && IsFailedThreadStart() && ending != functions.end()) {
        std::snprintf(g_account->finding, sizeof g_account->finding, "%s", ending->c_str());
        g_account->end = Account::End::AsSpecified;
        _exit(0);
    }
    std::fprintf(stderr, "uncaught exception in\n");
    for (const std::string& function : functions)
        std::fprintf(stderr, "    %s\n", function.c_str());
    std::abort();
}

}  // namespace

void ExpectSpecifiedEnds(Account& account) {
    g_account = &account;
    std::set_terminate(OnTerminate);
}
