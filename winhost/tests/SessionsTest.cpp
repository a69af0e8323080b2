// Who is at the console, and whether the desktop there is locked.
#include <wtsapi32.h>

#include <cstddef>

#include "winhost/tests/PcFixture.h"

namespace {

static_assert(sizeof(WTSINFOEXA) == 160 && offsetof(WTSINFOEXA, Data) == 8);
static_assert(offsetof(WTSINFOEX_LEVEL1_A, SessionFlags) == 8);
static_assert(offsetof(WTSINFOEX_LEVEL1_A, LogonTime) == 88);
static_assert(WTSSessionInfoEx == 25);

constexpr DWORD kNone = 0xFFFFFFFF;

class Sessions : public PcFixture {
  protected:
    struct Answer {
        BOOL result;
        DWORD error, bytes;
        WTSINFOEXA info;
    };
    static Answer Query(DWORD session, WTS_INFO_CLASS infoClass = WTSSessionInfoEx, HANDLE server = nullptr) {
        Answer answer{};
        LPSTR buffer = nullptr;
        SetLastError(0);
        answer.result = WTSQuerySessionInformationA(server, session, infoClass, &buffer, &answer.bytes);
        answer.error = GetLastError();
        if (answer.result && answer.bytes == sizeof answer.info) {
            answer.info = *reinterpret_cast<const WTSINFOEXA*>(buffer);
        }
        WTSFreeMemory(buffer);
        return answer;
    }
    static LONG FlagsOf(DWORD session) {
        const Answer answer = Query(session);
        EXPECT_TRUE(answer.result);
        EXPECT_EQ(1u, answer.info.Level);
        EXPECT_EQ(session, answer.info.Data.WTSInfoExLevel1.SessionId);
        return answer.info.Data.WTSInfoExLevel1.SessionFlags;
    }
};

TEST_F(Sessions, TheConsolesSessionIsThatOfThePc) {
    EXPECT_EQ(1u, WTSGetActiveConsoleSessionId());
    Change([](auto& pc) { pc.consoleSession = 3; });
    EXPECT_EQ(3u, WTSGetActiveConsoleSessionId());
    Change([](auto& pc) { pc.consoleSession = winhost::PcDescription::kNoSession; });
    EXPECT_EQ(kNone, WTSGetActiveConsoleSessionId());
}

TEST_F(Sessions, ALockedDesktopHasTheFlag0) {
    EXPECT_EQ(LONG{WTS_SESSIONSTATE_UNLOCK}, FlagsOf(1));
    Change([](auto& pc) { pc.desktopLocked = true; });
    EXPECT_EQ(LONG{WTS_SESSIONSTATE_LOCK}, FlagsOf(1));
    EXPECT_EQ(0, FlagsOf(1));
}

TEST_F(Sessions, TheConsolesSessionIsActive) {
    const WTSINFOEX_LEVEL1_A console = Query(1).info.Data.WTSInfoExLevel1;
    EXPECT_EQ(WTSActive, console.SessionState);
    EXPECT_STREQ("Console", console.WinStationName);
    EXPECT_GT(console.CurrentTime.QuadPart, 0);
}

TEST_F(Sessions, OfOthersTheStateIsUnknown) {
    EXPECT_EQ(static_cast<LONG>(WTS_SESSIONSTATE_UNKNOWN), FlagsOf(0));
    EXPECT_EQ(WTSDisconnected, Query(0).info.Data.WTSInfoExLevel1.SessionState);
    Change([](auto& pc) { pc.consoleSession = 2; });
    EXPECT_EQ(static_cast<LONG>(WTS_SESSIONSTATE_UNKNOWN), FlagsOf(1)) << "that of the logon program";
}

TEST_F(Sessions, NoSessionAtTheConsoleIsTheNumberOfTheCallersOwn) {
    Change([](auto& pc) { pc.consoleSession = winhost::PcDescription::kNoSession; });
    const Answer answer = Query(WTSGetActiveConsoleSessionId());
    EXPECT_TRUE(answer.result);
    EXPECT_EQ(0u, answer.info.Data.WTSInfoExLevel1.SessionId);
    EXPECT_EQ(static_cast<LONG>(WTS_SESSIONSTATE_UNKNOWN), answer.info.Data.WTSInfoExLevel1.SessionFlags);
}

TEST_F(Sessions, ASessionThatThereIsNotIsNotFound) {
    EXPECT_FALSE(Query(7).result);
    EXPECT_EQ(ERROR_CTX_WINSTATION_NOT_FOUND, Query(7).error);
}

TEST_F(Sessions, AnAnswerMayBeShortOrOfAnotherLevel) {
    Change([](auto& pc) { pc.sessionInfoLevel = 2; });
    EXPECT_EQ(2u, Query(1).info.Level);
    Change([](auto& pc) { pc.sessionInfoBytes = 4; });
    EXPECT_EQ(4u, Query(1).bytes);
    Change([](auto& pc) { pc.sessionInfoBytes = 4000; });
    EXPECT_EQ(sizeof(WTSINFOEXA), Query(1).bytes);
}

TEST_F(Sessions, WhatCannotBeAnsweredFails) {
    EXPECT_EQ(ERROR_NOT_SUPPORTED, Query(1, WTSUserName).error);
    int other = 0;
    EXPECT_EQ(ERROR_INVALID_HANDLE, Query(1, WTSSessionInfoEx, &other).error);
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              ErrorOf(WTSQuerySessionInformationA(nullptr, 1, WTSSessionInfoEx, nullptr, nullptr)));
}

TEST_F(Sessions, AProcessIsInItsSession) {
    DWORD session = 9;
    for (const DWORD none : {DWORD{0}, DWORD{5000004}, DWORD{0xFFFFFFFF}}) {
        SetLastError(0);
        EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(ProcessIdToSessionId(none, &session))) << none;
    }
    EXPECT_EQ(9u, session);
    ASSERT_TRUE(ProcessIdToSessionId(GetCurrentProcessId(), &session));
    EXPECT_EQ(0u, session) << "a service";
    Change([](auto& pc) { pc.startedByScm = false; });
    ASSERT_TRUE(ProcessIdToSessionId(GetCurrentProcessId(), &session));
    EXPECT_EQ(1u, session) << "a program of the console";
    Change([](auto& pc) { pc.processes = {{"winlogon.exe", 5000000, 4}}; });
    ASSERT_TRUE(ProcessIdToSessionId(5000000, &session));
    EXPECT_EQ(4u, session) << "a described one";
}

TEST_F(Sessions, TheScreenIsThatOfThePc) {
    EXPECT_EQ(1920, GetSystemMetrics(SM_CXSCREEN));
    EXPECT_EQ(1080, GetSystemMetrics(SM_CYSCREEN));
    Change([](auto& pc) { pc.screen = {1024, 768}; });
    EXPECT_EQ(1024, GetSystemMetrics(SM_CXSCREEN));
    EXPECT_EQ(768, GetSystemMetrics(SM_CYSCREEN));
}

}  // namespace
