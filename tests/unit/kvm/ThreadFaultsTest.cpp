// The threads of a session: one that ends by an exception, and those that can't be started.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

#include "tests/support/ThrowAt.h"
#include "tests/unit/kvm/KvmFixture.h"
#include "winhost/io/MailboxDevice.h"

namespace {

using namespace std::chrono_literals;

class KvmThreadFaults : public KvmFixture {
  protected:
    void FailNextThread() { Gate().FailNth("std::thread", 1, ERROR_NOT_ENOUGH_MEMORY); }
    void ExpectServed(ConsoleClient& client) {
        ASSERT_TRUE(client.Send("served"));
        EXPECT_TRUE(AwaitFirmwareBytes("served"));
    }
};

}  // namespace

TEST_F(KvmThreadFaults, AnExceptionEndsTheListenerAndTheNextOneServes) {
    ExpectError("RunServerKVMThread: ended by an exception: boom");
    Start();
    ThrowAt("accept", std::runtime_error("boom"));
    SendEnable();
    AwaitLog(kCleanedUp);
    EXPECT_TRUE(HasLine("ERROR", "RunServerKVMThread: ended by an exception: boom"));
    EXPECT_EQ(service->m_kvmClientInterface.m_kvmState, kKvmClosing);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
    Gate().Reset();

    CloseSession();
    PassAgentCleanUp();
    Enable();
    ConsoleClient client = ConnectSession();
    ExpectServed(client);
}

TEST_F(KvmThreadFaults, AListenerThatCannotStartCostsTheCommandAndTheNextOneServes) {
    ExpectError("exception error: ");
    Start();
    AwaitHandled();
    FailNextThread();
    SendEnable();
    AwaitHandled();
    AwaitLog("exception error: ");
    EXPECT_EQ(winhost::MailboxDevice::Instance().PendingReads(), 9u);
    Enable();
    ConsoleClient client = ConnectSession();
    ExpectServed(client);
}

TEST_F(KvmThreadFaults, ASessionWithoutAReceiverStillEndsByCommand) {
    ExpectError("StartDataRecvThread: Failed to start the KVM data receiver thread");
    Start();
    Enable();
    FailNextThread();
    ConsoleClient client = Connect();
    AwaitLog("StartDataRecvThread: Failed to start the KVM data receiver thread");
    CloseSession();
    EXPECT_TRUE(client.AwaitClose());
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

TEST_F(KvmThreadFaults, TheAgentIsRemovedAllTheSameWithoutAThreadForIt) {
    ConsoleClient client = StartSession();
    ASSERT_TRUE(AwaitAgents(1));
    FailNextThread();
    SendClose();
    AwaitLog("StartAgentCleanUp: no thread to remove the agent, the next session waits for it");
    PassAgentCleanUp();
    EXPECT_TRUE(AwaitAgents(0));
    EXPECT_TRUE(AwaitState(kKvmNeverEnabled));
    AwaitHandled();
}

// On the thread of the clean-up, and on that of the session when there is no other.
TEST_F(KvmThreadFaults, AnExceptionWhileTheAgentIsRemovedDoesNotHoldTheNextSession) {
    constexpr char kEnded[] = "RemoveAgentLater: ended by an exception: ";
    ExpectError(kEnded);
    Start();
    size_t ends = 0;
    const auto sessionEndsWith = [&](const std::string& text) {
        CloseSession();
        PassSleepOf(2s);
        AwaitLog(kEnded + text, ++ends);
        ASSERT_TRUE(AwaitState(kKvmNeverEnabled));
        Gate().Reset();
        StartNoAgents();
    };
    StartNoAgents();
    for (const bool standard : {true, false}) {
        ends = 0;
        Enable();
        ConsoleClient client = ConnectSession();
        if (standard) {
            ThrowAt("CreateToolhelp32Snapshot", std::bad_alloc());
        } else {
            ThrowAt("CreateToolhelp32Snapshot", 1);
        }
        sessionEndsWith(standard ? "std::bad_alloc" : "Unknown exception");
    }
    Enable();
    ConsoleClient client = ConnectSession();
    ExpectServed(client);
}

TEST_F(KvmThreadFaults, TheAgentIsRemovedAlsoWithoutMemoryForItsThread) {
    ConsoleClient client = StartSession();
    ASSERT_TRUE(AwaitAgents(1));
    ThrowAt("std::thread", std::bad_alloc());
    SendClose();
    AwaitLog("StartAgentCleanUp: no thread to remove the agent, the next session waits for it");
    Gate().Reset();
    PassAgentCleanUp();
    EXPECT_TRUE(AwaitAgents(0));
    AwaitHandled();
    Enable();
    ConsoleClient next = ConnectSession();
    ExpectServed(next);
}
