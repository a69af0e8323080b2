// A payload for which there is no memory.
#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>

#include "tests/unit/dash/DashFixture.h"

namespace {

// A size that nothing else in these tests asks for.
constexpr size_t kRefusedPayload = 54321;
using OutOfMemory = DashFixture;

}  // namespace

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    if (size == kRefusedPayload + 1) return nullptr;
    try {
        return operator new[](size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

TEST_F(OutOfMemory, APayloadThatFindsNoMemoryIsLostAndTheSessionGoesOn) {
    ExpectError("updateDataToClient: Failed to allocate memory for Sendbuffer");
    Start(50);
    ConsoleClient client = Connect();
    AwaitSessions(1);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, std::string(kRefusedPayload, 'x'));
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "next");
    EXPECT_EQ(client.Receive(4), "next");
    AwaitLog("updateDataToClient: Failed to allocate memory for Sendbuffer");
}

TEST_F(OutOfMemory, APayloadThatFindsNoMemoryTakesAnEarlierOneWithItAndEndsTheNextSession) {
    using namespace std::chrono_literals;
    constexpr char kFailed[] = "send() failed. Error: 10014";
    ExpectErrors({"updateDataToClient: Failed to allocate memory for Sendbuffer",
                  "send() failed 5 times. Closing send thread. Error: 10014"});
    Start(50);
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, "early");
    AwaitLog("updateDataToClient: exit");
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, std::string(kRefusedPayload, 'x'));
    AwaitLog("updateDataToClient: exit", 2);

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
