// A console that reads slowly holds the firmware back, and loses nothing.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>

#include "tests/unit/dash/DashFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr char kWouldBlock[] = "send() failed. Error: 10035";

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

TEST_F(SendPace, WhatTheConnectionCannotTakeYetFollowsInItsOrder) {
    constexpr uint32_t kPayloads = 80;
    std::atomic<uint32_t> received{0};
    std::atomic<bool> over{false};
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    std::thread firmwareSends([&] {
        for (uint32_t number = 0; number < kPayloads && !over; ++number) {
            firmware.Send(MPM_ZEL_CMD_DASH_DATA, Payload(number));
            // The next one meets it on its way out; before that it would take its place.
            AwaitLog("after Waiting for Send Size to get Updated", number + 1);
        }
    });
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
    firmwareSends.join();
    EXPECT_EQ(received, kPayloads);
    EXPECT_EQ(LogCount("Resetting DASH communication"), 0u);
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
