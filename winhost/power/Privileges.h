// The privileges that a token can hold, and which of them are enabled in the process's.
#pragma once

#include <cstdint>
#include <string>

namespace winhost {

// The low part of the privilege's LUID; 0 for a name that isn't one. Names are compared without regard to
// case.
uint32_t PrivilegeByName(const std::string& name);

// True when the PC's token holds it, enabled or not.
bool HoldsPrivilege(uint32_t luid);
// Enabled for the process, until Pc::Reset or DisableAllPrivileges.
bool IsPrivilegeEnabled(const std::string& name);
// False when the PC's token doesn't hold it.
bool EnablePrivilege(uint32_t luid, bool enable);
void DisableAllPrivileges();

}  // namespace winhost
