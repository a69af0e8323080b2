// The ways in which a session ends.
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "tests/unit/dash/DashFixture.h"
#include "winhost/core/HandleTable.h"

namespace {

using namespace std::chrono_literals;

constexpr char kIdleLine[] = "Initiating socket shutdown.";

class SessionEnd : public DashFixture {
  protected:
    // The firmware answers the request to close the first console's session only when that of the next
    // console, which it returns, has begun.
    ConsoleClient BeginTheNextSessionBeforeTheAnswer() {
        firmware.Hold("WriteCloseSocketcmd");
        ConsoleClient first = Connect();
        AwaitSessions(1);
        first.Close();
        EXPECT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
        firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
        AwaitLog("CloseSocketInZEL: CloseSocket, After sock close");
        ConsoleClient second = Connect();
        AwaitSessions(2);
        firmware.Release("WriteCloseSocketcmd");
        AwaitLog("DataRecvThread: exit");
        return second;
    }
};

}  // namespace

TEST_F(SessionEnd, ASilentConsoleIsClosedAfterFiveSeconds) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    PassSeconds(4);
    EXPECT_TRUE(client.IsQuiet());
    EXPECT_EQ(LogCount(kIdleLine), 0u);

    PassSeconds(1);
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog("Server has not received requests for 5 seconds max 5. Initiating socket shutdown.");
    AwaitLog("DataRecvThread: exit");
    AwaitLog("CloseSocketInZEL: CloseSocket, After sock close");
    ExpectLogInOrder({kIdleLine, "Closing accept socket with address: ",
                      "CloseSocketInZEL: CloseSocket, After sock close"});
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
}

TEST_F(SessionEnd, ACheckThatFallsLateTellsTheSecondsItMeasured) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    PassSeconds(4);
    Await1SecondSleeper();
    Advance(2500ms);
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog("Server has not received requests for 6 seconds max 5. Initiating socket shutdown.");
}

TEST_F(SessionEnd, EveryByteOfTheConsolePutsTheIdleLimitOff) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    PassSeconds(4);
    client.Send("x");
    ASSERT_TRUE(firmware.AwaitCount("WriteDASHPacket", 1));
    PassSeconds(4);
    Await1SecondSleeper();
    EXPECT_TRUE(client.IsQuiet());
    PassSeconds(1);
    EXPECT_TRUE(client.AwaitClose());
}

TEST_F(SessionEnd, EveryByteOfTheFirmwarePutsTheIdleLimitOff) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    PassSeconds(4);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "x");
    EXPECT_EQ(client.Receive(1), "x");
    AwaitLog("send() success.");
    PassSeconds(4);
    Await1SecondSleeper();
    EXPECT_TRUE(client.IsQuiet());
    PassSeconds(1);
    EXPECT_TRUE(client.AwaitClose());
}

TEST_F(SessionEnd, AWaitingConsoleIsNotHeldToTheIdleLimit) {
    Start(50);
    ConsoleClient first = Connect();
    AwaitSessions(1);
    ConsoleClient second = Connect();
    AwaitLog("Process the accepted connection", 2);
    PassSeconds(5);
    EXPECT_TRUE(first.AwaitClose());
    AwaitSessions(2);
    EXPECT_TRUE(second.IsQuiet());
    PassSeconds(4);
    Await1SecondSleeper();
    EXPECT_TRUE(second.IsQuiet());
    PassSeconds(1);
    EXPECT_TRUE(second.AwaitClose());
}

TEST_F(SessionEnd, BelowVersion45AConsoleThatClosesIsClosedAtOnce) {
    Start(44);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    client.FinishSending();
    EXPECT_TRUE(client.AwaitClose());

    const auto request = firmware.AwaitRequest("WriteCloseSocketcmd");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->As<CloseSocketRecord>().port, 664);
    AwaitLog("DataRecvThread: exit");
    ExpectLogInOrder(
        {"recv() success. But ZEL received 0 size buffer. Assuming client closed the connection. Socket "
         "address: ",
         "WriteCloseSocketcmd: connecting to Driver. Input buffer size = 2",
         "Closing accept socket with address: ", "CloseSocketInZEL: CloseSocket, After sock close",
         "DataRecvThread: exit"});
}

