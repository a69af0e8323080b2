// The ten reads, what ends them, and what does not.
#include <malloc.h>

#include <stdexcept>
#include <thread>

#include "service/CommandDispatch.h"
#include "tests/support/RefusedMemory.h"
#include "tests/support/ServiceFixture.h"
#include "winhost/core/HandleTable.h"
#include "tests/support/ThrowAt.h"
#include "winhost/io/MailboxDevice.h"

namespace {

constexpr char kName[] = "ReadFromMailBoxDriverThread";

// What the process has allocated; 0 under a sanitizer, which finds the use of memory that was freed itself.
size_t HeapBytes() {
    const auto heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

// Dispatched to no handler.
constexpr auto kHarmless = static_cast<MpmCommand>(0xC8);

class ReadLoop : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        OpenMailbox();
    }
    void TearDown() override {
        EndLoop();
        Device().CompleteReadsAtOnce(false);
        ServiceFixture::TearDown();
    }

    static winhost::MailboxDevice& Device() { return winhost::MailboxDevice::Instance(); }

    void StartLoop() {
        m_thread = std::thread([service = service.get()] { ReadFromMailBoxDriverThread(service); });
    }
    void StartLoopAndAwaitReads() {
        StartLoop();
        AwaitLog("Call GetQueuedCompletionStatus from ReadFromMailBoxDriverThread");
        ASSERT_EQ(Device().PendingReads(), 10u);
    }
    void JoinLoop() { m_thread.join(); }
    // As at the end of the process.
    void EndLoop() {
        if (!m_thread.joinable()) return;
        AllowError("GetQueuedCompletionStatus failed with error: 995");
        service->m_bServiceStopping = 1;
        service->m_mailboxReadLoop.Cancel();
        m_thread.join();
    }
    void ExpectClosedInOrder(const std::string& after) {
        ExpectLogInOrder({after, std::string(kName) + ": close handle completion port",
                          std::string(kName) + ": close handle read from MPM Device",
                          std::string(kName) + ": Exiting Thread Handler"});
        EXPECT_EQ(Messages().back(), std::string(kName) + ": Exiting Thread Handler");
        EXPECT_EQ(Device().OpenHandles(), 1u);
        EXPECT_EQ(Device().PendingReads(), 0u);
    }

    std::thread m_thread;
};

}  // namespace

TEST_F(ReadLoop, KeepsTenReadsPending) {
    StartLoopAndAwaitReads();
    ExpectLogInOrder({"Call GetNewHandleToMPMDevice from ReadFromMailBoxDriverThread",
                      "Call CreateIoCompletionPort from ReadFromMailBoxDriverThread",
                      "Call GetQueuedCompletionStatus from ReadFromMailBoxDriverThread"});
    EXPECT_TRUE(firmware.AwaitHostListening());
    EXPECT_EQ(Device().OpenHandles(), 2u);
}

TEST_F(ReadLoop, EachMessageIsDispatchedAndItsReadRenewed) {
    StartLoopAndAwaitReads();
    firmware.Send(kHarmless);
    AwaitLog("Call GetQueuedCompletionStatus from ReadFromMailBoxDriverThread", 2);
    ExpectLogInOrder({"ProcessRead: received command from driver 200, bytes read 0",
                      "ProcessRead: Unknown Command received from driver: 0xc8",
                      "Call ReadFile from ReadFromMailBoxDriverThread after ProcessRead",
                      "ReadFile returned successfully to ReadFromMailBoxDriverThread after ProcessRead",
                      "Call GetQueuedCompletionStatus from ReadFromMailBoxDriverThread"});
    EXPECT_EQ(Device().PendingReads(), 10u);
}

TEST_F(ReadLoop, ManyMessagesComeInTheirOrder) {
    StartLoopAndAwaitReads();
    for (uint8_t command = 100; command < 150; ++command)
        firmware.Send(static_cast<MpmCommand>(command));
    AwaitLog("Unknown Command received from driver", 50);
    std::vector<std::string> expected;
    for (int command = 100; command < 150; ++command)
        expected.push_back("received command from driver " + std::to_string(command) + ",");
    ExpectLogInOrder(expected);
    AwaitLog("ReadFile returned successfully", 50);
    EXPECT_EQ(Device().PendingReads(), 10u);
}

TEST_F(ReadLoop, AnEmptyReadDispatchesNothingAndIsRenewed) {
    StartLoopAndAwaitReads();
    firmware.SendRaw({});
    AwaitLog("ReadFile returned successfully");
    EXPECT_EQ(LogCount("received command from driver"), 0u);
    EXPECT_EQ(LogCount("is too short for a command"), 0u);
    EXPECT_EQ(Device().PendingReads(), 10u);
}

TEST_F(ReadLoop, AReadOfOneByteIsToldAndIgnored) {
    StartLoopAndAwaitReads();
    firmware.SendRaw({8});
    firmware.Send(kHarmless);
    AwaitLog("Unknown Command received from driver: 0xc8");
    EXPECT_TRUE(HasLine("WARN", "ProcessRead: message of 1 byte(s) is too short for a command, ignored"));
    EXPECT_EQ(LogCount("received command from driver"), 1u);
}

