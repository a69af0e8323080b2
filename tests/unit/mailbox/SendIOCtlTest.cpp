// The one primitive under every request.
#include "tests/support/ServiceFixture.h"
#include "winhost/io/MailboxDevice.h"

namespace {

class SendIOCtl : public ServiceFixture {
  protected:
    MailBoxDriverInterface& Mailbox() { return service->m_mailBoxDriverInterface; }

    uint32_t SendState(uint32_t state = 1) {
        DWORD returned = 77;
        return Mailbox().SendIOCtlToDriver(MailboxCode::WriteZELStatus, &state, sizeof state, &returned,
                                           nullptr, 0);
    }
};

}  // namespace

TEST_F(SendIOCtl, CarriesTheInputAndBringsTheAnswer) {
    OpenMailbox();
    uint8_t status = 0;
    DWORD returned = 77;
    EXPECT_EQ(Mailbox().SendIOCtlToDriver(MailboxCode::GetMPMStatus, nullptr, 0, &returned, &status, 1), 0u);
    EXPECT_EQ(returned, 1u);
    EXPECT_EQ(status, 2);
    ExpectLogInOrder(
        {"Enter MailBoxDriverInterface::, SendIOCtlToDriver(), dwIoControlCode = 0x916, nInBufferSize = 0",
         "Asynchronous IO completed for SendIOCtlToDriver readbytes is 1"});
}

TEST_F(SendIOCtl, ARequestWithoutAnAnswerLogsNoByteCount) {
    OpenMailbox();
    EXPECT_EQ(SendState(), 0u);
    EXPECT_EQ(LogCount("nInBufferSize = 4"), 1u);
    EXPECT_EQ(LogCount("readbytes is"), 0u);
    EXPECT_EQ(firmware.Requests("WriteZELStatus").size(), 1u);
}

TEST_F(SendIOCtl, WithoutADeviceTheHandleIsInvalid) {
    ExpectError("SendIOCtlToDriver: Error Invalid Handle, returning: 6 to the caller");
    EXPECT_EQ(SendState(), 6u);
}

TEST_F(SendIOCtl, TheClosedGateStopsAllButTheStatusRequests) {
    ExpectError("SendIOCtlToDriver: Error Service is not signalled as Up, returning: 1062 to the caller");
    OpenMailbox();
    Mailbox().m_bServiceUp = 0;
    uint8_t status = 0;
    EXPECT_EQ(Mailbox().WriteCloseSocketcmd(664), 1062u);
    EXPECT_TRUE(firmware.Requests().empty());
    EXPECT_EQ(LogCount("not signalled as Up"), 1u);
    EXPECT_EQ(Mailbox().WriteZELStatus(1), 0u);
    EXPECT_EQ(Mailbox().GetMPMStatus(&status), 0u);
    EXPECT_EQ(firmware.Requests().size(), 2u);
}

TEST_F(SendIOCtl, TheByteCountNeedsAPlace) {
    ExpectError(
        "SendIOCtlToDriver: lpBytesReturned is NULL, returning ERROR_INVALID_ADDRESS to the caller, "
        "dwIoControlCode = ");
    OpenMailbox();
    EXPECT_EQ(Mailbox().SendIOCtlToDriver(MailboxCode::WriteZELStatus, nullptr, 0, nullptr, nullptr, 0),
              487u);
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(SendIOCtl, TheHandleIsTestedBeforeTheGateAndTheGateBeforeTheByteCount) {
    ExpectErrors({"Error Invalid Handle", "not signalled as Up"});
    EXPECT_EQ(Mailbox().SendIOCtlToDriver(MailboxCode::WriteDASHPacket, nullptr, 0, nullptr, nullptr, 0), 6u);
    OpenMailbox();
    Mailbox().m_bServiceUp = 0;
    EXPECT_EQ(Mailbox().SendIOCtlToDriver(MailboxCode::WriteDASHPacket, nullptr, 0, nullptr, nullptr, 0),
              1062u);
}

TEST_F(SendIOCtl, WithoutAnEventNothingIsSent) {
    ExpectError(
        "SendIOCtlToDriver: CreateEvent() API failed, Error creating overlapped event for interrupt thread - "
        "GetLastError: 8");
    OpenMailbox();
    Gate().FailNth("CreateEventA", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(SendState(), 8u);
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(SendIOCtl, ARequestThatTheDriverRefusesAtOnceFails) {
    ExpectError("DeviceIoControl() -- Asynchronous SendIOCtlToDriver command failed, GetLastError: 1450");
    OpenMailbox();
    Gate().FailNth("DeviceIoControl", 1, ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_EQ(SendState(), 1450u);
}

TEST_F(SendIOCtl, ARequestThatCompletesAtOnceCountsAsFailed) {
    ExpectError("DeviceIoControl() -- Asynchronous SendIOCtlToDriver command failed, GetLastError: ");
    OpenMailbox();
    winhost::MailboxDevice::Instance().CompleteRequestsAtOnce(true);
    SendState();
    winhost::MailboxDevice::Instance().CompleteRequestsAtOnce(false);
    EXPECT_EQ(LogCount("command failed, GetLastError: "), 1u);
}

TEST_F(SendIOCtl, TheFirmwaresErrorIsTheAnswer) {
    ExpectErrors({"GetOverlappedResult failed for SendIOCtlToDriver with error: 1450",
                  "Return from MailBoxDriverInterface::SendIOCtlToDriver(), dwIoControlCode = 0x904, with "
                  "dwLastError = 1450"});
    OpenMailbox();
    firmware.Refuse("WriteZELStatus", ERROR_NO_SYSTEM_RESOURCES, 1);
    EXPECT_EQ(SendState(), 1450u);
    EXPECT_EQ(SendState(), 0u);
}

TEST_F(SendIOCtl, AWaitThatFailsLeavesTheRequestPendingInName) {
    ExpectErrors({"SendIOCtlToDriver: WaitForSingleObject unexpected return code, status: 4294967295",
                  "with dwLastError = 997"});
    OpenMailbox();
    firmware.Hold("WriteCloseSocketcmd");
    // The logger waits for its mutex by the same call, so that only a repeated failure reaches the request.
    const uint32_t logWaits = [&] {
        const uint64_t before = Gate().Count("WaitForSingleObject");
        SendState();
        return static_cast<uint32_t>(Gate().Count("WaitForSingleObject") - before);
    }();
    Gate().FailNth("WaitForSingleObject", logWaits + 1, ERROR_INVALID_HANDLE);
    EXPECT_EQ(Mailbox().WriteCloseSocketcmd(664), 997u);
    // Its buffers are free again only because it was cancelled.
    EXPECT_EQ(winhost::MailboxDevice::Instance().PendingRequests(), 0u);
}

TEST_F(SendIOCtl, NoHandleIsLeftBehind) {
    ExpectError("DeviceIoControl() -- Asynchronous SendIOCtlToDriver command failed, GetLastError: 31");
    OpenMailbox();
    const uint64_t created = Gate().Count("CreateEventA"), closed = Gate().Count("CloseHandle");
    const uint64_t memoryQueries = Gate().Count("K32GetProcessMemoryInfo");
    SendState();
    Gate().FailNth("DeviceIoControl", 1, ERROR_GEN_FAILURE);
    SendState();
    // Every line of the log closes the pseudo handle of the process.
    const uint64_t pseudoHandles = Gate().Count("K32GetProcessMemoryInfo") - memoryQueries;
    EXPECT_EQ(Gate().Count("CreateEventA") - created, 2u);
    EXPECT_EQ(Gate().Count("CloseHandle") - closed - pseudoHandles, 2u);
}
