// When the firmware is brought up to date, and who waits for it.
#include <atomic>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "tests/support/ServiceFixture.h"

namespace {

using namespace std::chrono_literals;

class WakeUpdate : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        ASSERT_EQ(service->m_mailBoxDriverInterface.OpenMPMDevice(), 0u);
    }

    void AnswerStatus(uint8_t status) {
        firmware.Change([=](mpm::Settings& settings) {
            settings.MPMStatus = status;
            settings.StatusFollowsHost = false;
        });
    }
    void Disconnect() {
        Pc().Change([](auto& description) { description.connectedFlags = 0; });
    }
    void Connect() {
        Pc().Change([](auto& description) { description.connectedFlags = 0x12; });
    }
    void Suspend() { service->ServiceCtrlHandler(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND); }
    std::vector<std::string> RequestNames() {
        std::vector<std::string> names;
        for (const mpm::Request& request : firmware.Requests())
            names.push_back(request.name);
        return names;
    }
    std::vector<uint32_t> ReportedStates() {
        std::vector<uint32_t> states;
        for (const mpm::Request& request : firmware.Requests("WriteZELStatus"))
            states.push_back(request.As<ZELStatusRecord>().state);
        return states;
    }
    bool UpdateEnds() {
        return Eventually([this] { return !service->m_bWakeUpdateInProgress; });
    }
};

}  // namespace

TEST_F(WakeUpdate, AFirmwareThatKnowsTheHostNeedsNoUpdate) {
    AnswerStatus(1);
    service->WakeAndUpdateMPM(false);
    EXPECT_FALSE(service->m_bWakeUpdateInProgress);
    EXPECT_TRUE(HasLine("INFO", "Skipping platform updates to MPM"));
    EXPECT_EQ(RequestNames(), std::vector<std::string>{"GetMPMStatus"});
}

TEST_F(WakeUpdate, AnExceptionInItsFirstRequestLeavesTheNextWakeFree) {
    Gate().Ask([](const std::string& call, const void*) -> uint32_t {
        if (call == "DeviceIoControl") throw std::runtime_error("of the platform");
        return 0;
    });
    EXPECT_THROW(service->WakeAndUpdateMPM(false), std::runtime_error);
    EXPECT_FALSE(service->m_bWakeUpdateInProgress);
}

TEST_F(WakeUpdate, AFirmwareThatIsDownGetsTheWholeUpdate) {
    AnswerStatus(2);
    service->WakeAndUpdateMPM(false);
    ASSERT_TRUE(UpdateEnds());
    ExpectLogInOrder({"pMPMstatus: 2", "MPM is down pass nonDASH commands", "ZEL Service UP"});
    EXPECT_EQ(RequestNames(),
              (std::vector<std::string>{"GetMPMStatus", "WriteZELStatus", "WriteOsInfo", "GetZELVersion",
                                        "WriteCapabilityConfig", "WriteIPCompleteInformation",
                                        "WriteNetworkStatusInfo", "WriteADInfo", "GetCloudCertInfo",
                                        "WriteMultiNwInfo"}));
    EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{1});
}

TEST_F(WakeUpdate, AFirmwareThatDoesNotAnswerIsLeftAlone) {
    ExpectErrors(
        {"GetOverlappedResult failed", "Return from MailBoxDriverInterface::SendIOCtlToDriver()",
         "GetMPMStatus: cloudCerts is NULL, returning ERROR_INVALID_ADDRESS to the caller",
         "WakeAndUpdateMPM: MPM Status return failed, closing the connection and do complete cleanup"});
    firmware.Refuse("GetMPMStatus", ERROR_GEN_FAILURE);
    service->WakeAndUpdateMPM(false);
    EXPECT_FALSE(service->m_bWakeUpdateInProgress);
    EXPECT_TRUE(ReportedStates().empty());
}

TEST_F(WakeUpdate, ForcedItComesWhateverTheFirmwareSays) {
    AnswerStatus(1);
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(UpdateEnds());
    EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{1});
    EXPECT_EQ(LogCount("Skipping platform updates to MPM"), 0u);
    EXPECT_EQ(LogCount("MPM is down"), 0u);
}

