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
