// The order in which the service stops.
#include <atomic>
#include <stdexcept>
#include <thread>

#include "tests/support/ServiceFixture.h"
#include "tests/support/ThrowAt.h"
#include "winhost/io/MailboxDevice.h"

namespace {

using namespace std::chrono_literals;

class Cleanup : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        service->m_bRunAsConsole = 1;
    }

    void Start() {
        StartService();
        ASSERT_TRUE(firmware.AwaitRequest("WriteMultiNwInfo"));
        AwaitLog("Call GetQueuedCompletionStatus from ReadFromMailBoxDriverThread");
        AwaitListener();
    }
};

}  // namespace

TEST_F(Cleanup, FollowsItsOrderInARegularBoot) {
    Start();
    firmware.Clear();
    EXPECT_TRUE(service->ServiceCleanup());
    ExpectLogInOrder({"Write ZEL Service status to MPM", "ZEL Service DOWN", "Clean up DASH object",
                      "Close HTTPS socket", "Waiting for DASH Client thread join",
                      "DASH Client thread joined", "Waiting for MB Driver Read thread termination",
                      "MB Driver Read thread terminated", "Cleanup WMI Interfaces",
                      "Cleanup Driver Interfaces", "zel_json_data file deleted successfully"});
    // The thread itself may say so before anybody waits for it.
    ExpectLogInOrder({"Close HTTPS socket", "HandleDASHClientThread: Exiting DASH Handler Thread",
                      "DASH Client thread joined"});
    EXPECT_TRUE(service->m_bServiceStopping);
    EXPECT_FALSE(service->m_bMPMVersionValid);
    EXPECT_FALSE(service->m_pDASHClientThreadObj);
    EXPECT_FALSE(service->m_mailBoxDriverInterface.IsOpen());
    ASSERT_EQ(firmware.Requests().size(), 1u);
    EXPECT_EQ(firmware.Requests()[0].As<ZELStatusRecord>().state, 2u);
}

TEST_F(Cleanup, LeavesOutDashAndTheReadThreadInSafeBoot) {
    Pc().Change([](auto& pc) { pc.cleanBoot = 1; });
    StartService();
    ASSERT_TRUE(firmware.AwaitRequest("GetZELVersion"));
    AwaitLog("ZEL Service Safeboot UP");
    EXPECT_TRUE(service->ServiceCleanup());
    EXPECT_EQ(LogCount("Calling HTTPS Socket Accept"), 0u);
    EXPECT_EQ(LogCount("Clean up DASH object"), 0u);
    EXPECT_EQ(LogCount("MB Driver Read thread"), 0u);
    // The read thread's last lines may come in between.
    ExpectLogInOrder(
        {"ZEL Service DOWN", "Cleanup Driver Interfaces", "zel_json_data file deleted successfully"});
}

TEST_F(Cleanup, TheReadThreadEndsOnlyWithTheProcess) {
    Start();
    service->ServiceCleanup();
    EXPECT_TRUE(service->m_pMBDriverReadThreadObj->joinable());
    EXPECT_EQ(winhost::MailboxDevice::Instance().OpenHandles(), 1u);
    EXPECT_EQ(winhost::MailboxDevice::Instance().PendingReads(), 10u);

    ExpectError("GetQueuedCompletionStatus failed with error: 995");
    EXPECT_TRUE(service->EndThreads(INFINITE));
    EXPECT_FALSE(service->m_pMBDriverReadThreadObj);
    EXPECT_EQ(winhost::MailboxDevice::Instance().OpenHandles(), 0u);
    EXPECT_EQ(winhost::MailboxDevice::Instance().PendingReads(), 0u);
    EXPECT_EQ(winhost::MailboxDevice::Instance().PendingRequests(), 0u);
}

TEST_F(Cleanup, WorksOnADeviceThatNeverOpened) {
    ExpectErrors(
        {"Error Invalid Handle, returning: 6 to the caller", "m_pDeviceInterfaceDetailData is NULL."});
    EXPECT_TRUE(service->ServiceCleanup());
    ExpectLogInOrder({"ZEL Service DOWN", "Clean up DASH object", "Cleanup Driver Interfaces",
                      "m_pDeviceInterfaceDetailData is NULL. No device interfaces present, returning "
                      "ERROR_INVALID_ADDRESS to the caller"});
    EXPECT_EQ(LogCount("Waiting for"), 0u);
}

