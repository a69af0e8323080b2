// Privileges, and what they allow: shutting down and sleeping.
#include <powrprof.h>

#include "winhost/tests/PcFixture.h"

namespace {

static_assert(sizeof(SYSTEM_POWER_CAPABILITIES) == 76 && offsetof(SYSTEM_POWER_CAPABILITIES, AoAc) == 20);

constexpr UINT kShutdown = EWX_SHUTDOWN | EWX_FORCE;
constexpr DWORD kPlanned = SHTDN_REASON_FLAG_PLANNED;

class Power : public PcFixture {
  protected:
    static HANDLE OpenToken(DWORD access = TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY) {
        HANDLE token = nullptr;
        EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), access, &token));
        return token;
    }
    static TOKEN_PRIVILEGES Shutdown(DWORD attributes) {
        TOKEN_PRIVILEGES privileges{};
        privileges.PrivilegeCount = 1;
        EXPECT_TRUE(LookupPrivilegeValueA(nullptr, SE_SHUTDOWN_NAME, &privileges.Privileges[0].Luid));
        privileges.Privileges[0].Attributes = attributes;
        return privileges;
    }
    // The error that the call leaves behind.
    static DWORD Adjust(DWORD attributes) {
        const HANDLE token = OpenToken();
        TOKEN_PRIVILEGES privileges = Shutdown(attributes);
        EXPECT_TRUE(AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr));
        const DWORD error = GetLastError();
        EXPECT_TRUE(CloseHandle(token));
        return error;
    }
    // As "shutdown /a" does.
    static void CancelShutdown() {
        Change([](auto& pc) { pc.shuttingDown = false; });
    }
    static std::vector<std::string> Actions() {
        std::vector<std::string> actions;
        for (const auto& action : Records<winhost::PowerAction>())
            actions.push_back(action.action + ": " + action.call);
        return actions;
    }
};

using Strings = std::vector<std::string>;

TEST_F(Power, NothingGoesWithoutThePrivilege) {
    EXPECT_EQ(ERROR_PRIVILEGE_NOT_HELD,
              ErrorOf(InitiateSystemShutdownExA(nullptr, nullptr, 0, TRUE, FALSE, kPlanned)));
    SetLastError(0);
    EXPECT_EQ(ERROR_PRIVILEGE_NOT_HELD, ErrorOf(ExitWindowsEx(kShutdown, kPlanned)));
    SetLastError(0);
    EXPECT_EQ(ERROR_PRIVILEGE_NOT_HELD, ErrorOf(SetSuspendState(TRUE, TRUE, FALSE)));
    EXPECT_TRUE(Actions().empty());
}

TEST_F(Power, WhatWasAskedForIsRecordedWithItsArguments) {
    EXPECT_EQ(ERROR_SUCCESS, Adjust(SE_PRIVILEGE_ENABLED));
    EXPECT_TRUE(InitiateSystemShutdownExA(nullptr, nullptr, 0, TRUE, FALSE, kPlanned));
    CancelShutdown();
    char message[] = "Updates";
    EXPECT_TRUE(InitiateSystemShutdownExA(nullptr, message, 30, TRUE, TRUE, kPlanned));
    CancelShutdown();
    EXPECT_TRUE(ExitWindowsEx(kShutdown, kPlanned));
    EXPECT_TRUE(SetSuspendState(TRUE, TRUE, FALSE));
    EXPECT_TRUE(SetSuspendState(FALSE, TRUE, FALSE));
    EXPECT_EQ((Strings{"shutdown: InitiateSystemShutdownExA(null, null, 0, 1, 0, 0x80000000)",
                       "reboot: InitiateSystemShutdownExA(null, \"Updates\", 30, 1, 1, 0x80000000)",
                       "shutdown: ExitWindowsEx(5, 0x80000000)", "hibernate: SetSuspendState(1, 1, 0)",
                       "sleep: SetSuspendState(0, 1, 0)"}),
              Actions());
}

TEST_F(Power, AShutdownIsRefusedWhileOneIsInProgress) {
    Adjust(SE_PRIVILEGE_ENABLED);
    EXPECT_TRUE(ExitWindowsEx(kShutdown, kPlanned));
    EXPECT_EQ(ERROR_SHUTDOWN_IN_PROGRESS, ErrorOf(ExitWindowsEx(kShutdown, kPlanned)));
    EXPECT_EQ(ERROR_SHUTDOWN_IN_PROGRESS,
              ErrorOf(InitiateSystemShutdownExA(nullptr, nullptr, 0, TRUE, FALSE, kPlanned)));
    EXPECT_EQ(1u, Actions().size());
    CancelShutdown();
    EXPECT_TRUE(InitiateSystemShutdownExA(nullptr, nullptr, 0, TRUE, TRUE, kPlanned));
    EXPECT_EQ(ERROR_SHUTDOWN_IN_PROGRESS, ErrorOf(ExitWindowsEx(kShutdown, kPlanned)));
}