TEST_F(WakeUpdate, ForcedItComesWithoutAnAnswerToo) {
    ExpectErrors({"GetOverlappedResult failed", "Return from MailBoxDriverInterface::SendIOCtlToDriver()",
                  "GetMPMStatus: cloudCerts is NULL, returning ERROR_INVALID_ADDRESS to the caller"});
    firmware.Refuse("GetMPMStatus", ERROR_GEN_FAILURE);
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(UpdateEnds());
    EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{1});
    EXPECT_EQ(LogCount("MPM Status return failed"), 0u);
}

TEST_F(WakeUpdate, ASecondWakeDuringAnUpdateIsDropped) {
    Disconnect();
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(Clock().AwaitSleeper(100ms));
    firmware.Clear();
    service->WakeAndUpdateMPM(true);
    EXPECT_TRUE(firmware.Requests().empty());
    EXPECT_TRUE(service->m_bWakeUpdateInProgress);
}

TEST_F(WakeUpdate, OneThatCannotStartIsNotInTheWayOfTheNext) {
    Gate().FailNth("std::thread", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_THROW(service->WakeAndUpdateMPM(true), std::system_error);
    EXPECT_FALSE(service->m_bWakeUpdateInProgress);
    EXPECT_TRUE(ReportedStates().empty());
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(UpdateEnds());
    EXPECT_EQ(firmware.Count("WriteMultiNwInfo"), 1u);
}

TEST_F(WakeUpdate, TheWaitEndsWithTheUpdate) {
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(UpdateEnds());
    service->WakeAndUpdateMPMAndWait(false);  // the firmware knows the host: nothing to wait for
    EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{1});
}

TEST_F(WakeUpdate, TheWaitEndsAfterThreeSecondsAndTheUpdateGoesOn) {
    Disconnect();
    const auto begin = Clock().Steady();
    std::atomic<bool> waited{false};
    std::thread waiter([&] {
        service->WakeAndUpdateMPMAndWait(true);
        waited = true;
    });
    // Other threads sleep in the same steps, so that a step of the clock may miss the waiter.
    EXPECT_TRUE(Eventually([&] {
        if (waited) return true;
        if (Clock().AwaitSleeper(100ms, 1ms)) Advance(100ms);
        return false;
    }));
    waiter.join();
    EXPECT_GE(Clock().Steady() - begin, 3s);
    EXPECT_FALSE(service->m_bWakeUpdateInProgress);
    EXPECT_FALSE(service->m_bPlatformUpdateDone);
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 0u);

    // The next wake starts a second update beside the first.
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(firmware.AwaitCount("WriteZELStatus", 2));
}

TEST_F(WakeUpdate, SafeBootReportsItsStateAndNothingElse) {
    service->m_bootMode = 1;
    service->WakeAndUpdateMPM(true);
    EXPECT_FALSE(service->m_bWakeUpdateInProgress);
    EXPECT_EQ(RequestNames(), (std::vector<std::string>{"GetMPMStatus", "GetZELVersion", "WriteZELStatus"}));
    EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{3});
    EXPECT_TRUE(HasLine("INFO", "ZEL Service Safeboot UP"));
    EXPECT_TRUE(service->m_mailBoxDriverInterface.m_bServiceUp);
}

TEST_F(WakeUpdate, SafeBootWithNetworkingHasAStateOfItsOwn) {
    service->m_bootMode = 2;
    service->WakeAndUpdateMPM(true);
    EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{4});
    EXPECT_TRUE(HasLine("INFO", "ZEL Service State change asked: 4"));
}

TEST_F(WakeUpdate, SafeBootReportsItsStateAlsoWhenNoUpdateIsDue) {
    AnswerStatus(1);
    service->m_bootMode = 1;
    service->WakeAndUpdateMPM(false);
    ExpectLogInOrder({"Skipping platform updates to MPM", "ZEL Service Safeboot UP"});
    EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{3});
    EXPECT_FALSE(service->m_bWakeUpdateInProgress);
}

