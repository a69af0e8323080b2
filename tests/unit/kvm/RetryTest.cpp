// Blocks of the client that the firmware has no room for.
#include <gtest/gtest.h>

#include "tests/unit/kvm/KvmFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr uint32_t kRetryStatus = 1450;
constexpr char kReAttempt[] = "Re-attempting passing recv buffer. Re-attempt: ";
constexpr char kReturnCode[] = "Return code for KVM write packet: ";

class KvmRetry : public KvmFixture {
  protected:
    ConsoleClient StartRefused(uint32_t version, uint32_t status, int times = mpm::kForever) {
        ExpectErrors({kRefused, kRefusedReturn});
        ConsoleClient client = StartSession(version);
        firmware.Refuse("WriteKVMPacket", status, times);
        EXPECT_TRUE(client.Send("refused"));
        return client;
    }
    // The next block is the sign that the one before has been left.
    void AwaitNextBlock(ConsoleClient& client) {
        firmware.ClearFaults();
        ASSERT_TRUE(client.Send("next"));
        ASSERT_TRUE(firmware.AwaitRequest(
            "WriteKVMPacket", [](const mpm::Request& request) { return request.Text() == "next"; }));
    }
    // So that a test can act before the tries are over.
    void AnswerSlowly() { firmware.Delay("WriteKVMPacket", 20ms); }
    void AwaitTries(size_t count) { ASSERT_TRUE(firmware.AwaitCount("WriteKVMPacket", count)); }
};

}  // namespace

TEST_F(KvmRetry, TriesTheBlockAgainUntilThereIsRoom) {
    ConsoleClient client = StartRefused(31, kRetryStatus, 3);
    AwaitTries(4);
    AwaitNextBlock(client);
    EXPECT_EQ(firmware.Count("WriteKVMPacket"), 5u);
    ExpectLogInOrder(
        {"Return code for KVM write packet: 1450 (Expecting 1450 (ERROR_RETRY) for buffer retry)",
         "Re-attempting passing recv buffer. Re-attempt: 1", kReturnCode,
         "Re-attempting passing recv buffer. Re-attempt: 2", kReturnCode,
         "Re-attempting passing recv buffer. Re-attempt: 3"});
    EXPECT_EQ(LogCount(kReAttempt), 3u);
    EXPECT_EQ(LogCount(kReturnCode), 3u);
    EXPECT_TRUE(HasLine("WARN", "Re-attempting passing recv buffer. Re-attempt: 1"));
    EXPECT_TRUE(HasLine(
        "WARN", "Return code for KVM write packet: 1450 (Expecting 1450 (ERROR_RETRY) for buffer retry)"));
    for (const mpm::Request& request : firmware.Requests("WriteKVMPacket"))
        EXPECT_TRUE(request.Text() == "refused" || request.Text() == "next") << request.Text();
}

TEST_F(KvmRetry, DropsTheBlockAfter601Tries) {
    ConsoleClient client = StartRefused(31, kRetryStatus);
    AwaitTries(601);
    EXPECT_TRUE(Eventually([&] { return LogCount(kReturnCode) == 601; }));
    AwaitNextBlock(client);
    EXPECT_EQ(firmware.Count("WriteKVMPacket"), 602u);
    EXPECT_EQ(LogCount(kReAttempt), 600u);
    EXPECT_EQ(LogCount("Re-attempting passing recv buffer. Re-attempt: 600"), 1u);
    EXPECT_EQ(LogCount(kReturnCode), 601u);
    EXPECT_EQ(LogCount("Trigger KVM shutdown"), 0u);
    EXPECT_TRUE(client.IsQuiet());
}

TEST_F(KvmRetry, DropsTheBlockAfterOneTryBelowVersion31) {
    ConsoleClient client = StartRefused(30, kRetryStatus);
    AwaitTries(1);
    AwaitLog(kRefusedReturn);
    AwaitNextBlock(client);
    EXPECT_EQ(firmware.Count("WriteKVMPacket"), 2u);
    EXPECT_EQ(LogCount(kReAttempt), 0u);
    EXPECT_EQ(LogCount(kReturnCode), 0u);
}

TEST_F(KvmRetry, DropsTheBlockAtOnceWithAnotherStatus) {
    ConsoleClient client = StartRefused(31, ERROR_GEN_FAILURE);
    AwaitTries(1);
    AwaitLog(kReturnCode);
    AwaitNextBlock(client);
    EXPECT_EQ(firmware.Count("WriteKVMPacket"), 2u);
    EXPECT_EQ(LogCount(kReAttempt), 0u);
    EXPECT_EQ(LogCount(kReturnCode), 1u);
    EXPECT_TRUE(HasLine(
        "WARN", "Return code for KVM write packet: 31 (Expecting 1450 (ERROR_RETRY) for buffer retry)"));
}

TEST_F(KvmRetry, DropsTheBlockWhenAnotherStatusFollowsTheFirst) {
    AnswerSlowly();
    ConsoleClient client = StartRefused(31, kRetryStatus);
    AwaitTries(2);
    firmware.Refuse("WriteKVMPacket", ERROR_GEN_FAILURE);
    AwaitLog("Return code for KVM write packet: 31 (");
    AwaitNextBlock(client);
    EXPECT_EQ(LogCount("Return code for KVM write packet: 31 ("), 1u);
}

TEST_F(KvmRetry, EndsWithTheSession) {
    AnswerSlowly();
    ConsoleClient client = StartRefused(31, kRetryStatus);
    AwaitTries(2);
    CloseSession();
    EXPECT_TRUE(client.AwaitClose());
    const size_t tries = firmware.Count("WriteKVMPacket");
    EXPECT_LT(tries, 601u);
    EXPECT_EQ(LogCount(kReceiverExit), 1u);
    EXPECT_EQ(LogCount("Trigger KVM shutdown"), 0u);
    firmware.ClearFaults();
    AwaitHandled();
    EXPECT_EQ(firmware.Count("WriteKVMPacket"), tries);
}

TEST_F(KvmRetry, EndsWithTheSessionAlsoWhenTheFirmwareFallsSilent) {
    AnswerSlowly();
    ConsoleClient client = StartRefused(31, kRetryStatus);
    AwaitTries(2);
    AwaitSilenceAt("WriteKVMPacket");
    SendClose();
    ASSERT_TRUE(AwaitState(kKvmClosing));
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog("DoCleanUp: Waiting for the DataRecvThread to exit");
    EXPECT_EQ(LogCount("DoCleanUp: DataRecvThread exit complete"), 0u);
    firmware.Release("WriteKVMPacket");
    AwaitLog(kCleanedUp);
    AwaitHandled();
}
