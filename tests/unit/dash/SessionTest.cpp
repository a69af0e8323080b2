// Bytes between a console and the firmware, and the order in which consoles are served.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/dash/DashFixture.h"

namespace {

using namespace std::chrono_literals;
using Session = DashFixture;

std::string DashBytes(const mpm::Firmware& firmware) {
    std::string bytes;
    for (const mpm::Request& request : firmware.Requests("WriteDASHPacket"))
        bytes += request.Text();
    return bytes;
}

}  // namespace

TEST_F(Session, TheFirmwareHearsWhoConnectsBeforeAnyByte) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);

    const auto request = firmware.AwaitRequest("WriteIPCompleteInformation", [](const mpm::Request& request) {
        return request.As<IPCompleteInfo>().PeerMarker == 0xFFFF;
    });
    ASSERT_TRUE(request);
    const auto info = request->As<IPCompleteInfo>();
    EXPECT_EQ(info.Port, 664u);
    EXPECT_EQ(info.PeerAddress, 0x0100007Fu);
    EXPECT_EQ(info.PeerPort, htons(client.Port()));
    EXPECT_EQ(info.IPv4Address, inet_addr("192.168.1.10"));
    EXPECT_EQ(firmware.Count("WriteDASHPacket"), 0u);
}

TEST_F(Session, SaysWhatItDoesWithAConnectionInItsOwnWords) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);

    const std::string peer = std::to_string(htons(client.Port()));
    ExpectLogInOrder(
        {"Calling HTTPS Socket Accept", "Process the accepted connection", "Handling queued socket",
         "Popping queued socket with address: ", "Skipping platform updates to MPM",
         "New HTTPS DASH request arrived at ZEL. Forwarding HTTPS DASH request to Mailbox driver",
         "Remote Address: 0x100007f (127.0.0.1), Remote Port: 0x", "Updating IPv4 Info 0xa01a8c0",
         "WriteIPCompleteInformation: connecting to Driver", "Remote Port " + peer,
         "Response returned for HTTPS DASH Request from Mailbox driver",
         "Spawning threads to send and receive DASH traffic for socket with address: ",
         "Processing DASH traffic for socket with address: "});
    AwaitLog("DataRecvThread: entry");
    AwaitLog("SendDataToDASHClient: entry");
}

TEST_F(Session, BytesOfTheConsoleReachTheFirmwareUnchanged) {
    Start(50);
    ConsoleClient client = Connect();
    std::string bytes;
    for (int i = 0; i < 1000; ++i)
        bytes += static_cast<char>(i);
    client.Send(bytes);

    ASSERT_TRUE(Eventually([&] { return DashBytes(firmware).size() == bytes.size(); }));
    EXPECT_EQ(DashBytes(firmware), bytes);
    AwaitLog("updateDataToMPM: exit");
    ExpectLogInOrder(
        {"recv() success. DASH packet received by socket server of size: ",
         "updateDataToMPM: Updating data to be sent from client to MPM",
         "WriteDASHPacket: connecting to Driver. Input buffer size = ", "updateDataToMPM: exit"});
}

TEST_F(Session, AnswersOfTheFirmwareReachTheConsoleUnchanged) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    std::string bytes;
    for (int i = 0; i < 1000; ++i)
        bytes += static_cast<char>(i);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, bytes);

    EXPECT_EQ(client.Receive(bytes.size()), bytes);
    AwaitLog("send() success.");
    ExpectLogInOrder(
        {"updateDataToClient: Updating data to be sent from MPM to client", "Buffer size 1000",
         "SendDataToDASHClient: after Waiting for Send Size to get Updated, size 1000",
         "send() success. SendDataToDASHClient: DASH data sent: 1000 (0x3e8), SendSize 0, DataSend 1000"});
}

TEST_F(Session, ABlockOf128KiBIsPassedWholeInOneRequest) {
    constexpr size_t kBlock = 0x20000;
    Start(50);
    ConsoleClient client = Connect();
    const std::string bytes(4u << 20, 'b');
    // Held back for a while, the connection grows its buffers until more than one block waits in it.
    size_t sent = 0;
    auto wholeBlockCame = [&] {
        for (const mpm::Request& request : firmware.Requests("WriteDASHPacket")) {
            if (request.data.size() == kBlock) return true;
        }
        return false;
    };
    while (!wholeBlockCame() && sent < 16 * bytes.size()) {
        firmware.Clear();
        firmware.Delay("WriteDASHPacket", std::chrono::milliseconds(2));
        ASSERT_TRUE(client.Send(bytes));
        sent += bytes.size();
    }
    EXPECT_TRUE(wholeBlockCame());
    for (const mpm::Request& request : firmware.Requests("WriteDASHPacket"))
        EXPECT_LE(request.data.size(), kBlock);
}

TEST_F(Session, ARequestThatTheFirmwareRefusesDoesNotEndTheSession) {
    Start(50);
    ExpectErrors(
        {"GetOverlappedResult failed for", "Return from MailBoxDriverInterface::SendIOCtlToDriver()"});
    ConsoleClient client = Connect();
    firmware.Refuse("WriteDASHPacket", ERROR_GEN_FAILURE, 1);
    client.Send("lost");
    AwaitLog("updateDataToMPM: exit");
    client.Send("next");
    EXPECT_TRUE(
        firmware.AwaitRequest("WriteDASHPacket", [](auto& request) { return request.Text() == "next"; }));
}