TEST_F(Cleanup, AnExceptionAtTheDevicesCloseDoesNotEndIt) {
    OpenMailbox();
    service->m_statusFile.UpdateStatusFile();
    ExpectError("CloseMPMDevice failed with exception: boom");
    ThrowAt("CancelIoEx", std::runtime_error("boom"));
    EXPECT_TRUE(service->ServiceCleanup());
    ExpectLogInOrder({"Cleanup Driver Interfaces", "CloseMPMDevice failed with exception: boom",
                      "zel_json_data file deleted successfully"});
    EXPECT_EQ(winhost::MailboxDevice::Instance().OpenHandles(), 0u);
}

TEST_F(Cleanup, WakesTheConsole) {
    OpenMailbox();
    EXPECT_EQ(WaitForSingleObject(service->m_ConsoleStopEvent.Get(), 0), DWORD{WAIT_TIMEOUT});
    service->ServiceCleanup();
    EXPECT_EQ(WaitForSingleObject(service->m_ConsoleStopEvent.Get(), 0), WAIT_OBJECT_0);
}

TEST_F(Cleanup, LeavesTheConsolesEventAloneInServiceMode) {
    OpenMailbox();
    service->m_bRunAsConsole = 0;
    service->ServiceCleanup();
    EXPECT_EQ(WaitForSingleObject(service->m_ConsoleStopEvent.Get(), 0), DWORD{WAIT_TIMEOUT});
}

TEST_F(Cleanup, MayComeWhileTheFirstReportStillWaitsForTheFirmware) {
    ExpectErrors({"GetOverlappedResult failed for SendIOCtlToDriver with error: 995", "dwLastError = 995"});
    for (const char* code : {"1062", "6"}) {
        AllowError(std::string("Driver IOCTL failed in function GetZELVersion, with error ") + code);
    }
    AllowError("Error Service is not signalled as Up, returning: 1062 to the caller");
    AllowError("Error Invalid Handle, returning: 6 to the caller");
    firmware.Hold("WriteZELStatus");
    StartService();
    ASSERT_TRUE(firmware.AwaitRequest("WriteZELStatus"));
    // The stop ends the first report before it sends its own.
    HandleInTime(SERVICE_CONTROL_STOP);
    EXPECT_TRUE(firmware.AwaitCount("WriteZELStatus", 2));
    EXPECT_TRUE(service->EndThreads(INFINITE));
    EXPECT_EQ(winhost::MailboxDevice::Instance().OpenHandles(), 0u);
}

TEST_F(Cleanup, TheServiceStopsBeforeTheFirmwareHearsOfIt) {
    OpenMailbox();
    std::atomic<bool> stopping{false};
    firmware.Observe([&](const mpm::Event& event) {
        if (event.name == "WriteZELStatus") stopping = service->m_bServiceStopping != 0;
    });
    service->ServiceCleanup();
    EXPECT_TRUE(stopping);
    firmware.Observe(nullptr);
}

TEST_F(Cleanup, TheEndOfTheProcessWaitsForTheStop) {
    OpenMailbox();
    firmware.Hold("WriteZELStatus");
    std::thread stop([this] { service->ServiceCtrlHandler(SERVICE_CONTROL_STOP, 0); });
    ASSERT_TRUE(firmware.AwaitRequest("WriteZELStatus"));
    std::atomic<bool> over{false};
    std::thread end([&] {
        EXPECT_TRUE(service->EndThreads(INFINITE));
        over = true;
    });
    EXPECT_FALSE(Eventually([&] { return over.load(); }, 50ms));
    firmware.Release("WriteZELStatus");
    stop.join();
    end.join();
    EXPECT_EQ(LogCount("with dwLastError = 995"), 0u);
    EXPECT_EQ(Messages().back(), "Gracefully exitting ZEL Service. Close Log File.");
}

TEST_F(Cleanup, NoThreadIsLeftWithAnOwnerWhenOneHangs) {
    Start();
    service->m_kvmClientInterface.EnableKVM();
    AwaitLog("Calling KVM Socket Accept");
    const UniqueHandle release(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    service->m_detachedThreads.Start([&] { WaitForSingleObject(release.Get(), INFINITE); });
    service->ServiceCleanup();
    ExpectErrors({"GetQueuedCompletionStatus failed with error: 995",
                  "accept() API failed with error: ", "KVM socket Accept failed"});
    EXPECT_FALSE(service->EndThreads(0));
    EXPECT_FALSE(service->m_pMBDriverReadThreadObj);
    EXPECT_FALSE(service->m_kvmClientInterface.TakeThread());
    SetEvent(release.Get());
    EXPECT_TRUE(service->EndThreads(INFINITE));
}

TEST_F(Cleanup, AServiceThatNeverStartedEndsAtOnce) {
    const size_t lines = Log().size();
    EXPECT_TRUE(service->EndThreads(0));
    EXPECT_TRUE(service->EndThreads(0));
    EXPECT_EQ(Log().size(), lines);
}
