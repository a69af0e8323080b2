// A payload for which there is no memory.
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "tests/support/RefusedMemory.h"
#include "tests/unit/dash/DashFixture.h"

namespace {

class OutOfMemory : public DashFixture {
  protected:
    void SendWithoutMemory() {
        constexpr size_t kSize = 54321;  // that nothing else asks for
        const size_t before = LogCount("updateDataToClient: exit");
        const RefusedMemory refused(kSize + 1);
        firmware.Send(MPM_ZEL_CMD_DASH_DATA, std::string(kSize, 'x'));
        AwaitLog("updateDataToClient: exit", before + 1);
    }
};

}  // namespace

TEST_F(OutOfMemory, APayloadThatFindsNoMemoryIsLostAndTheSessionGoesOn) {
    ExpectError("updateDataToClient: Failed to allocate memory for Sendbuffer");
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    SendWithoutMemory();
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "next");
    EXPECT_EQ(client.Receive(4), "next");
}

TEST_F(OutOfMemory, APayloadThatFindsNoMemoryTakesAnEarlierOneWithItAndEndsTheNextSession) {
    using namespace std::chrono_literals;
    constexpr char kFailed[] = "send() failed. Error: 10014";
    ExpectErrors({"updateDataToClient: Failed to allocate memory for Sendbuffer",
                  "send() failed 5 times. Closing send thread. Error: 10014"});
    Start(50);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "early");
    AwaitLog("updateDataToClient: exit");
    SendWithoutMemory();

    ConsoleClient client = Connect();
    for (size_t second = 1; second <= 5; ++second) {
        AwaitLog(kFailed, second);
        // It is not idle.
        client.Send("x");
        AwaitLog("recv() success. DASH packet received", second);
        ASSERT_TRUE(Clock().AwaitSleepersOf(1s, 2));
        Advance(1s);
    }
    EXPECT_TRUE(client.AwaitClose());
    AwaitLog("Resetting DASH communication");
    EXPECT_EQ(LogCount(kFailed), 5u);
}