TEST_F(WakeUpdate, ASuspendDuringTheUpdateClosesTheGateForTheRestOfIt) {
    ExpectErrors({"SendIOCtlToDriver: Error Service is not signalled as Up, returning: 1062 to the caller",
                  "Driver IOCTL failed in function GetCloudCertInfo, with error 1062"});
    firmware.Hold("GetZELVersion");
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(firmware.AwaitRequest("GetZELVersion"));
    service->ServiceCtrlHandler(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND);
    firmware.Release("GetZELVersion");
    // The suspend has cleared the flag, and the update goes on without it.
    EXPECT_TRUE(service->m_detachedThreads.AwaitEnd(INFINITE));
    EXPECT_EQ(ReportedStates(), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 0u);
}

TEST_F(WakeUpdate, AResumeAfterASuspendWithoutNetworkBringsTheFirmwareUpToDate) {
    Disconnect();
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(Clock().AwaitSleeper(100ms));
    Suspend();
    EXPECT_FALSE(service->m_bWakeUpdateInProgress);
    service->ServiceCtrlHandler(SERVICE_CONTROL_POWEREVENT, PBT_APMRESUMEAUTOMATIC);
    ASSERT_TRUE(firmware.AwaitCount("WriteZELStatus", 3));
    EXPECT_EQ(ReportedStates(), (std::vector<uint32_t>{1, 2, 1}));
    // The update of before the suspend ends with its next look for a network, the one of the resume waits.
    ASSERT_TRUE(Clock().AwaitSleepersOf(100ms, 2));
    Advance(100ms);
    ASSERT_TRUE(Clock().AwaitSleeper(100ms));
    EXPECT_TRUE(service->m_bWakeUpdateInProgress);
    Connect();
    Advance(100ms);
    ASSERT_TRUE(firmware.AwaitRequest("WriteMultiNwInfo"));
    ASSERT_TRUE(UpdateEnds());
    EXPECT_EQ(firmware.Count("WriteMultiNwInfo"), 1u);
    EXPECT_EQ(firmware.Count("WriteOsInfo"), 2u);
}

TEST_F(WakeUpdate, ASuspendEndsTheWaitForANetwork) {
    Disconnect();
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(Clock().AwaitSleeper(100ms));
    Suspend();
    Connect();
    Advance(100ms);
    EXPECT_TRUE(service->m_detachedThreads.AwaitEnd(INFINITE));
    EXPECT_EQ(firmware.Count("WriteMultiNwInfo"), 0u);
}

TEST_F(WakeUpdate, AWakeThatASuspendOvertakesReportsNothing) {
    for (const uint32_t bootMode : {0, 1, 2}) {
        SCOPED_TRACE(bootMode);
        service->m_bootMode = bootMode;
        firmware.Clear();
        firmware.Hold("GetMPMStatus");
        std::thread wake([this] { service->WakeAndUpdateMPM(true); });
        ASSERT_TRUE(firmware.AwaitRequest("GetMPMStatus"));
        Suspend();
        firmware.Release("GetMPMStatus");
        wake.join();
        ASSERT_TRUE(UpdateEnds());
        EXPECT_FALSE(Eventually([this] { return ReportedStates().size() > 1; }, 50ms));
        EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{2});
        EXPECT_FALSE(service->m_mailBoxDriverInterface.m_bServiceUp);
    }
}

TEST_F(WakeUpdate, AWakeInSafeBootThatAStopOvertakesLeavesTheGateClosed) {
    ExpectErrors({"with error: 995", "dwLastError = 995", "GetMPMStatus: cloudCerts is NULL"});
    service->m_bootMode = 1;
    firmware.Hold("GetMPMStatus");
    std::thread wake([this] { service->WakeAndUpdateMPM(true); });
    ASSERT_TRUE(firmware.AwaitRequest("GetMPMStatus"));
    service->ServiceCleanup();
    wake.join();
    EXPECT_FALSE(service->m_mailBoxDriverInterface.m_bServiceUp);
    EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{2});
    EXPECT_EQ(LogCount("ZEL Service Safeboot UP"), 0u);
}

