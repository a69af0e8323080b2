// Tokens of processes, their copies and their sessions.
#include "winhost/power/Privileges.h"
#include "winhost/tests/LaunchFixture.h"

namespace {

class TokenTest : public LaunchFixture {
  protected:
    // Tokens go with the test.
    HANDLE TokenOf(DWORD id, DWORD access = TOKEN_ALL_ACCESS) {
        const HANDLE process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, id);
        HANDLE token = nullptr;
        EXPECT_TRUE(OpenProcessToken(process, access, &token));
        CloseHandle(process);
        return Keep(token);
    }
    HANDLE Duplicate(HANDLE token, DWORD access = 0) {
        HANDLE copy = nullptr;
        SetLastError(0);
        return DuplicateTokenEx(token, access, nullptr, SecurityImpersonation, TokenPrimary, &copy)
                   ? Keep(copy)
                   : nullptr;
    }
    static DWORD ErrorOfSession(HANDLE token, DWORD session) {
        SetLastError(0);
        return SetTokenInformation(token, TokenSessionId, &session, sizeof session) ? 0 : GetLastError();
    }
    static void EnableTcb() {
        ASSERT_TRUE(winhost::EnablePrivilege(winhost::PrivilegeByName(SE_TCB_NAME), true));
    }
};

TEST_F(TokenTest, OpeningOneNeedsARightToAsk) {
    for (const DWORD enough : {PROCESS_QUERY_INFORMATION, PROCESS_QUERY_LIMITED_INFORMATION}) {
        const HANDLE process = OpenProcess(enough, FALSE, IdOf("winlogon.exe"));
        HANDLE token = nullptr;
        EXPECT_TRUE(OpenProcessToken(process, TOKEN_ALL_ACCESS, &token));
        CloseHandle(token);
        CloseHandle(process);
    }
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, IdOf("winlogon.exe"));
    HANDLE token = nullptr;
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(OpenProcessToken(process, TOKEN_ALL_ACCESS, &token)));
    CloseHandle(process);
}

TEST_F(TokenTest, TheCallingProcessHasOneTokenHoweverItIsOpened) {
    const HANDLE token = TokenOf(GetCurrentProcessId());
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    ASSERT_TRUE(LookupPrivilegeValueA(nullptr, SE_TCB_NAME, &privileges.Privileges[0].Luid));
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    EXPECT_TRUE(AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr));
    EXPECT_EQ(ERROR_SUCCESS, GetLastError());
    EXPECT_TRUE(winhost::IsPrivilegeEnabled(SE_TCB_NAME));
}

TEST_F(TokenTest, PrivilegesOfOthersAreLeftAlone) {
    const HANDLE token = TokenOf(IdOf("winlogon.exe"));
    TOKEN_PRIVILEGES privileges{};
    EXPECT_EQ(ERROR_NOT_SUPPORTED,
              ErrorOf(AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr)));
}

TEST_F(TokenTest, DuplicatingNeedsItsRight) {
    const HANDLE token = TokenOf(IdOf("winlogon.exe"), TOKEN_QUERY);
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(Duplicate(token)));
    CloseHandle(token);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(Duplicate(token)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(Duplicate(nullptr)));
}

TEST_F(TokenTest, ASessionIsSetWithThePrivilegeEnabled) {
    const HANDLE token = Keep(LogonToken());
    EXPECT_EQ(ERROR_PRIVILEGE_NOT_HELD, ErrorOfSession(token, 2));
    EnableTcb();
    EXPECT_EQ(0u, ErrorOfSession(token, 2));
    WriteSleeper("app.exe");
    const Started started = StartWith(token, R"("C:\app.exe" 1000)");
    EXPECT_EQ(2u, SessionOf(started.Id()));
}

TEST_F(TokenTest, ACopyBeginsInTheSessionOfItsProcess) {
    Change([](auto& pc) { pc.processes = {{"winlogon.exe", 5000000, 5}}; });
    WriteSleeper("app.exe");
    const Started started = Start(R"("C:\app.exe" 1000)");
    EXPECT_EQ(5u, SessionOf(started.Id()));
}

TEST_F(TokenTest, ASessionIsSetOnCopiesOnlyAndWithItsRight) {
    EnableTcb();
    const HANDLE ofProcess = TokenOf(IdOf("winlogon.exe"));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOfSession(ofProcess, 2));
    const HANDLE weak = Duplicate(ofProcess, TOKEN_QUERY);
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfSession(weak, 2));
    const HANDLE full = Duplicate(ofProcess);
    DWORD session = 2;
    EXPECT_EQ(ERROR_BAD_LENGTH, ErrorOf(SetTokenInformation(full, TokenSessionId, &session, 2)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(SetTokenInformation(full, TokenOwner, &session, sizeof session)));
    for (const HANDLE token : {ofProcess, weak, full})
        CloseHandle(token);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOfSession(full, 2));
}

}  // namespace