TEST_F(SessionEnd, FromVersion45AConsoleThatClosesIsLeftToTheFirmware) {
    Start(45);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    client.FinishSending();
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit");
    ExpectLogInOrder({"WriteCloseSocketcmd: connecting to Driver. Input buffer size = 2",
                      "MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET asks for DASH socket close as webUI is served",
                      "Closing accept socket with address: "});
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

TEST_F(SessionEnd, FromVersion45TheIdleLimitEndsWhatTheFirmwareDoesNot) {
    firmware.Change([](mpm::Settings& settings) { settings.EndsClosedSessions = false; });
    Start(45);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    client.FinishSending();
    ASSERT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
    AwaitLog("DataRecvThread: exit");
    PassSeconds(4);
    Await1SecondSleeper();
    EXPECT_TRUE(client.IsQuiet());
    EXPECT_EQ(LogCount("Closing accept socket"), 0u);

    PassSeconds(1);
    EXPECT_TRUE(client.AwaitClose());
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 1u);
}

TEST_F(SessionEnd, TheConsolesCloseItselfPutsTheIdleLimitOff) {
    firmware.Change([](mpm::Settings& settings) { settings.EndsClosedSessions = false; });
    Start(45);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    PassSeconds(3);
    Await1SecondSleeper();
    client.FinishSending();
    AwaitLog("recv() success. But ZEL received 0 size buffer.");
    PassSeconds(4);
    Await1SecondSleeper();
    EXPECT_TRUE(client.IsQuiet());
    PassSeconds(1);
    EXPECT_TRUE(client.AwaitClose());
}

TEST_F(SessionEnd, AConsoleThatOnlyFinishedSendingStillGetsItsAnswerFromVersion45) {
    firmware.Change([](mpm::Settings& settings) { settings.EndsClosedSessions = false; });
    Start(45);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    client.Send("question");
    client.FinishSending();
    ASSERT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "answer");
    EXPECT_EQ(client.Receive(6), "answer");

    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    EXPECT_TRUE(client.AwaitClose());
}

TEST_F(SessionEnd, AResetByTheConsoleIsToldToTheFirmware) {
    Start(44);
    ExpectErrors({"recv() failed. Error: 10054"});
    ConsoleClient client = Connect();
    AwaitSessions(1);
    client.Reset();
    EXPECT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
    AwaitLog("DataRecvThread: exit");
    AwaitLog("recv() failed. Error: 10054");
    AwaitLog("CloseSocketInZEL: CloseSocket, After sock close");
}

TEST_F(SessionEnd, TheFirmwareClosesWithCommand41AndIsNotToldBack) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog("DataRecvThread: exit");
    AwaitLog("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit");
    ExpectLogInOrder(
        {"MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET asks for DASH socket close as webUI is served",
         "Closing accept socket with address: ", "CloseSocketInZEL: CloseSocket, After sock close",
         "MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit"});
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
}

// A socket that is only closed may reset the connection, and the console would lose an answer on its way.
TEST_F(SessionEnd, TheConsoleIsGivenTheEndBeforeItsSocketIsClosed) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    std::atomic<bool> ended{false};
    Gate().Ask([&](const std::string& call, const void*) -> uint32_t {
        if (call == "closesocket") ended = client.AwaitClose();
        return 0;
    });
    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    AwaitLog("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit");
    EXPECT_TRUE(ended);
    Gate().Reset();
}

// By then the number may be that of the next console's socket.
TEST_F(SessionEnd, NothingIsReceivedThroughAHandleThatWasClosedMeanwhile) {
    Start(50);
    const ConsoleClient client = Connect();
    AwaitSessions(1);
    Gate().Delay("recv", 20ms);
    const uint64_t received = Gate().Count("recv");
    ASSERT_TRUE(Eventually([&] { return Gate().Count("recv") > received; }));
    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    AwaitLog("DataRecvThread: exit");
    EXPECT_EQ(LogCount("recv() failed"), 0u);
    EXPECT_EQ(winhost::HandleTable::Instance().StaleUses(), 0u);
}

TEST_F(SessionEnd, Command41WithoutASessionOnlySaysSo) {
    Start(50);
    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    AwaitLog("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit");
    ExpectLogInOrder({"Accept socket is Invalid", "CloseSocketInZEL: CloseSocket, After sock close"});
}

TEST_F(SessionEnd, TheConsoleReadsTheEndBeforeTheSocketIsClosed) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    std::atomic<bool> readEnd{false};
    Gate().Ask([&](const std::string& call, const void*) -> uint32_t {
        if (call == "closesocket") readEnd = client.AwaitClose();
        return 0;
    });
    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    AwaitLog("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit");
    EXPECT_TRUE(readEnd);
}

