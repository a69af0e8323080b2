#include "installer/setup/ServiceSettings.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "base/ServiceHandle.h"

namespace {

// The last action holds for every further failure of the same day: a PC on which the service cannot work is
// not kept busy by it.
constexpr SC_ACTION kActions[] = {
    {SC_ACTION_RESTART, 10'000}, {SC_ACTION_RESTART, 60'000}, {SC_ACTION_RESTART, 300'000}};
constexpr DWORD kResetSeconds = 24 * 60 * 60;

bool Change(SC_HANDLE service, DWORD level, void* info) {
    return ChangeServiceConfig2A(service, level, info);
}

}  // namespace

bool ConfigureService(const std::string& program) {
    const UniqueServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return false;
    // A restart needs the right to start the service.
    const UniqueServiceHandle service(
        OpenServiceA(manager.Get(), kServiceName, SERVICE_CHANGE_CONFIG | SERVICE_START));
    if (!service) return false;
    SC_ACTION actions[std::size(kActions)];
    std::copy(std::begin(kActions), std::end(kActions), actions);
    SERVICE_FAILURE_ACTIONSA failure{};
    failure.dwResetPeriod = kResetSeconds;
    failure.cActions = std::size(kActions);
    failure.lpsaActions = actions;
    SERVICE_PRESHUTDOWN_INFO preshutdown{kStopMilliseconds};
    const std::string command = "\"" + program + "\" -service";
    constexpr DWORD kSame = SERVICE_NO_CHANGE;
    if (!ChangeServiceConfigA(service.Get(), kSame, kSame, kSame, command.c_str(), nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr) ||
        !Change(service.Get(), SERVICE_CONFIG_PRESHUTDOWN_INFO, &preshutdown) ||
        !Change(service.Get(), SERVICE_CONFIG_FAILURE_ACTIONS, &failure))
        return false;
    // A stop with an error counts as a failure too: WMI may not be ready when Windows starts. Wine does not
    // have this setting, and an installation does not depend on it.
    SERVICE_FAILURE_ACTIONS_FLAG alsoStops{TRUE};
    if (!Change(service.Get(), SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &alsoStops))
        std::fprintf(stderr, "zelsetup: a stop with an error does not count as a failure, error %lu\n",
                     GetLastError());
    return true;
}
