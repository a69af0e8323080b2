// Consoles are listened for only when the firmware has had its first report, or has had its time.
#include "tests/support/ServiceFixture.h"

namespace {

using namespace std::chrono_literals;

class DriverInitialisation : public ServiceFixture {
  protected:
    // The start waits for the report in steps of 100 ms, as the report does for a network.
    static void AwaitSteps(size_t threads) { ASSERT_TRUE(Clock().AwaitSleepersOf(100ms, threads)); }
    bool Listens() const { return LogCount("Calling HTTPS Socket Accept") > 0; }
};

}  // namespace

TEST_F(DriverInitialisation, ListensAfterThreeSecondsWhenTheReportIsStillUnderWay) {
    Pc().Change([](auto& pc) { pc.connectedFlags = 0; });
    StartService();
    for (int step = 0; step < 29; ++step) {
        ASSERT_NO_FATAL_FAILURE(AwaitSteps(2));
        Advance(100ms);
    }
    ASSERT_NO_FATAL_FAILURE(AwaitSteps(2));
    EXPECT_FALSE(Listens());
    Advance(100ms);
    AwaitLog("Calling HTTPS Socket Accept");
    EXPECT_FALSE(service->m_bPlatformUpdateDone);
}

TEST_F(DriverInitialisation, ReportsAlsoToAFirmwareThatKnowsTheHost) {
    firmware.Change([](mpm::Settings& settings) {
        settings.MPMStatus = 1;
        settings.StatusFollowsHost = false;
    });
    StartService();
    EXPECT_TRUE(firmware.AwaitRequest("WriteMultiNwInfo"));
    EXPECT_EQ(LogCount("Skipping platform updates to MPM"), 0u);
}

TEST_F(DriverInitialisation, ListensAsSoonAsTheReportIsOver) {
    firmware.Hold("WriteOsInfo");
    StartService();
    ASSERT_TRUE(firmware.AwaitRequest("WriteOsInfo"));
    AwaitSteps(1);
    EXPECT_FALSE(Listens());

    firmware.Release("WriteOsInfo");
    ASSERT_TRUE(Eventually([&] { return !service->m_bWakeUpdateInProgress; }));
    Advance(100ms);
    AwaitLog("Calling HTTPS Socket Accept");
}
