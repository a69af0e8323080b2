#include "winhost/process/Token.h"

#include <cstring>
#include <memory>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/files/FileSecurity.h"
#include "winhost/pc/Pc.h"
#include "winhost/power/Privileges.h"
#include "winhost/process/ProcessObject.h"

using winhost::Fail;
using winhost::HandleTable;
using winhost::Token;

namespace {

BOOL Give(std::shared_ptr<Token> token, PHANDLE handle) {
    *handle = winhost::AddHandle(std::move(token));
    return *handle ? TRUE : FALSE;
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

BOOL OpenProcessToken(HANDLE handle, DWORD access, PHANDLE token) {
    WINHOST_GATE("OpenProcessToken", FALSE);
    const auto process = winhost::FindProcessObject(handle);
    if (!process) return Fail(ERROR_INVALID_HANDLE);
    if (!process->AllowsQuery()) return Fail(ERROR_ACCESS_DENIED);
    if (!token) return Fail(ERROR_NOACCESS);
    const auto origin = process->IsOwn() ? Token::Origin::OwnProcess : Token::Origin::OtherProcess;
    return Give(std::make_shared<Token>(origin, access, process->Entry().session), token);
}

BOOL DuplicateTokenEx(HANDLE handle, DWORD access, LPSECURITY_ATTRIBUTES, SECURITY_IMPERSONATION_LEVEL,
                      TOKEN_TYPE type, PHANDLE newToken) {
    WINHOST_GATE("DuplicateTokenEx", FALSE);
    if (type != TokenPrimary) return Fail(ERROR_NOT_SUPPORTED);
    const auto token = HandleTable::Instance().Find<Token>(handle);
    if (!token) return Fail(ERROR_INVALID_HANDLE);
    if (!token->Allows(TOKEN_DUPLICATE)) return Fail(ERROR_ACCESS_DENIED);
    return Give(std::make_shared<Token>(*token, access), newToken);
}

BOOL SetTokenInformation(HANDLE handle, TOKEN_INFORMATION_CLASS informationClass, LPVOID information,
                         DWORD length) {
    WINHOST_GATE("SetTokenInformation", FALSE);
    const auto token = HandleTable::Instance().Find<Token>(handle);
    if (!token) return Fail(ERROR_INVALID_HANDLE);
    DWORD session;
    if (informationClass != TokenSessionId || !token->IsDuplicate()) return Fail(ERROR_NOT_SUPPORTED);
    if (length != sizeof session) return Fail(ERROR_BAD_LENGTH);
    if (!information) return Fail(ERROR_NOACCESS);
    if (!token->Allows(TOKEN_ADJUST_SESSIONID)) return Fail(ERROR_ACCESS_DENIED);
    if (!winhost::IsPrivilegeEnabled(SE_TCB_NAME)) return Fail(ERROR_PRIVILEGE_NOT_HELD);
    std::memcpy(&session, information, sizeof session);
    token->SetSession(session);
    return TRUE;
}

BOOL GetTokenInformation(HANDLE handle, TOKEN_INFORMATION_CLASS informationClass, LPVOID information,
                         DWORD length, PDWORD returnLength) {
    WINHOST_GATE("GetTokenInformation", FALSE);
    const auto token = HandleTable::Instance().Find<Token>(handle);
    if (!token) return Fail(ERROR_INVALID_HANDLE);
    if (!token->Allows(TOKEN_QUERY)) return Fail(ERROR_ACCESS_DENIED);
    if (!token->IsOwn() || informationClass != TokenUser) return Fail(ERROR_NOT_SUPPORTED);
    const std::string sid = winhost::SidOfUser(winhost::Pc::Instance().Description().userName);
    *returnLength = static_cast<DWORD>(sizeof(TOKEN_USER) + sid.size());
    if (!information || length < *returnLength) return Fail(ERROR_INSUFFICIENT_BUFFER);
    // The SID lies behind the structure that points to it.
    auto* const user = static_cast<TOKEN_USER*>(information);
    user->User = {user + 1, 0};
    std::memcpy(user + 1, sid.data(), sid.size());
    return TRUE;
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
    if (disableAll || previousState || !token->IsOwn()) return Fail(ERROR_NOT_SUPPORTED);
    if (!newState) return Fail(ERROR_INVALID_PARAMETER);
    if (Removes(*newState)) return Fail(ERROR_NOT_SUPPORTED);
    SetLastError(SetAll(*newState) ? ERROR_SUCCESS : ERROR_NOT_ALL_ASSIGNED);
    return TRUE;
}