TEST_F(Session, AnInterruptedReceiveIsRepeated) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    Gate().FailNth("recv", 1, WSAEINTR);
    ASSERT_TRUE(Eventually([] { return Gate().Failures() == 1; }));
    client.Send("goes on");
    EXPECT_TRUE(Eventually([&] { return DashBytes(firmware) == "goes on"; }));
    EXPECT_EQ(LogCount("recv() failed"), 0u);
}

TEST_F(Session, AnEmptyMessageOfTheFirmwareDoesNothing) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "after");
    EXPECT_EQ(client.Receive(5), "after");
    EXPECT_EQ(LogCount("updateDataToClient: Updating data"), 1u);
}

TEST_F(Session, ASecondConsoleIsAcceptedAndWaitsWithItsBytes) {
    Start(44);
    ConsoleClient first = Connect();
    AwaitSessions(1);
    ConsoleClient second = Connect();
    AwaitLog("Process the accepted connection", 2);
    second.Send("from the second");

    // The first is served all the same, and the second sees nothing of it.
    first.Send("from the first");
    ASSERT_TRUE(firmware.AwaitCount("WriteDASHPacket", 1));
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "answer");
    EXPECT_EQ(first.Receive(6), "answer");
    EXPECT_TRUE(second.IsQuiet());
    EXPECT_EQ(LogCount("Handling queued socket"), 1u);
    EXPECT_EQ(DashBytes(firmware), "from the first");

    first.Close();
    AwaitSessions(2);
    EXPECT_TRUE(Eventually([&] { return DashBytes(firmware) == "from the firstfrom the second"; }));
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "yours");
    EXPECT_EQ(second.Receive(5), "yours");
}

TEST_F(Session, AHundredConsolesAreServedOneAfterAnother) {
    Start(44);
    std::vector<ConsoleClient> clients;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(Connect());
        clients.back().Send(std::to_string(i) + ".");
        // A connection that overflows the listener's backlog is retried only after a second.
        AwaitLog("Process the accepted connection", clients.size());
    }
    std::string expected;
    for (int i = 0; i < 100; ++i) {
        expected += std::to_string(i) + ".";
        ASSERT_TRUE(Eventually([&] { return DashBytes(firmware) == expected; })) << i;
        clients[i].Close();
    }
    EXPECT_TRUE(firmware.AwaitCount("WriteCloseSocketcmd", 100));
}

TEST_F(Session, TheTasksOfPastSessionsDoNotPileUp) {
    Start(44);
    for (size_t session = 1; session <= 10; ++session) {
        Connect().Close();
        AwaitLog("After sock close", session);
    }
    // A send task still waits for an earlier session's data, and what waits behind it has its turn now: one
    // for each session if they had piled up.
    firmware.SendDash("too late");
    EXPECT_FALSE(Eventually([&] { return LogCount("SendDataToDASHClient: entry") >= 10; }, 300ms));
}

TEST_F(Session, AnAnswerForAConsoleThatHasGoneDoesNotReachTheNextOne) {
    Start(44);
    // A send task that finds its session gone before it waits for a payload ends at once: what comes then is
    // kept for the next console.
    size_t sessions = 0;
    const auto hasEnded = [&] { return LogCount("SendDataToDASHClient: exit") == sessions; };
    do {
        Connect().Close();
        AwaitLog("After sock close", ++sessions);
    } while (Eventually(hasEnded, std::chrono::milliseconds(300)));
    firmware.SendDash("too late");
    AwaitLog("SendDataToDASHClient: exit", sessions);
    ConsoleClient next = Connect();
    AwaitSessions(sessions + 1);
    firmware.SendDash("in time");
    EXPECT_EQ(next.Receive(7), "in time");
}

TEST_F(Session, APayloadWithoutASessionWaitsForTheNextConsole) {
    Start(50);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "early");
    AwaitLog("updateDataToClient: exit");
    ConsoleClient client = Connect();
    EXPECT_EQ(client.Receive(5), "early");
}

TEST_F(Session, APayloadThatNoSendTaskTakesIsReplacedByTheNextWithAWarning) {
    Start(50);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "lost for good");
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "kept");
    AwaitLog("updateDataToClient: exit", 2);
    EXPECT_TRUE(HasLine("WARN", "updateDataToClient: Replacing a payload of 13 bytes that was not sent"));
    EXPECT_EQ(LogCount("updateDataToClient: Replacing a payload"), 1u);
    ConsoleClient client = Connect();
    EXPECT_EQ(client.Receive(4), "kept");
    EXPECT_TRUE(client.IsQuiet());
}

TEST_F(Session, TheHostThatTheFirmwareTakesForDownReportsFirst) {
    Start(50);
    firmware.Change([](mpm::Settings& settings) {
        settings.StatusFollowsHost = false;
        settings.MPMStatus = 2;
    });
    firmware.Clear();
    ConsoleClient client = Connect();
    ASSERT_TRUE(Eventually([&] {
        Advance(std::chrono::milliseconds(100));
        return LogCount("Processing DASH traffic for socket with address: ") == 1;
    }));
    const auto requests = firmware.Requests();
    ASSERT_GE(requests.size(), 2u);
    EXPECT_EQ(requests[0].name, "GetMPMStatus");
    EXPECT_EQ(requests[1].name, "WriteZELStatus");
}
