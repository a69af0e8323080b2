// Faults that end the service's DASH traffic until it is restarted.
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "tests/unit/dash/DashFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr char kStoppedPool[] = "exception error: enqueue on stopped ThreadPool";
constexpr char kFailedSend[] = "send() failed. Error: 10035";

class Reset : public DashFixture {
  protected:
    // From the given failure on, one second for each, in which the console sends a byte so that it is not
    // idle.
    void PassFailures(ConsoleClient& client, size_t from, size_t to) {
        for (size_t failure = from; failure <= to; ++failure) {
            AwaitLog(kFailedSend, failure);
            client.Send("x");
            AwaitLog("recv() success. DASH packet received", failure);
            // The sender, and the check for an idle console.
            ASSERT_TRUE(Clock().AwaitSleepersOf(1s, 2));
            Advance(1s);
        }
    }

    static void FailSends() { Gate().FailNth("send", 1, WSAEWOULDBLOCK, true); }

    void ResetBySends(ConsoleClient& client) {
        FailSends();
        firmware.Send(MPM_ZEL_CMD_DASH_DATA, "never sent");
        PassFailures(client, 1, 5);
        AwaitLog("Resetting DASH communication");
        Gate().Reset();
    }

    // Ends the session by a reset while the next console is being announced to the firmware, until all pools
    // are stopped. Consoles that have come meanwhile wait in the queue. So many `consoles` have connected
    // before.
    void ResetDuringAnnouncement(ConsoleClient& client, size_t consoles = 1) {
        firmware.Hold("GetMPMStatus");
        announced.emplace(Connect());
        ResetBySends(client);
        AwaitLog("GetMPMStatus: connecting to Driver");
        ASSERT_TRUE(Eventually([&] {
            Advance(1s);
            waiting.push_back(Connect());
            return LogCount(kStoppedPool) > 0;
        }));
        AwaitLog("Process the accepted connection", consoles + 1 + waiting.size());
        Gate().Ask([this](const std::string& call, const void*) -> uint32_t {
            if (call == "closesocket" && closed < waiting.size() && waiting[closed++].AwaitClose())
                ++endedBefore;
            return 0;
        });
        firmware.Release("GetMPMStatus");
        AwaitLog("Spawning threads to send and receive DASH traffic for socket with address: ", 2);
    }

    // The same from the start on, with `first` as the console whose session ends.
    void StartAndResetDuringAnnouncement() {
        Start(50);
        ExpectErrors({"send() failed 5 times.", kStoppedPool});
        AllowErrorsOfAStop();
        first.emplace(Connect());
        AwaitSessions(1);
        ResetDuringAnnouncement(*first);
    }

    // A console that the service could not report to the firmware.
    ConsoleClient ConnectUnattended() {
        constexpr char kUnattended[] = "Failed to create socket for DASH client with address: ";
        ExpectErrors({"GetOverlappedResult failed for",
                      "Return from MailBoxDriverInterface::SendIOCtlToDriver()", kUnattended});
        AllowErrorsOfAStop();
        firmware.Refuse("WriteIPCompleteInformation", ERROR_GEN_FAILURE, 1);
        ConsoleClient unattended = Connect();
        AwaitLog(kUnattended);
        return unattended;
    }

    std::optional<ConsoleClient> first, announced;
    std::vector<ConsoleClient> waiting;
    // Sockets of those that wait: which the service closes, and whose connections it had shut down before.
    std::atomic<size_t> closed{0}, endedBefore{0};
};

}  // namespace

TEST_F(Reset, AConsoleThatTakesNothingEndsTheSessionAndTheChannelAfterFiveAttempts) {
    Start(50);
    ExpectError("send() failed 5 times. Closing send thread. Error: 10035");
    ConsoleClient client = Connect();
    AwaitSessions(1);
    ResetBySends(client);
    EXPECT_TRUE(client.AwaitClose());
    ExpectLogInOrder({kFailedSend, "send() failed 5 times. Closing send thread. Error: 10035",
                      "Closing accept socket with address: ",
                      "CloseSocketInZEL: CloseSocket, After sock close", "Resetting DASH communication"});
    EXPECT_EQ(LogCount(kFailedSend), 5u);
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
}

TEST_F(Reset, LeavesNoPayloadWaitingAndTheFirmwaresCommandsGoOn) {
    Start(50);
    ExpectError("send() failed 5 times. Closing send thread. Error: 10035");
    ConsoleClient client = Connect();
    AwaitSessions(1);
    FailSends();
    for (const char* payload : {"tried", "waits", "waits behind it"})
        firmware.Send(MPM_ZEL_CMD_DASH_DATA, payload);
    PassFailures(client, 1, 5);
    AwaitLog("Resetting DASH communication");
    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    AwaitLog("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit");
    EXPECT_EQ(LogCount("updateDataToClient: exit"), 3u);
    EXPECT_TRUE(
        HasLine("WARN", "updateDataToClient: Dropping a payload of 5 bytes for a session that has ended"));
}

