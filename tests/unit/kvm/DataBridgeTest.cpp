// The bytes of a session: unchanged, unframed, in both directions.
#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>
#include <thread>

#include "mailbox/MailBoxDriverInterface.h"
#include "tests/unit/kvm/KvmFixture.h"

namespace {

using namespace std::chrono_literals;
using KvmDataBridge = KvmFixture;

std::string AllBytes(size_t size) {
    std::string bytes;
    for (size_t i = 0; i < size; ++i)
        bytes += static_cast<char>(i * 7 + i / 256);
    return bytes;
}

constexpr char kReceiveRetry[] =
    "KVMDataRecvThread: recv() failed with error WSAEWOULDBLOCK, retrying to read data on the socket";
constexpr char kSendRetry[] = "SendDataToKVMClient: send() failed with error WSAEWOULDBLOCK, retyring...";
constexpr char kReceiverShutdown[] = "KVMDataRecvThread: Trigger KVM shutdown";
constexpr char kSenderShutdown[] = "SendDataToKVMClient: Trigger KVM shutdown";

}  // namespace

TEST_F(KvmDataBridge, CarriesTheClientsBytesToTheFirmware) {
    ConsoleClient client = StartSession();
    const std::string bytes = AllBytes(5000);
    ASSERT_TRUE(client.Send(bytes));
    EXPECT_TRUE(AwaitFirmwareBytes(bytes));
    EXPECT_EQ(LogCount("Return code for KVM write packet"), 0u);
}

TEST_F(KvmDataBridge, CarriesTheFirmwaresBytesToTheClient) {
    ConsoleClient client = StartSession();
    const std::string bytes = AllBytes(5000);
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, bytes);
    EXPECT_EQ(client.Receive(bytes.size()), bytes);
    AwaitLog("SendDataToKVMClient: KVM data sent: 5000 (0x1388)");
    ExpectLogInOrder({"SendDataToKVMClient: sending packet of size 5000 to KVM client",
                      "SendDataToKVMClient: KVM data sent: 5000 (0x1388)"});
    EXPECT_TRUE(HasLine("INFO", "SendDataToKVMClient: sending packet of size 5000 to KVM client"));
    EXPECT_TRUE(HasLine("INFO", "SendDataToKVMClient: KVM data sent: 5000 (0x1388)"));
}

TEST_F(KvmDataBridge, MakesOneRequestOfOneReceive) {
    ConsoleClient client = StartSession();
    ASSERT_TRUE(client.Send("a"));
    ASSERT_TRUE(firmware.AwaitCount("WriteKVMPacket", 1));
    ASSERT_TRUE(client.Send("bc"));
    ASSERT_TRUE(firmware.AwaitCount("WriteKVMPacket", 2));
    const auto requests = firmware.Requests("WriteKVMPacket");
    EXPECT_EQ(requests[0].Text(), "a");
    EXPECT_EQ(requests[1].Text(), "bc");
    EXPECT_EQ(requests[0].code, MailboxCode::WriteKVMPacket);
}

TEST_F(KvmDataBridge, PassesUpTo128KiBInOneRequest) {
    constexpr size_t kBlock = 0x20000;
    ConsoleClient client = StartSession();
    const std::string bytes(4u << 20, 'b');
    const auto wholeBlockCame = [&] {
        for (const mpm::Request& request : firmware.Requests("WriteKVMPacket"))
            if (request.data.size() == kBlock) return true;
        return false;
    };
    // Held back for a while, the connection grows its buffers until more than one block waits in it.
    for (size_t sent = 0; !wholeBlockCame() && sent < 16 * bytes.size(); sent += bytes.size()) {
        firmware.Clear();
        firmware.Delay("WriteKVMPacket", 2ms);
        ASSERT_TRUE(client.Send(bytes));
    }
    EXPECT_TRUE(wholeBlockCame());
    for (const mpm::Request& request : firmware.Requests("WriteKVMPacket"))
        EXPECT_LE(request.data.size(), kBlock);
}

TEST_F(KvmDataBridge, TakesTheLargestMessageOfTheFirmware) {
    ConsoleClient client = StartSession();
    const std::string bytes = AllBytes(mpm::kMaxMessagePayload);
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, bytes);
    EXPECT_EQ(client.Receive(bytes.size()), bytes);
}

