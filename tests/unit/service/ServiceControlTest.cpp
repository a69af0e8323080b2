// What the service does on each control.
#include <algorithm>
#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "tests/support/ServiceFixture.h"

namespace {

using namespace std::chrono_literals;

class ServiceControl : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        service->m_bRunAsConsole = 1;
        OpenMailbox();
    }

    // What a power event writes.
    std::vector<std::string> PowerEvent(DWORD eventType) {
        const size_t before = Messages().size();
        EXPECT_EQ(service->ServiceCtrlHandler(SERVICE_CONTROL_POWEREVENT, eventType), DWORD{NO_ERROR});
        std::vector<std::string> messages = Messages();
        messages.erase(messages.begin(), messages.begin() + static_cast<long>(before));
        return messages;
    }

    static size_t CountEvents(const std::vector<std::string>& messages) {
        return static_cast<size_t>(
            std::count_if(messages.begin(), messages.end(),
                          [](const std::string& each) { return each.find(": PBT_") != std::string::npos; }));
    }

    static std::vector<std::string> OnlyLines(const std::string& line, DWORD eventType) {
        return {"ServiceCtrlHandler: SERVICE_CONTROL_POWEREVENT received",
                "ServiceCtrlHandler: Handling Powerevent Entry and exit", line,
                "ServiceCtrlHandler: " + std::to_string(eventType) + " received"};
    }
};

class Resume : public ServiceControl, public ::testing::WithParamInterface<std::pair<DWORD, const char*>> {};

}  // namespace

