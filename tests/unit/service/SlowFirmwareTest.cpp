// Service controls while the firmware answers late or not at all. A control ends only its own request; the
// sessions of consoles and viewers survive.
#include <algorithm>
#include <thread>

#include "service/CommandDispatch.h"
#include "tests/unit/kvm/KvmFixture.h"

namespace {

using namespace std::chrono_literals;

class SlowFirmware : public KvmFixture {
  protected:
    void SetUp() override {
        KvmFixture::SetUp();
        service->m_bRunAsConsole = 1;
        // The request of the control.
        AllowError("GetOverlappedResult failed for SendIOCtlToDriver with error: 995");
        AllowError("with dwLastError = 995");
    }

    // As after the start: the firmware has the first report, and the service listens for consoles.
    void StartAll() {
        Start(50);
        service->UpdatePlatformInfoToMPM();
        service->m_pDASHClientThreadObj = service->m_detachedThreads.StartOwned(
            [service = service.get()] { service->m_dashClientInterface.HandleDASHClientThread(); });
    }
    ConsoleClient ConnectConsole() {
        constexpr char kServed[] = "Processing DASH traffic for socket with address: ";
        const size_t before = LogCount(kServed);
        ConsoleClient console(Pc().Description().ports.at(664));
        AwaitLog(kServed, before + 1);
        return console;
    }

    // Handles a power event whose own request the firmware holds until the control cancels it.
    void PassPowerEvent(DWORD eventType, const char* request) {
        const size_t before = firmware.Count(request);
        firmware.Hold(request);
        std::thread control([&] { service->ServiceCtrlHandler(SERVICE_CONTROL_POWEREVENT, eventType); });
        ASSERT_TRUE(firmware.AwaitCount(request, before + 1));
        PassSleepOf(2s);
        control.join();
        firmware.Release(request);
    }
    void Suspend() { PassPowerEvent(PBT_APMSUSPEND, "WriteZELStatus"); }
    void Resume() {
        AllowError("GetMPMStatus: cloudCerts is NULL");
        firmware.Clear();
        PassPowerEvent(PBT_APMRESUMEAUTOMATIC, "GetMPMStatus");
        ASSERT_TRUE(firmware.AwaitRequest("WriteMultiNwInfo"));
        // A console that connects during the report would wait for its end by the clock, which stands still.
        ASSERT_TRUE(Eventually([this] { return !service->m_bWakeUpdateInProgress; }));
    }

    // The scanning thread finds a changed address, which the firmware does not take.
    void HangTheScan() {
        firmware.Hold("WriteIPCompleteInformation");
        const size_t before = firmware.Count("WriteIPCompleteInformation");
        Pc().Change([](auto& pc) { pc.adapters->front().address = "192.168.1.77"; });
        ASSERT_TRUE(Clock().AwaitSleeper(61000ms));
        Advance(61002ms);
        ASSERT_TRUE(firmware.AwaitCount("WriteIPCompleteInformation", before + 1));
    }

    // A request that another thread has begun. The result is what it returned.
    std::thread HangingRequest(uint32_t& result) {
        firmware.Hold("WriteCloseSocketcmd");
        std::thread thread([&] { result = service->m_mailBoxDriverInterface.WriteCloseSocketcmd(664); });
        EXPECT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
        return thread;
    }
};

}  // namespace

TEST_F(SlowFirmware, ACloseRequestOfAConsoleOutlivesASuspendAndItsResume) {
    StartAll();
    ConsoleClient console = ConnectConsole();
    firmware.Hold("WriteCloseSocketcmd");
    console.FinishSending();
    ASSERT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
    Suspend();
    Resume();
    firmware.Release("WriteCloseSocketcmd");
    AwaitLog("DataRecvThread: exit");
    EXPECT_EQ(LogCount("MPM returned code"), 0u);
    EXPECT_EQ(LogCount("Resetting DASH communication"), 0u);

    // The firmware asks for the end of the connection after its answer.
    EXPECT_TRUE(console.AwaitClose());
    ConsoleClient next = ConnectConsole();
    next.Send("request");
    EXPECT_TRUE(firmware.AwaitRequest("WriteDASHPacket"));
}

TEST_F(SlowFirmware, ABlockOfAViewerOutlivesASuspendAndItsResume) {
    ConsoleClient viewer = StartSession(50);
    firmware.Hold("WriteKVMPacket");
    viewer.Send("block ");
    ASSERT_TRUE(firmware.AwaitRequest("WriteKVMPacket"));
    Suspend();
    Resume();
    EXPECT_EQ(LogCount("Return code for KVM write packet"), 0u);
    firmware.Release("WriteKVMPacket");
    viewer.Send("after");
    // The firmware's list of requests was cleared by the resume, the held one is in it once it is answered.
    EXPECT_TRUE(Eventually([&] { return FirmwareBytes().find("after") != std::string::npos; }));
    EXPECT_EQ(LogCount("Return code for KVM write packet"), 0u);
}

TEST_F(SlowFirmware, ASuspendThatWaitsForAScanEndsOnlyTheRequestOfTheScan) {
    StartAll();
    uint32_t result = 0;
    std::thread other = HangingRequest(result);
    HangTheScan();
    HandleInTime(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND);
    EXPECT_EQ(LogCount("dwIoControlCode = 0x90c, with dwLastError = 995"), 1u);
    EXPECT_EQ(LogCount("dwIoControlCode = 0x90d, with dwLastError = 995"), 0u);
    firmware.ClearFaults();
    other.join();
    EXPECT_EQ(result, 0u);
}

TEST_F(SlowFirmware, AStopEndsWhenEveryThreadHangsInARequest) {
    AllowErrorsOfAStop();
    AllowError("GetMPMStatus: cloudCerts is NULL");
    AllowError("Driver IOCTL failed in function GetZELVersion");
    StartAll();
    Enable();
    ConsoleClient viewer = ConnectSession();
    ConsoleClient console = ConnectConsole();
    for (const char* request : {"WriteKVMPacket", "WriteDASHPacket", "WriteOsInfo"})
        firmware.Hold(request);
    viewer.Send("x");
    console.Send("x");
    ASSERT_TRUE(firmware.AwaitRequest("WriteKVMPacket"));
    ASSERT_TRUE(firmware.AwaitRequest("WriteDASHPacket"));
    firmware.Clear();
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(firmware.AwaitRequest("WriteOsInfo"));
    HangTheScan();
    for (const char* request : {"GetMPMStatus", "WriteZELStatus", "WriteCloseSocketcmd"})
        firmware.Hold(request);
    firmware.Clear();
    service->m_bWakeUpdateInProgress = 0;
    firmware.Send(MPM_ZEL_CMD_S0i3_RESUME);
    ASSERT_TRUE(firmware.AwaitRequest("GetMPMStatus"));

    HandleInTime(SERVICE_CONTROL_STOP);
    EXPECT_EQ(Messages().back(), "Gracefully exitting ZEL Service. Close Log File.");
    // Requests that the stop does not wait for end when it closes the device.
    const std::vector<std::string> messages = Messages();
    const auto closing = std::find(messages.begin(), messages.end(), "Cleanup Driver Interfaces");
    ASSERT_NE(closing, messages.end());
    for (const char* function : {"0x900", "0x90b", "0x916"}) {
        const std::string line = std::string("dwIoControlCode = ") + function + ", with dwLastError = 995";
        EXPECT_TRUE(std::none_of(messages.begin(), closing, [&](const std::string& message) {
            return message.find(line) != std::string::npos;
        })) << line;
    }
    KillPrograms();
    Clock().SetManual(false);
    service.reset();
}