TEST_F(KvmDataBridge, RunsInBothDirectionsAtOnce) {
    firmware.Change([](mpm::Settings& settings) { settings.Kvm = mpm::Peer::Echo; });
    ConsoleClient client = StartSession();
    const std::string bytes = AllBytes(1u << 20);
    std::thread sender([&] { EXPECT_TRUE(client.Send(bytes)); });
    EXPECT_EQ(client.Receive(bytes.size()), bytes);
    sender.join();
}

TEST_F(KvmDataBridge, DropsWhatComesWithoutAClient) {
    Start();
    Enable();
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "lost");
    AwaitLog("SendDataToKVMClient: Socket is closed");
    EXPECT_TRUE(HasLine("INFO", "SendDataToKVMClient: Socket is closed"));
    ExpectLogInOrder({"SendDataToKVMClient: sending packet of size 4 to KVM client",
                      "SendDataToKVMClient: Socket is closed"});
    ConsoleClient client = ConnectSession();
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "kept");
    EXPECT_EQ(client.Receive(4), "kept");
}

// As while the agent is still being started.
TEST_F(KvmDataBridge, DropsWhatComesBeforeTheSessionHasBegun) {
    constexpr char kDropped[] = "SendDataToKVMClient: Socket status is not initiated, so return";
    ConsoleClient client = StartSession();
    for (const uint16_t state : {kKvmNoClient, kKvmCleanedUp}) {
        service->m_kvmClientInterface.m_kvmSocketState = state;
        const size_t before = LogCount(kDropped);
        firmware.Send(MPM_ZEL_CMD_KVM_DATA, "lost");
        AwaitLog(kDropped, before + 1);
    }
    EXPECT_TRUE(HasLine("INFO", kDropped));
    service->m_kvmClientInterface.m_kvmSocketState = kKvmClientConnected;
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "kept");
    EXPECT_EQ(client.Receive(4), "kept");
}

TEST_F(KvmDataBridge, TakesAnEmptyMessageOfTheFirmwareForNothing) {
    ConsoleClient client = StartSession();
    firmware.Send(MPM_ZEL_CMD_KVM_DATA);
    AwaitHandled();
    EXPECT_EQ(LogCount("SendDataToKVMClient"), 0u);
    EXPECT_TRUE(client.IsQuiet());
}

TEST_F(KvmDataBridge, EndsTheSessionWhenTheClientCloses) {
    ConsoleClient client = StartSession();
    client.Close();
    AwaitLog(kCleanedUp);
    ExpectLogInOrder({"KVMDataRecvThread, Client closed the connection. Socket address: ", kReceiverShutdown,
                      kReceiverExit});
    ExpectLogInOrder({kReceiverShutdown, "Do KVM Cleanup", "DoKVMCleanUp called with socket state: 1",
                      "called TerminateKVMAgent", kCleanedUp});
    EXPECT_TRUE(HasLine("INFO", kReceiverShutdown));
    EXPECT_TRUE(HasLine("INFO", kReceiverExit));
    const auto request = firmware.AwaitRequest("WriteCloseSocketcmd");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->As<CloseSocketRecord>().port, 22);
}

TEST_F(KvmDataBridge, EndsTheSessionWhenTheConnectionIsReset) {
    constexpr char kFailed[] = "KVMDataRecvThread: recv() failed with error: 10054";
    ConsoleClient client = StartSession();
    ExpectError(kFailed);
    client.Reset();
    AwaitLog(kCleanedUp);
    ExpectLogInOrder({kFailed, kReceiverShutdown, kReceiverExit});
    EXPECT_TRUE(HasLine("ERROR", kFailed));
}

TEST_F(KvmDataBridge, ReceivesAgainAfterAnErrorThatPasses) {
    ConsoleClient client = StartSession();
    for (const uint32_t error : {WSAEWOULDBLOCK, WSAEINTR}) {
        const size_t before = LogCount(kReceiveRetry);
        Gate().FailNth("recv", 1, error);
        ASSERT_TRUE(client.Send("x"));
        AwaitLog(kReceiveRetry, before + 1);
    }
    EXPECT_TRUE(HasLine("WARN", kReceiveRetry));
    ASSERT_TRUE(client.Send("y"));
    EXPECT_TRUE(AwaitFirmwareBytes("xxy"));
}

TEST_F(KvmDataBridge, SendsAgainAfterAnErrorThatPasses) {
    ConsoleClient client = StartSession();
    Gate().FailNth("send", 1, WSAEWOULDBLOCK);
    Gate().FailNth("send", 2, WSAEINTR);
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "bytes");
    EXPECT_EQ(client.Receive(5), "bytes");
    AwaitHandled();
    EXPECT_EQ(LogCount(kSendRetry), 2u);
    EXPECT_TRUE(HasLine("WARN", kSendRetry));
    EXPECT_EQ(LogCount("Retry Count value"), 0u);
}

