// Shutting down, sleeping, and what the PC can do of it.
#include <powrprof.h>
#include <windows.h>

#include <cstdio>
#include <string>
#include <utility>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/pc/Pc.h"
#include "winhost/power/Privileges.h"

using winhost::Fail;
using winhost::Pc;
using winhost::PowerAction;

namespace {

bool MayShutDown() {
    return winhost::IsPrivilegeEnabled(SE_SHUTDOWN_NAME);
}

// False while the PC shuts down already.
bool BeginShutdown() {
    bool begun = false;
    Pc::Instance().Change([&](winhost::PcDescription& pc) { begun = !std::exchange(pc.shuttingDown, true); });
    return begun;
}

std::string Quoted(const char* text) {
    return text ? "\"" + std::string(text) + "\"" : "null";
}

std::string Hex(uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", number);
    return text;
}

std::string Call(const char* name, std::initializer_list<std::string> arguments) {
    std::string call = name;
    const char* separator = "(";
    for (const std::string& argument : arguments) {
        call += separator + argument;
        separator = ", ";
    }
    return call + ")";
}

}  // namespace

BOOL InitiateSystemShutdownExA(LPSTR lpMachineName, LPSTR lpMessage, DWORD dwTimeout, BOOL bForceAppsClosed,
                               BOOL bRebootAfterShutdown, DWORD dwReason) {
    WINHOST_GATE("InitiateSystemShutdownExA", FALSE);
    if (lpMachineName && *lpMachineName) return Fail(ERROR_BAD_NETPATH);
    if (!MayShutDown()) return Fail(ERROR_PRIVILEGE_NOT_HELD);
    if (!BeginShutdown()) return Fail(ERROR_SHUTDOWN_IN_PROGRESS);
    Pc::Instance().Record(PowerAction{
        bRebootAfterShutdown ? "reboot" : "shutdown",
        Call("InitiateSystemShutdownExA",
             {Quoted(lpMachineName), Quoted(lpMessage), std::to_string(dwTimeout),
              std::to_string(bForceAppsClosed), std::to_string(bRebootAfterShutdown), Hex(dwReason)})});
    return TRUE;
}

BOOL ExitWindowsEx(UINT flags, DWORD reason) {
    WINHOST_GATE("ExitWindowsEx", FALSE);
    if (flags != (EWX_SHUTDOWN | EWX_FORCE)) return Fail(ERROR_NOT_SUPPORTED);
    if (!MayShutDown()) return Fail(ERROR_PRIVILEGE_NOT_HELD);
    if (!BeginShutdown()) return Fail(ERROR_SHUTDOWN_IN_PROGRESS);
    Pc::Instance().Record(
        PowerAction{"shutdown", Call("ExitWindowsEx", {std::to_string(flags), Hex(reason)})});
    return TRUE;
}

BOOLEAN SetSuspendState(BOOLEAN bHibernate, BOOLEAN bForce, BOOLEAN bWakeupEventsDisabled) {
    WINHOST_GATE("SetSuspendState", FALSE);
    if (!MayShutDown()) return static_cast<BOOLEAN>(Fail(ERROR_PRIVILEGE_NOT_HELD));
    const auto pc = Pc::Instance().Description();
    if (!(bHibernate ? pc.hibernation : pc.sleepS3)) return static_cast<BOOLEAN>(Fail(ERROR_NOT_SUPPORTED));
    Pc::Instance().Record(PowerAction{
        bHibernate ? "hibernate" : "sleep",
        Call("SetSuspendState",
             {std::to_string(bHibernate), std::to_string(bForce), std::to_string(bWakeupEventsDisabled)})});
    return TRUE;
}

BOOLEAN GetPwrCapabilities(PSYSTEM_POWER_CAPABILITIES lpspc) {
    WINHOST_GATE("GetPwrCapabilities", FALSE);
    if (!lpspc) return static_cast<BOOLEAN>(Fail(ERROR_INVALID_PARAMETER));
    const auto pc = Pc::Instance().Description();
    *lpspc = {};
    lpspc->PowerButtonPresent = TRUE;
    lpspc->SystemS3 = pc.sleepS3;
    lpspc->SystemS4 = lpspc->HiberFilePresent = pc.hibernation;
    lpspc->SystemS5 = TRUE;
    lpspc->AoAc = pc.modernStandby;
    return TRUE;
}
