// The start of the display's threads, and what is posted to them.
#include <gtest/gtest.h>

#include "tests/unit/kvm/DisplayFixture.h"

namespace {

using DisplayStart = DisplayFixture;

constexpr char kCreated[] = "LUX_KVM: DoInitLUXKVM: Created m_pKVMDisplayMgrThreadObj: ";

}  // namespace

TEST_F(DisplayStart, StartsBothThreadsAndThenTheAgent) {
    EXPECT_TRUE(Begin());
    AwaitLog(kAwaitsAgent);
    ExpectLogInOrder({kCreated, "KVM APP Command:", "LUX_KVM:LaunchKVMAgent success"});
    EXPECT_TRUE(HasLine("INFO", "LUX_KVM:LaunchKVMAgent success"));
    EXPECT_EQ(LogCount("LUX_KVM: CreateEvent m_KvmAppEvent handle "), 1u);
    EXPECT_EQ(LogCount(" m_pZelKvmAppThreadObj 0000000000000000"), 0u);
    EXPECT_EQ(LaunchCount(" -V 50 -E 1"), 1u);
}

TEST_F(DisplayStart, DoesNothingBelowLevel50) {
    StartManager(49);
    EXPECT_TRUE(Begin());
    EXPECT_EQ(LogCount("LUX_KVM"), 0u);
    EXPECT_EQ(LogCount("KVM APP Command:"), 0u);
}

TEST_F(DisplayStart, DoesNothingWhenTheDisplayModeIsOff) {
    StartManager();
    EXPECT_TRUE(manager->DoInitLUXKVM());
    EXPECT_EQ(LogCount("LUX_KVM"), 0u);
}

TEST_F(DisplayStart, ASecondRequestStartsOneMoreAgentAndNoThread) {
    Begin();
    AwaitLog(kAwaitsAgent);
    EXPECT_TRUE(manager->DoInitLUXKVM());
    EXPECT_EQ(LogCount(kCreated), 2u);
    EXPECT_EQ(LogCount("KVM APP Command:"), 2u);
    EXPECT_EQ(LogCount(kAwaitsAgent), 1u);
    EXPECT_EQ(Gate().Count("CreateNamedPipeA"), 1u);
}

TEST_F(DisplayStart, FailsWithoutAnAgentAndLeavesTheThreads) {
    Gate().FailNth("GetModuleFileNameA", 1, ERROR_INSUFFICIENT_BUFFER, true);
    ExpectError("LUX_KVM:DoInitLUXKVM: Launch KVM_Agent failed");
    EXPECT_FALSE(Begin());
    AwaitLog(kAwaitsAgent);
    Gate().Reset();
    AgentPeer().SendConfig();
    AwaitLog(kBroughtUp);
}

TEST_F(DisplayStart, AThreadThatCannotBeStartedIsTheCallersToHandle) {
    StartManager();
    Gate().FailNth("std::thread", 1, 1);
    EXPECT_THROW(Begin(), std::system_error);
    // The next request begins anew.
    EXPECT_TRUE(Begin());
    AwaitLog(kAwaitsAgent);
}

TEST_F(DisplayStart, NothingIsPostedWithoutThreads) {
    StartManager();
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    manager->SetKvmAppEvent(AppEvtStartKVMOperation);
    EXPECT_TRUE(HasLine("INFO", "LUX_KVM: m_DisplayMgrEvent null, nothing to post 1"));
    EXPECT_TRUE(HasLine("INFO", "LUX_KVM: m_KvmAppEvent null, nothing to post 1"));
    EXPECT_EQ(Gate().Count("SetEvent"), 0u);
}

TEST_F(DisplayStart, APostThatFailsIsLogged) {
    ExpectErrors({"LUX_KVM: SetDisplayMgrEvent SetEvent failed Error: 8",
                  "LUX_KVM: m_KvmAppEvent SetEvent failed Error: 6", "The handle is invalid."});
    Begin();
    AwaitLog(kAwaitsAgent);
    Gate().FailNth("SetEvent", 1, ERROR_NOT_ENOUGH_MEMORY);
    manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
    Gate().FailNth("SetEvent", 1, ERROR_INVALID_HANDLE);
    manager->SetKvmAppEvent(AppEvtStartKVMOperation);
}

TEST_F(DisplayStart, APostThatFailsWithoutATextSaysSo) {
    ExpectErrors({"LUX_KVM: m_KvmAppEvent SetEvent failed Error: 6", "No error code found"});
    Begin();
    AwaitLog(kAwaitsAgent);
    Gate().FailNth("FormatMessageA", 1, ERROR_NOT_ENOUGH_MEMORY);
    Gate().FailNth("SetEvent", 1, ERROR_INVALID_HANDLE);
    manager->SetKvmAppEvent(AppEvtStartKVMOperation);
}

TEST_F(DisplayStart, AThreadWithoutItsEventEnds) {
    ExpectError("LUX_KVM: CreateEvent m_KvmAppEvent failed Error code: 8");
    StartManager();
    manager->m_bLuxKvmEnabled = 1;
    Gate().FailNth("CreateEventA", 1, ERROR_NOT_ENOUGH_MEMORY, true);
    manager->DoInitLUXKVM();
    AwaitLog("LUX_KVM: CreateEvent failed Error code: 8");
    AwaitLog("LUX_KVM: CreateEvent m_KvmAppEvent failed Error code: 8");
    AwaitLog(kTerminated);
    Gate().Reset();
    EXPECT_TRUE(HasLine("INFO", "LUX_KVM: CreateEvent failed Error code: 8"));
    EXPECT_TRUE(Eventually([&] {
        manager->SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
        return LogCount("LUX_KVM: m_DisplayMgrEvent null, nothing to post 1") != 0;
    }));
    StopCapture();
    StopApp();
}
