#include "winhost/power/Privileges.h"

#include <strings.h>

#include <algorithm>
#include <atomic>

#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

struct Privilege {
    const char* name;
    uint32_t luid;
};

// Those that the calls of this library ask for.
constexpr Privilege kPrivileges[] = {
    {"SeAssignPrimaryTokenPrivilege", 3},
    {"SeIncreaseQuotaPrivilege", 5},
    {"SeTcbPrivilege", 7},
    {"SeShutdownPrivilege", 19},
};

// A bit for each LUID.
std::atomic<uint64_t> g_enabled{0};

}  // namespace

uint32_t PrivilegeByName(const std::string& name) {
    for (const Privilege& privilege : kPrivileges)
        if (strcasecmp(privilege.name, name.c_str()) == 0) return privilege.luid;
    return 0;
}

bool IsPrivilegeEnabled(const std::string& name) {
    return g_enabled >> PrivilegeByName(name) & 1;
}

bool HoldsPrivilege(uint32_t luid) {
    const auto held = Pc::Instance().Description().privileges;
    return std::any_of(held.begin(), held.end(),
                       [&](const std::string& name) { return luid != 0 && PrivilegeByName(name) == luid; });
}

bool EnablePrivilege(uint32_t luid, bool enable) {
    if (!HoldsPrivilege(luid)) return false;
    const uint64_t bit = uint64_t{1} << luid;
    if (enable) {
        g_enabled |= bit;
    } else {
        g_enabled &= ~bit;
    }
    return true;
}

void DisableAllPrivileges() {
    g_enabled = 0;
}

}  // namespace winhost