TEST_F(ServiceControl, SessionChangesAndUnknownControlsAreOnlyLogged) {
    const size_t before = Messages().size();
    EXPECT_EQ(service->ServiceCtrlHandler(SERVICE_CONTROL_SESSIONCHANGE, 5), DWORD{NO_ERROR});
    EXPECT_EQ(service->ServiceCtrlHandler(200, 0), DWORD{NO_ERROR});
    EXPECT_EQ(Messages().size(), before + 2);
    EXPECT_TRUE(HasLine("INFO", "ServiceCtrlHandler: SERVICE_CONTROL_SESSIONCHANGE received"));
    EXPECT_TRUE(HasLine("INFO", "ServiceCtrlHandler: Received ControlCode: 200"));
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(ServiceControl, AnInterrogationWaitsForTheReportThatIsUnderWay) {
    service->m_bRunAsConsole = 0;
    std::promise<void> entered, leave;
    std::atomic<int> reports{0};
    std::vector<DWORD> states;
    Gate().Ask([&](const std::string& call, const void*) {
        if (call != "SetServiceStatus") return 0u;
        if (reports++ == 0) {
            entered.set_value();
            leave.get_future().wait();
        }
        states.push_back(service->m_ServiceStatus.dwCurrentState);
        return 0u;
    });
    std::thread report([this] { service->ReportServiceStatus(SERVICE_RUNNING, NO_ERROR, 0); });
    entered.get_future().wait();
    std::thread interrogation([this] { service->ServiceCtrlHandler(SERVICE_CONTROL_INTERROGATE, 0); });
    AwaitLog("SERVICE_CONTROL_INTERROGATE received");
    EXPECT_FALSE(Eventually([&] { return reports > 1; }, 50ms));
    leave.set_value();
    report.join();
    interrogation.join();
    EXPECT_EQ(states, (std::vector<DWORD>{SERVICE_RUNNING, SERVICE_RUNNING}));
}

TEST_F(ServiceControl, StandbyAndItsEndAreOnlyLogged) {
    EXPECT_EQ(PowerEvent(PBT_APMSTANDBY),
              OnlyLines("ServiceCtrlHandler: PBT_APMSTANDBY received (entry into S0i3)", 5));
    EXPECT_EQ(PowerEvent(PBT_APMRESUMESTANDBY),
              OnlyLines("ServiceCtrlHandler: PBT_APMRESUMESTANDBY received (wake from S0i3)", 8));
    EXPECT_EQ(PowerEvent(10), OnlyLines("ServiceCtrlHandler: Received PowerEvent: 10", 10));
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(ServiceControl, ASuspendTellsTheFirmwareAndClosesTheGate) {
    ExpectError("Error Service is not signalled as Up");
    EXPECT_EQ(CountEvents(PowerEvent(PBT_APMSUSPEND)), 1u);
    ExpectLogInOrder({"ServiceCtrlHandler: SERVICE_CONTROL_POWEREVENT received",
                      "ServiceCtrlHandler: Handling Powerevent Entry and exit",
                      "ServiceCtrlHandler: PBT_APMSUSPEND received", "ZEL Service DOWN",
                      "ServiceCtrlHandler: 4 received"});
    ASSERT_EQ(firmware.Requests().size(), 1u);
    EXPECT_EQ(firmware.Requests()[0].As<ZELStatusRecord>().state, 2u);
    EXPECT_EQ(service->m_mailBoxDriverInterface.WriteCloseSocketcmd(664), 1062u);
}

TEST_P(Resume, BringsTheFirmwareUpToDate) {
    const auto& [eventType, name] = GetParam();
    PowerEvent(PBT_APMSUSPEND);
    EXPECT_EQ(CountEvents(PowerEvent(eventType)), 1u);
    const auto up = firmware.AwaitRequest("WriteZELStatus", [](const mpm::Request& request) {
        return request.As<ZELStatusRecord>().state == 1;
    });
    EXPECT_TRUE(up);
    EXPECT_TRUE(firmware.AwaitRequest("WriteMultiNwInfo"));
    ExpectLogInOrder({"ServiceCtrlHandler: " + std::string(name) + " received",
                      "ServiceCtrlHandler: " + std::to_string(eventType) + " received"});
}

INSTANTIATE_TEST_SUITE_P(EachKind, Resume,
                         ::testing::Values(std::pair{PBT_APMRESUMECRITICAL, "PBT_APMRESUMECRITICAL"},
                                           std::pair{PBT_APMRESUMESUSPEND, "PBT_APMRESUMESUSPEND"},
                                           std::pair{PBT_APMRESUMEAUTOMATIC, "PBT_APMRESUMEAUTOMATIC"}));

TEST_F(ServiceControl, AStopDoesNotHangWithAFirmwareThatHasGoneSilent) {
    ExpectErrors({"GetOverlappedResult failed for SendIOCtlToDriver with error: 995",
                  "Return from MailBoxDriverInterface::SendIOCtlToDriver(), dwIoControlCode = 0x904"});
    firmware.Hold("WriteZELStatus");
    std::thread stop([this] { service->ServiceCtrlHandler(SERVICE_CONTROL_STOP, 0); });
    ASSERT_TRUE(firmware.AwaitRequest("WriteZELStatus"));
    PassSleepOf(2s);
    stop.join();
    EXPECT_EQ(Messages().back(), "Gracefully exitting ZEL Service. Close Log File.");
}

TEST_F(ServiceControl, ASuspendDoesNotHangWithAFirmwareThatHasGoneSilent) {
    ExpectErrors({"GetOverlappedResult failed for SendIOCtlToDriver with error: 995", "dwLastError = 995"});
    firmware.Hold("WriteZELStatus");
    std::thread suspend([this] { service->ServiceCtrlHandler(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND); });
    ASSERT_TRUE(firmware.AwaitRequest("WriteZELStatus"));
    PassSleepOf(2s);
    suspend.join();
}

TEST_F(ServiceControl, AResumeDoesNotHangWithAFirmwareThatHasGoneSilent) {
    ExpectErrors({"GetOverlappedResult failed for SendIOCtlToDriver with error: 995", "dwLastError = 995"});
    AllowError("GetMPMStatus: cloudCerts is NULL");
    firmware.Hold("GetMPMStatus");
    std::thread resume(
        [this] { service->ServiceCtrlHandler(SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC); });
    ASSERT_TRUE(firmware.AwaitRequest("GetMPMStatus"));
    PassSleepOf(2s);
    resume.join();
    EXPECT_TRUE(firmware.AwaitRequest("WriteMultiNwInfo"));
}

TEST_F(ServiceControl, AStopEndsTheRequestsThatHang) {
    ExpectErrors({"GetOverlappedResult failed for SendIOCtlToDriver with error: 995", "dwLastError = 995"});
    firmware.Hold("WriteCloseSocketcmd");
    std::thread hanging(
        [this] { EXPECT_EQ(service->m_mailBoxDriverInterface.WriteCloseSocketcmd(664), 995u); });
    ASSERT_TRUE(firmware.AwaitRequest("WriteCloseSocketcmd"));
    // A service that is no console reports SERVICE_STOPPED before it closes the log. That report waits until
    // the request has logged how it ended.
    service->m_bRunAsConsole = 0;
    int reports = 0;
    Gate().Ask([&](const std::string& call, const void*) {
        if (call == "SetServiceStatus" && ++reports == 2) hanging.join();
        return 0u;
    });
    service->ServiceCtrlHandler(SERVICE_CONTROL_STOP, 0);
    EXPECT_FALSE(hanging.joinable());
}
