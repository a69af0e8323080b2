// The accept thread: its listener, and the end that a service stop brings to it and to the sessions.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>

#include "tests/unit/dash/DashFixture.h"

namespace {

using namespace std::chrono_literals;
using Listener = DashFixture;

}  // namespace

TEST_F(Listener, TriesATakenPortAgainEveryFiveSeconds) {
    auto taken = std::make_unique<TakenPort>();
    UsePort(taken->Port());
    ExpectErrors({"bind() API failed with error: 10048"});
    Start(50);
    AwaitLog("bind() API failed with error: 10048");
    ASSERT_TRUE(Clock().AwaitSleeper(5s));
    Advance(4999ms);
    EXPECT_EQ(LogCount("bind() API failed"), 1u);
    Advance(1ms);
    AwaitLog("bind() API failed with error: 10048", 2);

    taken.reset();
    ASSERT_TRUE(Clock().AwaitSleeper(5s));
    Advance(5s);
    Connect();
    AwaitSessions(1);
}

TEST_F(Listener, AStopEndsTheWaitForATakenPort) {
    TakenPort taken;
    UsePort(taken.Port());
    ExpectErrors({"bind() API failed with error: 10048"});
    Start(50);
    ASSERT_TRUE(Clock().AwaitSleeper(5s));
    Stop();
    AwaitLog("DASH Client thread joined");
}

TEST_F(Listener, AFailedAcceptLeadsToANewListener) {
    Start(50);
    ExpectErrors({"accept() API failed with error: 10055", "Accept socket is invalid"});
    ASSERT_TRUE(Eventually([] { return Gate().Count("accept") == 1; }));
    Gate().FailNth("accept", 1, WSAENOBUFS);
    Connect();  // wakes the accept that is under way; the next one fails
    AwaitLog("Accept socket is invalid");
    AwaitLog("Calling HTTPS Socket Accept", 3);  // a connection to the old listener would go with it
    ExpectLogInOrder(
        {"accept() API failed with error: 10055", "Accept socket is invalid", "Calling HTTPS Socket Accept"});
    Connect();
    AwaitLog("Process the accepted connection", 2);
}

TEST_F(Listener, AnAcceptedSocketThatCannotBeMadeNonBlockingIsClosed) {
    Start(50);
    ExpectErrors({"ioctlsocket() API failed with error: 10022", "Accept socket is invalid"});
    Gate().FailNth("ioctlsocket", 1, WSAEINVAL);
    ConsoleClient client = Connect();
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog("ioctlsocket() API failed with error: 10022");
    AwaitLog("Accept socket is invalid");
}

TEST_F(Listener, AConsoleWhoseAnnouncementThrowsIsClosedAndTheNextIsServed) {
    Start(50);
    AwaitLog("Calling HTTPS Socket Accept");
    std::atomic<int> requests{0};
    Gate().Ask([&](const std::string& call, const void*) -> uint32_t {
        // The first request asks for the firmware's state.
        if (call == "DeviceIoControl" && ++requests == 2) throw std::runtime_error("of the platform");
        return 0;
    });
    ConsoleClient lost = Connect();
    EXPECT_TRUE(lost.AwaitClose());
    ConsoleClient next = Connect();
    AwaitSessions(1);
}

TEST_F(Listener, AStopClosesItWithoutAnError) {
    Start(50);
    AwaitLog("Calling HTTPS Socket Accept");
    Stop();
    ExpectLogInOrder({"Clean up DASH object", "Close HTTPS socket", "Waiting for DASH Client thread join",
                      "DASH Client thread joined"});
    AwaitLog("HandleDASHClientThread: Exiting DASH Handler Thread");
}

TEST_F(Listener, AStopEndsTheSessionAndClosesWhoWaits) {
    Start(50);
    AllowErrorsOfAStop();
    ConsoleClient first = Connect();
    AwaitSessions(1);
    ConsoleClient second = Connect();
    AwaitLog("Process the accepted connection", 2);
    Stop();
    EXPECT_TRUE(first.AwaitClose());
    EXPECT_TRUE(second.AwaitClose());
}

TEST_F(Listener, AStopEndsASendThatFails) {
    Start(50);
    AllowErrorsOfAStop();
    ConsoleClient client = Connect();
    AwaitSessions(1);
    Gate().FailNth("send", 1, WSAEWOULDBLOCK, true);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "never sent");
    AwaitLog("send() failed. Error: 10035");
    Stop();
    EXPECT_TRUE(client.AwaitClose());
}
