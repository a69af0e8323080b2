// The token of the process, and the privileges that it enables.
#include <winbase.h>

#include <memory>
#include <string>

#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/power/Privileges.h"

using winhost::HandleTable;

namespace {

class Token : public winhost::Object {
  public:
    explicit Token(DWORD access) : m_access(access) {}
    bool Allows(DWORD access) const { return (m_access & access) == access; }

  private:
    const DWORD m_access;
};

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// False when the token doesn't hold one of them; the others are set all the same.
bool SetAll(const TOKEN_PRIVILEGES& state) {
    bool all = true;
    for (DWORD i = 0; i < state.PrivilegeCount; ++i) {
        const LUID_AND_ATTRIBUTES& entry = state.Privileges[i];
        const uint32_t luid = entry.Luid.HighPart == 0 ? entry.Luid.LowPart : 0;
        if (!winhost::EnablePrivilege(luid, entry.Attributes & SE_PRIVILEGE_ENABLED)) all = false;
    }
    return all;
}

bool Removes(const TOKEN_PRIVILEGES& state) {
    for (DWORD i = 0; i < state.PrivilegeCount; ++i)
        if (state.Privileges[i].Attributes & SE_PRIVILEGE_REMOVED) return true;
    return false;
}

}  // namespace

BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) {
    WINHOST_GATE("OpenProcessToken", FALSE);
    if (process != GetCurrentProcess()) return Fail(ERROR_INVALID_HANDLE);
    if (!token) return Fail(ERROR_NOACCESS);
    *token = HandleTable::Instance().Add(std::make_shared<Token>(access));
    return *token ? TRUE : Fail(ERROR_NO_SYSTEM_RESOURCES);
}

BOOL LookupPrivilegeValueA(LPCSTR system, LPCSTR name, PLUID luid) {
    WINHOST_GATE("LookupPrivilegeValueA", FALSE);
    if (system && *system) return Fail(RPC_S_SERVER_UNAVAILABLE);
    if (!name || !luid) return Fail(ERROR_INVALID_PARAMETER);
    const uint32_t value = winhost::PrivilegeByName(name);
    if (value == 0) return Fail(ERROR_NO_SUCH_PRIVILEGE);
    *luid = {value, 0};
    return TRUE;
}

BOOL AdjustTokenPrivileges(HANDLE handle, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD,
                           PTOKEN_PRIVILEGES previousState, PDWORD) {
    WINHOST_GATE("AdjustTokenPrivileges", FALSE);
    const auto token = HandleTable::Instance().Find<Token>(handle);
    if (!token) return Fail(ERROR_INVALID_HANDLE);
    if (!token->Allows(TOKEN_ADJUST_PRIVILEGES)) return Fail(ERROR_ACCESS_DENIED);
    if (previousState) return Fail(ERROR_NOT_SUPPORTED);
    if (disableAll) {
        winhost::DisableAllPrivileges();
        SetLastError(ERROR_SUCCESS);
        return TRUE;
    }
    if (!newState) return Fail(ERROR_INVALID_PARAMETER);
    if (Removes(*newState)) return Fail(ERROR_NOT_SUPPORTED);
    SetLastError(SetAll(*newState) ? ERROR_SUCCESS : ERROR_NOT_ALL_ASSIGNED);
    return TRUE;
}
