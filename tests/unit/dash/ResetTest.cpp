// Faults that end the service's DASH traffic until it is restarted.
#include <gtest/gtest.h>

#include "tests/unit/dash/DashFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr char kFailedSend[] = "send() failed. Error: 10035";

class Reset : public DashFixture {
  protected:
    // Gives the firmware's bytes to a client that does not read, until its connection takes no more.
    void FillConnection() {
        const std::string block(mpm::kMaxMessagePayload, 'f');
        for (size_t i = 1; LogCount(kFailedSend) == 0; ++i) {
            ASSERT_LT(i, 1000u) << "the connection never filled";
            firmware.Send(MPM_ZEL_CMD_DASH_DATA, block);
            ASSERT_TRUE(Eventually(
                [&] { return LogCount("SendSize 0, DataSend") >= i || LogCount(kFailedSend) > 0; }));
        }
    }

    // One second in which the console sends a byte, so that it is not idle, and the send task fails once
    // more.
    void PassSecondOfFailedSending(ConsoleClient& client, size_t failures) {
        AwaitLog(kFailedSend, failures);
        client.Send("x");
        AwaitLog("recv() success. DASH packet received", failures);
        ASSERT_TRUE(Clock().AwaitSleepers(2));
        Advance(1s);
    }

    void FailFiveSends(ConsoleClient& client) {
        FillConnection();
        for (size_t failures = 1; failures <= 5; ++failures)
            PassSecondOfFailedSending(client, failures);
        AwaitLog("Resetting DASH communication");
    }
};

}  // namespace

TEST_F(Reset, FiveFailedSendsEndTheSessionAndTheChannel) {
    Start(50);
    ExpectErrors({"send() failed 5 times. Closing send thread. Error: 10035"});
    ConsoleClient client = Connect();
    AwaitSessions(1);
    FailFiveSends(client);
    EXPECT_TRUE(client.AwaitClose());
    ExpectLogInOrder({kFailedSend, "send() failed 5 times. Closing send thread. Error: 10035",
                      "Closing accept socket with address: ",
                      "CloseSocketInZEL: CloseSocket, After sock close", "Resetting DASH communication"});
    EXPECT_EQ(LogCount(kFailedSend), 5u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
}

TEST_F(Reset, ASuccessfulSendStartsTheCountAnew) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    FillConnection();
    for (size_t failures = 1; failures <= 4; ++failures)
        PassSecondOfFailedSending(client, failures);
    const size_t sent = LogCount("send() success.");
    client.Receive(4u << 20);
    ASSERT_TRUE(Eventually([&] {
        Advance(1s);
        client.Send("x");
        return LogCount("send() success.") > sent;
    }));
    EXPECT_EQ(LogCount("send() failed 5 times."), 0u);
    EXPECT_EQ(LogCount("Resetting DASH communication"), 0u);
}

TEST_F(Reset, IsFinalAndNewConsolesHangUnserved) {
    Start(50);
    ExpectErrors({"send() failed 5 times.", "exception error: enqueue on stopped ThreadPool"});
    ConsoleClient client = Connect();
    AwaitSessions(1);
    FailFiveSends(client);
    // A connection frees the queue task, which then meets a stopped pool as the accept thread does.
    for (size_t late = 1; late <= 2; ++late) {
        Advance(1s);
        ConsoleClient unserved = Connect();
        unserved.Send("hello");
        AwaitLog("Last error: ", late);
        EXPECT_FALSE(unserved.AwaitClose(50ms));
    }
    EXPECT_EQ(LogCount("exception error: enqueue on stopped ThreadPool"), 2u);
    for (const mpm::Request& request : firmware.Requests("WriteDASHPacket"))
        EXPECT_NE(request.Text(), "hello");
}

TEST_F(Reset, ARefusedCloseRecordEndsTheSessionAndTheChannel) {
    Start(50);
    ExpectErrors(
        {"GetOverlappedResult failed for", "Return from MailBoxDriverInterface::SendIOCtlToDriver()"});
    firmware.Refuse("WriteCloseSocketcmd", ERROR_GEN_FAILURE);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    client.FinishSending();
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog("Resetting DASH communication");
    ExpectLogInOrder({"MPM returned code 31 for WriteCloseSocketcmd",
                      "Closing accept socket with address: ", "Resetting DASH communication"});
}

TEST_F(Reset, ClosesTheConsolesThatWait) {
    Start(50);
    ExpectErrors({"send() failed 5 times.", "exception error: enqueue on stopped ThreadPool"});
    ConsoleClient client = Connect();
    AwaitSessions(1);
    ConsoleClient next = Connect(), last = Connect();
    AwaitLog("Process the accepted connection", 3);
    FailFiveSends(client);
    // The queue task takes one of the two before it meets a stopped pool; that one is left hanging.
    ASSERT_TRUE(Eventually([&] {
        Advance(1s);
        return LogCount("Closing accept socket with address: ") == 2;
    }));
    EXPECT_TRUE(last.AwaitClose());
    EXPECT_FALSE(next.AwaitClose(50ms));
}

TEST_F(Reset, AConsoleThatTheFirmwareCannotBeToldOfHangsAndTheNextIsServed) {
    Start(44);
    ExpectErrors({"GetOverlappedResult failed for", "Return from MailBoxDriverInterface::SendIOCtlToDriver()",
                  "Failed to create socket for DASH client with address: "});
    firmware.Refuse("WriteIPCompleteInformation", ERROR_GEN_FAILURE, 1);
    ConsoleClient unattended = Connect();
    AwaitLog("Failed to create socket for DASH client with address: ");
    ConsoleClient next = Connect();
    AwaitSessions(1);
    next.Send("hello");
    EXPECT_TRUE(
        firmware.AwaitRequest("WriteDASHPacket", [](auto& request) { return request.Text() == "hello"; }));
    EXPECT_FALSE(unattended.AwaitClose(50ms));

    Stop();
    EXPECT_TRUE(unattended.AwaitClose());
}
