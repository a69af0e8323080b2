// A console that reads slowly holds the firmware back, and loses nothing.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <thread>

#include "tests/unit/dash/DashFixture.h"
#include "winhost/core/HandleTable.h"

namespace {

using namespace std::chrono_literals;

constexpr char kWouldBlock[] = "send() failed. Error: 10035";
constexpr char kReplaced[] = "updateDataToClient: Replacing a payload of ";

class SendPace : public DashFixture {
  protected:
    static constexpr size_t kSize = 130'000;
    // No part of one looks like another part, nor like the same part of another payload.
    static std::string Payload(uint32_t number) {
        static const std::string bytes = RandomBytes();
        const size_t begin = number * 499 % kSize;
        return bytes.substr(begin) + bytes.substr(0, begin);
    }
    // The send task and the check for an idle console.
    static bool BothSleep() { return Clock().AwaitSleepersOf(1s, 2, 1ms); }

  private:
    static std::string RandomBytes() {
        std::minstd_rand random;
        std::string bytes(kSize, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random() >> 8);
        return bytes;
    }
};

}  // namespace

TEST_F(SendPace, MegabytesBackToBackReachASlowConsoleWholeAndInOrder) {
    constexpr uint32_t kPayloads = 60;
    std::atomic<uint32_t> received{0};
    std::atomic<bool> over{false};
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    for (uint32_t number = 0; number < kPayloads; ++number)
        firmware.Send(MPM_ZEL_CMD_DASH_DATA, Payload(number));
    AwaitLog(kWouldBlock);
    std::thread consoleReads([&] {
        while (received < kPayloads && client.Receive(kSize) == Payload(received))
            ++received;
        over = true;
    });
    // A second passes only when the console has read all that there is.
    while (!over)
        if (BothSleep() && client.IsQuiet()) Advance(1s);
    consoleReads.join();
    EXPECT_EQ(received, kPayloads);
    EXPECT_EQ(LogCount("Resetting DASH communication"), 0u);
    EXPECT_EQ(LogCount(kReplaced), 0u);
}

TEST_F(SendPace, SmallPayloadsBackToBackFromTheFirstMomentOfASessionAllArrive) {
    Start(44);
    firmware.OnDash([this](std::span<const uint8_t>) {
        for (char payload = 'a'; payload <= 'z'; ++payload)
            firmware.Send(MPM_ZEL_CMD_DASH_DATA, std::string(1, payload));
    });
    for (size_t session = 1; session <= 10; ++session) {
        ConsoleClient client = Connect();
        client.Send("x");
        ASSERT_EQ(client.Receive(26), "abcdefghijklmnopqrstuvwxyz");
        client.Close();
        AwaitLog("After sock close", session);
    }
    EXPECT_EQ(LogCount(kReplaced), 0u);
}

TEST_F(SendPace, PayloadsBackToBackAfterASessionDoNotWaitForTheNextOne) {
    Start(44);
    // A console that closes without reading the payload kept from before resets its connection.
    AllowError("recv() failed. Error: 10054");
    for (size_t session = 1; session <= 10; ++session) {
        Connect().Close();
        AwaitLog("After sock close", session);
        for (const char* payload : {"too late", "as well", "and more"})
            firmware.Send(MPM_ZEL_CMD_DASH_DATA, payload);
        AwaitLog("updateDataToClient: exit", 3 * session);
    }
}

TEST_F(SendPace, TheNextPayloadWaitsUntilTheOneBeforeIsSent) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    Gate().FailNth("send", 1, WSAEWOULDBLOCK);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "first");
    AwaitLog(kWouldBlock);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "second");
    AwaitLog("updateDataToClient: Updating data", 2);
    EXPECT_EQ(LogCount("updateDataToClient: exit"), 1u);
    EXPECT_TRUE(client.IsQuiet());
    ASSERT_TRUE(Clock().AwaitSleepersOf(1s, 2));
    Advance(1s);
    EXPECT_EQ(client.Receive(11), "firstsecond");
    AwaitLog("updateDataToClient: exit", 2);
}

TEST_F(SendPace, ASuccessWithinAPayloadStartsTheCountOfFailuresAnew) {
    constexpr size_t kFailures = 4;  // one more ends the session
    Start(50);
    AllowErrorsOfAStop();
    ConsoleClient client = Connect();
    AwaitSessions(1);
    // More than the connection can hold, even when the console has read it empty three times.
    const std::string payload(size_t{64} << 20, 'x');
    service->m_dashClientInterface.updateDataToClient(payload.data(), payload.size());
    for (size_t failure = 1; failure <= 3 * kFailures; ++failure) {
        AwaitLog(kWouldBlock, failure);
        if (failure % kFailures == 0) client.AwaitClose(100ms);
        ASSERT_TRUE(Clock().AwaitSleepersOf(1s, 2));
        Advance(1s);
    }
    AwaitLog(kWouldBlock, 3 * kFailures + 1);
    EXPECT_EQ(LogCount("send() failed 5 times"), 0u);
    EXPECT_EQ(LogCount("after Waiting for Send Size to get Updated"), 1u);
    Stop();
}

TEST_F(SendPace, AHalfClosedConsoleGetsWhatItCouldNotTakeAtOnce) {
    firmware.Change([](mpm::Settings& settings) { settings.EndsClosedSessions = false; });
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    client.FinishSending();
    AwaitLog("DataRecvThread: exit");
    for (const uint32_t error : {WSAEWOULDBLOCK, WSAEINTR}) {
        Gate().FailNth("send", 1, error);
        firmware.Send(MPM_ZEL_CMD_DASH_DATA, "answer");
        AwaitLog("send() failed. Error: " + std::to_string(error));
        ASSERT_TRUE(Clock().AwaitSleepersOf(1s, 2));
        Advance(1s);
        EXPECT_EQ(client.Receive(6), "answer");
    }
}

TEST_F(SendPace, ACloseWaitsForTheSendThatIsUnderWay) {
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    Gate().Delay("send", 50ms);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "goodbye");
    ASSERT_TRUE(Eventually([] { return Gate().Count("send") == 1; }));
    firmware.Send(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET);
    EXPECT_EQ(client.Receive(7), "goodbye");
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit");
    EXPECT_EQ(LogCount("send() failed"), 0u);
    EXPECT_EQ(winhost::HandleTable::Instance().StaleUses(), 0u);
}

TEST_F(SendPace, AStopEndsTheWaitOfAPayload) {
    Start(50);
    AllowErrorsOfAStop();
    ConsoleClient client = Connect();
    AwaitSessions(1);
    Gate().FailNth("send", 1, WSAEWOULDBLOCK, true);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "first");
    AwaitLog(kWouldBlock);
    for (const char* payload : {"second", "third"})
        firmware.Send(MPM_ZEL_CMD_DASH_DATA, payload);
    AwaitLog("updateDataToClient: Updating data", 2);
    Stop();
    EXPECT_TRUE(client.AwaitClose());
}
