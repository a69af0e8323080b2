#include <gtest/gtest.h>

#include <winsock2.h>
#include <windows.h>

#include <set>
#include <string>
#include <vector>

#include "winhost/core/Gate.h"
#include "winhost/tests/Errors.h"

using winhost::Gate;

namespace {

class GateTest : public testing::Test {
  protected:
    GateTest() { m_gate.Reset(); }
    [[gnu::noinline]] bool SetEventSucceeds() { return SetEvent(m_event) != FALSE; }
    Gate& m_gate = Gate::Instance();
    const HANDLE m_event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
};

TEST_F(GateTest, CountsCallsByName) {
    SetEvent(m_event);
    SetEvent(m_event);
    ResetEvent(m_event);
    EXPECT_EQ(m_gate.Count("SetEvent"), 2u);
    EXPECT_EQ(m_gate.Count("ResetEvent"), 1u);
    EXPECT_EQ(m_gate.Count("CreateEventA"), 0u);
}

TEST_F(GateTest, CountsAllCallsUnderNoName) {
    SetEvent(m_event);
    htons(0);
    EXPECT_EQ(m_gate.Count(""), 2u);
}

TEST_F(GateTest, FailsTheNthCallOnce) {
    m_gate.FailNth("SetEvent", 2, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_TRUE(SetEventSucceeds());
    EXPECT_EQ(ERROR_NOT_ENOUGH_MEMORY, ErrorOf(SetEventSucceeds()));
    EXPECT_TRUE(SetEventSucceeds());
    EXPECT_EQ(m_gate.Failures(), 1u);
}

TEST_F(GateTest, FailsTheNthCallAndAllAfterIt) {
    m_gate.FailNth("SetEvent", 2, ERROR_NOT_ENOUGH_MEMORY, true);
    EXPECT_TRUE(SetEventSucceeds());
    EXPECT_FALSE(SetEventSucceeds());
    EXPECT_FALSE(SetEventSucceeds());
}

TEST_F(GateTest, FailsTheNthCallOfAnyName) {
    m_gate.FailNth("", 2, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_NE(CreateEventA(nullptr, TRUE, FALSE, nullptr), nullptr);
    EXPECT_EQ(CreateEventA(nullptr, TRUE, FALSE, nullptr), nullptr);
}

TEST_F(GateTest, AsksItsJudgeAtEachCallThatCanFail) {
    std::vector<std::string> calls;
    std::set<const void*> places;
    m_gate.Ask([&](const char* call, const void* caller) -> uint32_t {
        calls.push_back(call);
        places.insert(caller);
        return calls.size() == 2 ? ERROR_NOT_ENOUGH_MEMORY : 0;
    });
    EXPECT_TRUE(SetEvent(m_event));
    EXPECT_EQ(ERROR_NOT_ENOUGH_MEMORY, ErrorOf(CreateEventA(nullptr, TRUE, FALSE, nullptr)));
    EXPECT_NE(GetCurrentThreadId(), 0u) << "can't fail";
    EXPECT_TRUE(SetEventSucceeds());
    EXPECT_TRUE(SetEventSucceeds());
    EXPECT_EQ(calls, (std::vector<std::string>{"SetEvent", "CreateEventA", "SetEvent", "SetEvent"}));
    EXPECT_EQ(places.size(), 3u) << "two of them from the same place";
    EXPECT_EQ(m_gate.Failures(), 1u);
    m_gate.Reset();
    EXPECT_TRUE(SetEventSucceeds());
    EXPECT_EQ(calls.size(), 4u);
}

TEST_F(GateTest, PassesOverCallsThatCannotFail) {
    m_gate.FailNth("", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_NE(GetCurrentThreadId(), 0u);
    EXPECT_TRUE(SetEventSucceeds()) << "its caller owns the event";
    EXPECT_EQ(WaitForSingleObject(m_event, 0), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(CreateEventA(nullptr, TRUE, FALSE, nullptr), nullptr);
}

TEST_F(GateTest, AFailedCallDoesNothing) {
    m_gate.FailNth("SetEvent", 1, ERROR_NOT_ENOUGH_MEMORY);
    SetEvent(m_event);
    EXPECT_EQ(WaitForSingleObject(m_event, 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST_F(GateTest, HoldsACallForTheDelay) {
    m_gate.Delay("SetEvent", std::chrono::milliseconds(20));
    const auto before = std::chrono::steady_clock::now();
    SetEvent(m_event);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
}

TEST_F(GateTest, ForgetsEverythingAtReset) {
    m_gate.FailNth("SetEvent", 1, ERROR_NOT_ENOUGH_MEMORY, true);
    SetEvent(m_event);
    m_gate.Reset();
    EXPECT_TRUE(SetEventSucceeds());
    EXPECT_EQ(m_gate.Count("SetEvent"), 1u);
    EXPECT_EQ(m_gate.Failures(), 0u);
}

}  // namespace