TEST_F(Reset, LeavesASessionWithoutTasksWhosePayloadsDoNotWait) {
    StartAndResetDuringAnnouncement();
    ASSERT_TRUE(waiting.back().AwaitClose());
    for (const char* payload : {"kept", "kept instead"})
        firmware.Send(MPM_ZEL_CMD_DASH_DATA, payload);
    AwaitLog("updateDataToClient: exit", 3);
    EXPECT_TRUE(HasLine("WARN", "updateDataToClient: Replacing a payload of 4 bytes that was not sent"));
}

TEST_F(Reset, ASuccessfulSendStartsTheCountAnew) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    for (size_t round = 0; round < 2; ++round) {
        FailSends();
        firmware.Send(MPM_ZEL_CMD_DASH_DATA, "late");
        PassFailures(client, 4 * round + 1, 4 * round + 3);
        AwaitLog(kFailedSend, 4 * round + 4);
        Gate().Reset();
        PassFailures(client, 4 * round + 4, 4 * round + 4);
        EXPECT_EQ(client.Receive(4), "late");
    }
    EXPECT_EQ(LogCount(kFailedSend), 8u);
    EXPECT_EQ(LogCount("Resetting DASH communication"), 0u);
}

TEST_F(Reset, IsNotForAConsoleThatIsGoneBeforeItsAnswers) {
    Start(50);
    ExpectError("recv() failed. Error: 10054");
    firmware.Hold("WriteCloseSocketcmd");
    ConsoleClient client = Connect();
    AwaitSessions(1);
    client.Reset();
    AwaitLog("WriteCloseSocketcmd: connecting to Driver");
    for (size_t answer = 1; answer <= 6; ++answer) {
        firmware.Send(MPM_ZEL_CMD_DASH_DATA, "too late");
        AwaitLog("send() failed. Error: ", answer);
    }
    firmware.Release("WriteCloseSocketcmd");
    AwaitLog("CloseSocketInZEL: CloseSocket, After sock close");
    ConsoleClient next = Connect();
    AwaitSessions(2);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "in time");
    EXPECT_EQ(next.Receive(7), "in time");
    EXPECT_EQ(LogCount("Resetting DASH communication"), 0u);
}

TEST_F(Reset, IsFinalAndNewConsolesHangUnserved) {
    StartAndResetDuringAnnouncement();
    ASSERT_TRUE(waiting.back().AwaitClose());

    const size_t refused = LogCount(kStoppedPool);
    ConsoleClient late = Connect();
    AwaitLog(kStoppedPool, refused + 1);
    for (ConsoleClient* unserved : {&*announced, &late}) {
        unserved->Send("hello");
        EXPECT_FALSE(unserved->AwaitClose(50ms));
    }
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
    StartAndResetDuringAnnouncement();
    for (ConsoleClient& console : waiting)
        EXPECT_TRUE(console.AwaitClose());
    AwaitLog("Closing accept socket with address: ", 1 + waiting.size());
    ASSERT_TRUE(Eventually([&] { return closed == waiting.size(); }));
    EXPECT_EQ(endedBefore, waiting.size());
    EXPECT_FALSE(announced->AwaitClose(50ms));
}

TEST_F(Reset, DoesNotCloseAConsoleThatTheFirmwareCannotBeToldOf) {
    Start(50);
    ExpectErrors({"send() failed 5 times.", kStoppedPool});
    ConsoleClient unattended = ConnectUnattended();
    ConsoleClient client = Connect();
    AwaitSessions(1);
    ResetDuringAnnouncement(client, 2);
    for (ConsoleClient& console : waiting)
        ASSERT_TRUE(console.AwaitClose());
    EXPECT_FALSE(unattended.AwaitClose(50ms));
    Stop();
    EXPECT_TRUE(unattended.AwaitClose());
}

TEST_F(Reset, AConsoleThatTheFirmwareCannotBeToldOfHangsAndTheNextIsServed) {
    Start(44);
    ConsoleClient unattended = ConnectUnattended();
    ConsoleClient next = Connect();
    AwaitSessions(1);
    next.Send("hello");
    EXPECT_TRUE(
        firmware.AwaitRequest("WriteDASHPacket", [](auto& request) { return request.Text() == "hello"; }));
    EXPECT_FALSE(unattended.AwaitClose(50ms));

    Stop();
    EXPECT_TRUE(unattended.AwaitClose());
}