// A signal ends a send() that waits for room: what went out by then is its answer.
TEST_F(KvmDataBridge, SendsTheRestOfABlockThatWentOutInPart) {
    ConsoleClient client = StartSession();
    struct sigaction interrupt {};
    struct sigaction before {};
    interrupt.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &interrupt, &before), 0);
    const std::string bytes = AllBytes(16u << 20);
    std::thread sender(
        [&] { service->m_kvmClientInterface.SendDataToKVMClient(bytes.data(), bytes.size()); });
    EXPECT_TRUE(Eventually([&] {
        pthread_kill(sender.native_handle(), SIGUSR1);
        return Gate().Count("send") >= 3;
    }));
    EXPECT_TRUE(client.Receive(bytes.size()) == bytes);
    sender.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_TRUE(HasLine("INFO", "SendDataToKVMClient: KVM data sent: 16777216 (0x1000000)"));
    EXPECT_EQ(LogCount("SendDataToKVMClient: KVM data sent: "), 1u);
    EXPECT_TRUE(client.IsQuiet());
}

// Errors that pass are not counted: nothing but the session's end ends them.
TEST_F(KvmDataBridge, SendsAgainForAsLongAsTheSessionLives) {
    const ConsoleClient client = StartSession();
    Gate().FailNth("send", 1, WSAEWOULDBLOCK, true);
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "bytes");
    ASSERT_TRUE(Eventually([] { return Gate().Count("send") > 300; }));
    service->m_kvmClientInterface.TriggerKVMShutdown();
    ASSERT_TRUE(Eventually([&] { return service->m_kvmClientInterface.m_kvmSocketState == kKvmCleanedUp; }));
    AwaitHandled();
    EXPECT_EQ(LogCount(kSenderShutdown), 0u);
}

TEST_F(KvmDataBridge, LeavesTheEndToTheReceiverWhenASendFails) {
    constexpr char kFailed[] = "SendDataToKVMClient: send() failed with error: 10055";
    ConsoleClient client = StartSession();
    ExpectError(kFailed);
    Gate().FailNth("send", 1, WSAENOBUFS);
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "lost");
    AwaitHandled();
    EXPECT_TRUE(HasLine("ERROR", kFailed));
    EXPECT_EQ(LogCount("Trigger KVM shutdown"), 0u);
    EXPECT_EQ(LogCount("KVM data sent"), 0u);
    firmware.Send(MPM_ZEL_CMD_KVM_DATA, "kept");
    EXPECT_EQ(client.Receive(4), "kept");
}

// Nothing but an empty block makes send() answer 0 every time.
TEST_F(KvmDataBridge, EndsTheSessionWhenTheSocketTakesNothing101Times) {
    constexpr char kGivenUp[] = "SendDataToKVMClient: Error condition hit (count > maxAttempts)";
    constexpr char kRetry[] = "SendDataToKVMClient: Retry Count value: ";
    const ConsoleClient client = StartSession();
    ExpectError(kGivenUp);
    const uint64_t before = Gate().Count("send");
    service->m_kvmClientInterface.SendDataToKVMClient("", 0);
    EXPECT_EQ(Gate().Count("send") - before, 101u);
    AwaitLog(kCleanedUp);
    EXPECT_EQ(LogCount(kRetry), 100u);
    ExpectLogInOrder({"SendDataToKVMClient: Retry Count value: 1. GetLastError: ",
                      "SendDataToKVMClient: Retry Count value: 100. GetLastError: ", kGivenUp,
                      "SendDataToKVMClient: socket write crossed 100 attempts; socket address ",
                      kSenderShutdown});
    EXPECT_TRUE(HasLine("ERROR", kGivenUp));
    EXPECT_TRUE(HasLine("INFO", kSenderShutdown));
    EXPECT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
}

TEST_F(KvmDataBridge, RefusesANullPacket) {
    constexpr char kNull[] =
        "WriteKVMPacket: pKvmPacket is NULL, returning ERROR_INVALID_ADDRESS to the caller";
    ExpectError(kNull);
    EXPECT_EQ(service->m_mailBoxDriverInterface.WriteKVMPacket(nullptr), 487u);
    EXPECT_TRUE(HasLine("ERROR", kNull));
}
