// The power of a PC whose user the service may shut it down for.
#pragma once

#include <string>
#include <vector>

#include "tests/support/ServiceFixture.h"
#include "winhost/core/HandleTable.h"

class HostControlFixture : public ServiceFixture {
  protected:
    // The calls that changed the PC's power, with their arguments.
    static std::vector<std::string> PowerCalls() {
        std::vector<std::string> calls;
        for (const winhost::PowerAction& action : Pc().Records<winhost::PowerAction>())
            calls.push_back(action.call);
        return calls;
    }
    static bool AwaitPowerCalls(size_t count) {
        return Eventually([=] { return PowerCalls().size() >= count; });
    }

    static constexpr char kShutdown[] = "InitiateSystemShutdownExA(null, null, 0, 1, 0, 0x80000000)";
    static constexpr char kReboot[] = "InitiateSystemShutdownExA(null, null, 0, 1, 1, 0x80000000)";
    static constexpr char kHibernate[] = "SetSuspendState(1, 1, 0)";
    static constexpr char kSleep[] = "SetSuspendState(0, 1, 0)";
    static constexpr char kShutdownG2S5[] = "ExitWindowsEx(5, 0x80000000)";
    using Calls = std::vector<std::string>;
};