TEST_F(WakeUpdate, AFarewellEndsAReportOfUpThatTheFirmwareDoesNotAnswer) {
    ExpectErrors({"with error: 995", "dwLastError = 995"});
    firmware.Hold("WriteZELStatus");
    service->WakeAndUpdateMPM(true);
    ASSERT_TRUE(firmware.AwaitCount("WriteZELStatus", 1));
    // First the report of the update is cancelled, then the farewell's own.
    HandleInTime(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND);
    ASSERT_TRUE(firmware.AwaitCount("WriteZELStatus", 2));
    EXPECT_EQ(ReportedStates(), (std::vector<uint32_t>{1, 2}));
    EXPECT_FALSE(service->m_mailBoxDriverInterface.m_bServiceUp);
    ExpectLogInOrder({"ZEL Service UP", "ZEL Service DOWN"});
    AllowError("Error Service is not signalled as Up, returning: 1062");
    AllowError("Driver IOCTL failed in function GetZELVersion, with error 1062");
}

TEST_F(WakeUpdate, AFarewellInSafeBootEndsTheQueryBeforeTheReport) {
    ExpectErrors({"with error: 995", "dwLastError = 995",
                  "Driver IOCTL failed in function GetZELVersion, with error 995"});
    service->m_bootMode = 2;
    firmware.Hold("GetZELVersion");
    std::thread wake([this] { service->WakeAndUpdateMPM(true); });
    ASSERT_TRUE(firmware.AwaitRequest("GetZELVersion"));
    HandleInTime(SERVICE_CONTROL_POWEREVENT, PBT_APMSUSPEND);
    wake.join();
    ASSERT_TRUE(firmware.AwaitRequest("WriteZELStatus"));
    EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{2});
    EXPECT_FALSE(service->m_mailBoxDriverInterface.m_bServiceUp);
}

TEST_F(WakeUpdate, AServiceThatStopsStartsNone) {
    service->ServiceCleanup();
    ExpectErrors({"Error Invalid Handle", "cloudCerts is NULL"});
    service->WakeAndUpdateMPM(true);
    EXPECT_FALSE(service->m_bWakeUpdateInProgress);
    EXPECT_EQ(ReportedStates(), std::vector<uint32_t>{2});
}

TEST_F(WakeUpdate, TheFirmwaresStateIsReadWithItsVersion) {
    service->m_mailBoxDriverInterface.m_bServiceUp = 1;
    service->UpdateManageabilityStatus();
    EXPECT_STREQ(service->GetManageabilityStatus().MPMVersion, "5.0.0.100");
    EXPECT_EQ(service->m_vorkVersion, 50u);
    EXPECT_EQ(service->m_provisionStatus, 2u);
    EXPECT_TRUE(service->m_bMPMVersionValid);
}

TEST_F(WakeUpdate, AFailedVersionQueryLeavesAnOldFirmware) {
    service->m_mailBoxDriverInterface.m_bServiceUp = 1;
    service->UpdateManageabilityStatus();
    service->m_bMPMVersionValid = 0;
    ExpectErrors({"GetOverlappedResult failed", "Return from MailBoxDriverInterface::SendIOCtlToDriver()",
                  "Driver IOCTL failed in function GetZELVersion, with error 31"});
    firmware.Refuse("GetZELVersion", ERROR_GEN_FAILURE);
    service->UpdateManageabilityStatus();
    EXPECT_STREQ(service->GetManageabilityStatus().MPMVersion, "Not Available");
    EXPECT_EQ(service->m_vorkVersion, 0u);
    EXPECT_EQ(service->m_provisionStatus, 0u);
    EXPECT_FALSE(service->m_bMPMVersionValid);
}

TEST_F(WakeUpdate, AVersionThatTheFirmwareItselfCallsNotAvailableIsNotValid) {
    service->m_mailBoxDriverInterface.m_bServiceUp = 1;
    firmware.Change([](mpm::Settings& settings) { settings.MPMVersion = "Not Available"; });
    service->UpdateManageabilityStatus();
    EXPECT_FALSE(service->m_bMPMVersionValid);
    EXPECT_EQ(service->m_vorkVersion, 50u);
}