TEST_F(ReadLoop, AMessageThatFillsTheBufferIsDispatchedWhole) {
    StartLoopAndAwaitReads();
    firmware.Send(MPM_ZEL_CMD_DASH_DATA, std::vector<uint8_t>(mpm::kMaxMessagePayload, 'x'));
    AwaitLog("ReadFile returned successfully");
    ExpectLogInOrder({"received command from driver 8, bytes read 131070", "Buffer size 131070"});
}

TEST_F(ReadLoop, WithoutASecondHandleItEnds) {
    ExpectErrors(
        {"GetNewHandleToMPMDevice: CreateFile(", "GetNewHandleToMPMDevice failed with INVALID_HANDLE_VALUE"});
    Gate().FailNth("CreateFileA", 1, ERROR_ACCESS_DENIED);
    StartLoop();
    JoinLoop();
    EXPECT_EQ(Messages().back(), "GetNewHandleToMPMDevice failed with INVALID_HANDLE_VALUE");
}

TEST_F(ReadLoop, WithoutACompletionPortItEndsAndClosesItsHandle) {
    ExpectError("CreateIoCompletionPort() API failed with error: 8");
    Gate().FailNth("CreateIoCompletionPort", 1, ERROR_NOT_ENOUGH_MEMORY);
    StartLoop();
    JoinLoop();
    EXPECT_EQ(Device().OpenHandles(), 1u);
}

TEST_F(ReadLoop, AFirstReadThatFailsEndsItAndTheOthers) {
    ExpectError("ReadFile call-1 - Asynchronous Read command failed with error: 1450");
    Gate().FailNth("ReadFile", 4, ERROR_NO_SYSTEM_RESOURCES);
    const size_t handles = winhost::HandleTable::Instance().Size();
    StartLoop();
    JoinLoop();
    ExpectClosedInOrder("ReadFile call-1 - Asynchronous Read command failed with error: 1450");
    EXPECT_EQ(winhost::HandleTable::Instance().Size(), handles);
}

TEST_F(ReadLoop, AFirstReadThatCompletesAtOnceEndsIt) {
    ExpectError("ReadFile call-1 - Asynchronous Read command failed with error: ");
    Device().CompleteReadsAtOnce(true);
    StartLoop();
    JoinLoop();
    ExpectClosedInOrder("ReadFile call-1 - Asynchronous Read command failed with error: ");
}

TEST_F(ReadLoop, ABufferForWhichThereIsNoMemoryEndsItAndTheOthers) {
    const RefusedMemory refused(kMailboxBufferSize, 4);
    StartLoop();
    JoinLoop();
    EXPECT_EQ(Gate().Count("ReadFile"), 3u);
    EXPECT_TRUE(HasLine("INFO", "ReadFromMailBoxDriverThread: buffer allocation failed"));
    ExpectClosedInOrder("buffer allocation failed");
}

TEST_F(ReadLoop, ARenewedReadThatFailsEndsIt) {
    ExpectError(
        "ReadFromMailBoxDriverThread: ReadFile call-2 - Asynchronous Read command failed with error: 1450");
    StartLoopAndAwaitReads();
    Gate().FailNth("ReadFile", 1, ERROR_NO_SYSTEM_RESOURCES);
    firmware.Send(kHarmless);
    JoinLoop();
    ExpectClosedInOrder("ReadFile call-2 - Asynchronous Read command failed with error: 1450");
}

TEST_F(ReadLoop, ARenewedReadThatCompletesAtOnceEndsIt) {
    ExpectError(
        "ReadFromMailBoxDriverThread: ReadFile call-2 - Asynchronous Read command failed with error: ");
    StartLoopAndAwaitReads();
    Device().CompleteReadsAtOnce(true);
    firmware.Send(kHarmless);
    JoinLoop();
    ExpectClosedInOrder("ReadFile call-2 - Asynchronous Read command failed with error: ");
}

TEST_F(ReadLoop, AReadThatFailsEndsItForGood) {
    ExpectError("GetQueuedCompletionStatus failed with error: ");
    StartLoopAndAwaitReads();
    firmware.Vanish();
    JoinLoop();
    ExpectLogInOrder({"GetQueuedCompletionStatus failed with error: ",
                      "ReadFromMailBoxDriverThread: close handle completion port",
                      "ReadFromMailBoxDriverThread: Exiting Thread Handler"});
    EXPECT_EQ(Device().PendingReads(), 0u);
}

TEST_F(ReadLoop, AWaitThatFailsEndsIt) {
    ExpectError("GetQueuedCompletionStatus failed with error: 6");
    Gate().FailNth("GetQueuedCompletionStatus", 1, ERROR_INVALID_HANDLE);
    StartLoop();
    JoinLoop();
    ExpectClosedInOrder("GetQueuedCompletionStatus failed with error: 6");
}