TEST_F(SessionEnd, TheNextConsoleIsServedAfterEachKindOfEnd) {
    Start(44);
    ExpectErrors({"recv() failed. Error: 10054"});
    Connect().Close();
    AwaitSessions(1);
    Connect().Reset();
    AwaitSessions(2);
    ConsoleClient third = Connect();
    AwaitSessions(3);
    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    EXPECT_TRUE(third.AwaitClose());
    ConsoleClient fourth = Connect();
    AwaitSessions(4);
    fourth.Send("still here");
    ASSERT_TRUE(firmware.AwaitRequest("WriteDASHPacket",
                                      [](auto& request) { return request.Text() == "still here"; }));
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "served");
    EXPECT_EQ(fourth.Receive(6), "served");
}

TEST_F(SessionEnd, ALateAnswerToTheCloseDoesNotEndTheNextSession) {
    Start(44);
    ConsoleClient second = BeginTheNextSessionBeforeTheAnswer();
    second.Send("x");
    EXPECT_TRUE(firmware.AwaitCount("WriteDASHPacket", 1));
}

TEST_F(SessionEnd, ALateRefusalOfTheCloseDoesNotEndTheNextSession) {
    Start(44);
    ExpectErrors(
        {"GetOverlappedResult failed for", "Return from MailBoxDriverInterface::SendIOCtlToDriver()"});
    firmware.Refuse("WriteCloseSocketcmd", ERROR_GEN_FAILURE, 1);
    ConsoleClient second = BeginTheNextSessionBeforeTheAnswer();
    ExpectLogInOrder({"MPM returned code 31 for WriteCloseSocketcmd", "Accept socket is Invalid",
                      "CloseSocketInZEL: CloseSocket, After sock close", "DataRecvThread: exit"});
    second.Send("x");
    EXPECT_TRUE(firmware.AwaitCount("WriteDASHPacket", 1));
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "served");
    EXPECT_EQ(second.Receive(6), "served");
    EXPECT_FALSE(Eventually([&] { return LogCount("Resetting DASH communication") > 0; }, 100ms));
}

TEST_F(SessionEnd, AReceiveTaskThatIsHeldUpDoesNotEndTheNextSession) {
    Start(44);
    firmware.Hold("WriteDASHPacket");
    ConsoleClient first = Connect();
    first.Send("held up");
    ASSERT_TRUE(firmware.AwaitCount("WriteDASHPacket", 1));
    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    EXPECT_TRUE(first.AwaitClose());
    ConsoleClient second = Connect();
    AwaitSessions(2);
    second.Send("next");
    firmware.ClearFaults();
    AwaitLog("DataRecvThread: exit");
    EXPECT_TRUE(
        firmware.AwaitRequest("WriteDASHPacket", [](auto& request) { return request.Text() == "next"; }));
    EXPECT_TRUE(second.IsQuiet());
    EXPECT_EQ(firmware.Count("WriteCloseSocketcmd"), 0u);
}

TEST_F(SessionEnd, TheIdleLimitOfAConsoleBeginsWithItsOwnSession) {
    Start(50);
    ConsoleClient first = Connect();
    AwaitSessions(1);
    PassSeconds(4);
    Await1SecondSleeper();
    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    EXPECT_TRUE(first.AwaitClose());
    ConsoleClient second = Connect();
    AwaitSessions(2);
    // The check for the first console still sleeps, and the one for the second waits behind it.
    PassSeconds(4);
    Await1SecondSleeper();
    EXPECT_TRUE(second.IsQuiet());
    EXPECT_EQ(LogCount(kIdleLine), 0u);
    PassSeconds(1);
    EXPECT_TRUE(second.AwaitClose());
    AwaitLog("Server has not received requests for 5 seconds max 5. Initiating socket shutdown.");
}

TEST_F(SessionEnd, AFailedCloseIsLoggedAndTheSessionIsOver) {
    Start(44);
    ExpectErrors({"closesocket() API failed with error: 10038"});
    ConsoleClient client = Connect();
    AwaitSessions(1);
    Gate().FailNth("closesocket", 1, WSAENOTSOCK);
    client.Close();
    AwaitLog("closesocket() API failed with error: 10038");
    ConsoleClient next = Connect();
    AwaitSessions(2);
}