TEST_F(Power, APrivilegeStaysEnabledUntilItIsDisabled) {
    Adjust(SE_PRIVILEGE_ENABLED);
    EXPECT_TRUE(ExitWindowsEx(kShutdown, 0)) << "the token's handle is closed by now";
    Adjust(0);
    EXPECT_FALSE(ExitWindowsEx(kShutdown, 0));
}

TEST_F(Power, APrivilegeThatTheTokenLacksIsToldBesideSuccess) {
    StartPc([](auto& pc) { pc.privileges.clear(); });
    EXPECT_EQ(ERROR_NOT_ALL_ASSIGNED, Adjust(SE_PRIVILEGE_ENABLED));
    EXPECT_FALSE(ExitWindowsEx(kShutdown, 0));
}

TEST_F(Power, ATokenAllowsWhatItWasOpenedFor) {
    TOKEN_PRIVILEGES privileges = Shutdown(SE_PRIVILEGE_ENABLED);
    const HANDLE token = OpenToken(TOKEN_QUERY);
    EXPECT_EQ(ERROR_ACCESS_DENIED,
              ErrorOf(AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr)));
    EXPECT_TRUE(CloseHandle(token));
    EXPECT_EQ(ERROR_INVALID_HANDLE,
              ErrorOf(AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr)));
    HANDLE none = nullptr;
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(OpenProcessToken(nullptr, TOKEN_QUERY, &none)));
}

TEST_F(Power, PrivilegesGoByTheirNames) {
    LUID luid{};
    EXPECT_TRUE(LookupPrivilegeValueA(nullptr, "SESHUTDOWNPRIVILEGE", &luid));
    EXPECT_EQ(19u, luid.LowPart);
    EXPECT_EQ(ERROR_NO_SUCH_PRIVILEGE, ErrorOf(LookupPrivilegeValueA(nullptr, "SeFlyPrivilege", &luid)));
    EXPECT_EQ(RPC_S_SERVER_UNAVAILABLE, ErrorOf(LookupPrivilegeValueA("OTHER-PC", SE_SHUTDOWN_NAME, &luid)));
}

TEST_F(Power, ASleepThatThePcHasNotFails) {
    StartPc([](auto& pc) { pc.sleepS3 = pc.hibernation = false; });
    Adjust(SE_PRIVILEGE_ENABLED);
    for (const BOOLEAN hibernate : {BOOLEAN{TRUE}, BOOLEAN{FALSE}}) {
        SetLastError(0);
        EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(SetSuspendState(hibernate, TRUE, FALSE)));
    }
    EXPECT_TRUE(Actions().empty());
}

TEST_F(Power, OtherMachinesAndFlagsAreRefused) {
    Adjust(SE_PRIVILEGE_ENABLED);
    char other[] = "OTHER-PC";
    EXPECT_EQ(ERROR_BAD_NETPATH,
              ErrorOf(InitiateSystemShutdownExA(other, nullptr, 0, TRUE, FALSE, kPlanned)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(ExitWindowsEx(EWX_SHUTDOWN, kPlanned)));
}

TEST_F(Power, CapabilitiesAreThoseOfThePc) {
    StartPc([](auto& pc) {
        pc.modernStandby = true;
        pc.sleepS3 = false;
    });
    SYSTEM_POWER_CAPABILITIES capabilities;
    ASSERT_TRUE(GetPwrCapabilities(&capabilities));
    EXPECT_TRUE(capabilities.AoAc);
    EXPECT_EQ(capabilities.AoAc, capabilities.spare2[2]) << "where older headers have no name for it";
    EXPECT_FALSE(capabilities.SystemS3);
    EXPECT_TRUE(capabilities.SystemS4);
    EXPECT_TRUE(capabilities.HiberFilePresent);
    EXPECT_FALSE(GetPwrCapabilities(nullptr));
}

TEST_F(Power, AFreshPcHasForgottenActionsAndPrivileges) {
    Adjust(SE_PRIVILEGE_ENABLED);
    EXPECT_TRUE(ExitWindowsEx(kShutdown, 0));
    StartPc([](auto&) {});
    EXPECT_TRUE(Actions().empty());
    EXPECT_FALSE(ExitWindowsEx(kShutdown, 0));
}

}  // namespace