TEST_F(ReadLoop, TheStopFlagIsTestedOnlyBetweenMessages) {
    StartLoopAndAwaitReads();
    service->m_bServiceStopping = 1;
    firmware.Send(kHarmless);
    JoinLoop();
    // A message that comes after the flag is still dispatched.
    ExpectClosedInOrder("Unknown Command received from driver: 0xc8");
    EXPECT_EQ(LogCount("ReadFile returned successfully"), 1u);
}

TEST_F(ReadLoop, CancelledItEndsWithAllItsReads) {
    ExpectError("GetQueuedCompletionStatus failed with error: 995");
    StartLoopAndAwaitReads();
    service->m_mailboxReadLoop.Cancel();
    JoinLoop();
    ExpectClosedInOrder("GetQueuedCompletionStatus failed with error: 995");
}

TEST_F(ReadLoop, CancelledBeforeItStartsItEndsAllTheSame) {
    ExpectError("GetQueuedCompletionStatus failed with error: 995");
    service->m_mailboxReadLoop.Cancel();
    StartLoop();
    JoinLoop();
    ExpectClosedInOrder("GetQueuedCompletionStatus failed with error: 995");
}

TEST_F(ReadLoop, AnExceptionInAHandlerCostsTheMessageAndItsReadAndNoMore) {
    ExpectError("exception error: boom");
    StartLoopAndAwaitReads();
    ThrowAt("InitiateSystemShutdownExA", std::runtime_error("boom"));
    for (size_t lost = 1; lost <= 2; ++lost) {
        firmware.Send(MPM_ZEL_CMD_REBOOT_NONDASH);
        AwaitLog("exception error: boom", lost);
        firmware.Send(kHarmless);
        AwaitLog("ReadFile returned successfully", lost);
        EXPECT_EQ(Device().PendingReads(), 10 - lost);
    }
    EXPECT_EQ(LogCount("Unknown Command received from driver: 0xc8"), 2u);
}

TEST_F(ReadLoop, AnExceptionIsLoggedWithTheErrorOfTheLoopAndNotOfTheHandler) {
    ExpectError("Last error: 997, exception error: boom");
    StartLoopAndAwaitReads();
    Gate().Ask([](const std::string& call, const void*) -> uint32_t {
        if (call != "InitiateSystemShutdownExA") return 0;
        SetLastError(ERROR_ACCESS_DENIED);
        throw std::runtime_error("boom");
    });
    firmware.Send(MPM_ZEL_CMD_REBOOT_NONDASH);
    AwaitLog("exception error: boom");
    EXPECT_EQ(LogCount("Last error: 997, exception error: boom"), 1u);
}

TEST_F(ReadLoop, AnExceptionOfAnyOtherKindEndsTheProcess) {
    // The child process of the other style has no firmware thread.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            StartLoopAndAwaitReads();
            ThrowAt("InitiateSystemShutdownExA", 1);
            firmware.Send(MPM_ZEL_CMD_REBOOT_NONDASH);
            JoinLoop();
        },
        "instance of 'int'");
}

TEST_F(ReadLoop, TenLostReadsEndItWithItsHandleClosed) {
    ExpectError("exception error: boom");
    StartLoopAndAwaitReads();
    ThrowAt("InitiateSystemShutdownExA", std::runtime_error("boom"));
    for (size_t lost = 1; lost <= 10; ++lost) {
        firmware.Send(MPM_ZEL_CMD_REBOOT_NONDASH);
        AwaitLog("exception error: boom", lost);
        EXPECT_EQ(Device().PendingReads(), 10 - lost);
    }
    JoinLoop();
    ExpectClosedInOrder("exception error: boom");
    EXPECT_EQ(LogCount("GetQueuedCompletionStatus failed"), 0u);
}

TEST_F(ReadLoop, ReadsThatNeverComeBackKeepTheirBuffers) {
    ExpectError("GetQueuedCompletionStatus failed with error: 6");
    // The wait behind the harmless message.
    Gate().FailNth("GetQueuedCompletionStatus", 2, ERROR_INVALID_HANDLE);
    StartLoopAndAwaitReads();
    const size_t held = HeapBytes();
    Gate().FailNth("CancelIoEx", 1, ERROR_GEN_FAILURE, true);
    firmware.Send(kHarmless);
    // Uncancelled, they do not come within the half second that the loop grants them.
    PassSleepOf(std::chrono::milliseconds(500));
    JoinLoop();
    EXPECT_EQ(Messages().back(), "ReadFromMailBoxDriverThread: Exiting Thread Handler");
    // The buffer of the harmless message may go; small allocations come and go all the time.
    EXPECT_GT(HeapBytes() + 2 * kMailboxBufferSize, held);
}

TEST_F(ReadLoop, ReadsThatHaveComeBackKeepNoBuffers) {
    ExpectError("GetQueuedCompletionStatus failed with error: 995");
    StartLoopAndAwaitReads();
    const size_t held = HeapBytes();
    service->m_mailboxReadLoop.Cancel();
    JoinLoop();
    if (held != 0) {
        EXPECT_LT(HeapBytes() + 9 * kMailboxBufferSize, held);
    }
}
