// The filter driver from the start of the service to its stop.
#include <atomic>
#include <fstream>
#include <thread>

#include "tests/support/DriverPc.h"
#include "tests/support/ServiceFixture.h"

namespace {

using namespace std::chrono_literals;

class FilterDriverLife : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        driverpc::WritePowerShell("exit 0");
        driverpc::Install(driverpc::Driver());
        service->m_bRunAsConsole = 1;
    }
    void Describe(winhost::PcDescription& description) override {
        ServiceFixture::Describe(description);
        description.modernStandby = true;
        description.adapters->front().type = 71;
    }
    void Start() {
        StartService();
        AwaitListener();
    }
    void StartAndTurnOn() {
        Start();
        AwaitLog("Filter driver enable successfully");
    }
    // From now on PowerShell begins with a file, and ends when the test has written another one.
    static void HoldPowerShell() {
        driverpc::WritePowerShell("> C:/begun; until [ -e C:/go ]; do sleep 0.01; done");
    }
    static bool AwaitPowerShell() {
        return Eventually([] { return std::filesystem::exists(HostPath("C:\\begun")); });
    }
    static void ReleasePowerShell() { std::ofstream(HostPath("C:\\go")); }
};

}  // namespace

TEST_F(FilterDriverLife, ItsSupportIsTestedBetweenTheDeviceAndTheReadThread) {
    StartAndTurnOn();
    AwaitLog("Call GetQueuedCompletionStatus from ReadFromMailBoxDriverThread");
    AwaitLog("Calling HTTPS Socket Accept");
    // Two threads write the last lines.
    for (const char* last :
         {"Call GetQueuedCompletionStatus from ReadFromMailBoxDriverThread", "Calling HTTPS Socket Accept"})
        ExpectLogInOrder(
            {"Open MPM Device Success", "System supports S0 (Modern Standby) power state.", last});
    EXPECT_TRUE(driverpc::Runs());
}

TEST_F(FilterDriverLife, TheStopTurnsItOff) {
    StartAndTurnOn();
    service->ServiceCleanup();
    EXPECT_FALSE(driverpc::Runs());
    EXPECT_EQ(driverpc::Installed().startType, 4u);
    ExpectLogInOrder({"Cleanup WMI Interfaces", "Cleanup Driver Interfaces", "Disabling network binding...",
                      "Driver disabled successfully.", "zel_json_data file deleted successfully"});
}

TEST_F(FilterDriverLife, TheStopAlsoAsksForADriverThatIsOff) {
    Pc().Change([](auto& pc) { pc.modernStandby = false; });
    Start();
    EXPECT_EQ(LogCount("Driver is already disabled."), 1u);
    service->ServiceCleanup();
    EXPECT_EQ(LogCount("Driver is already disabled."), 2u);
    EXPECT_TRUE(driverpc::Actions().empty());
}

TEST_F(FilterDriverLife, TheStopOfASafeBootAsksForItToo) {
    Pc().Change([](auto& pc) { pc.cleanBoot = 1; });
    StartService();
    AwaitLog("ZEL Service Safeboot UP");
    service->ServiceCleanup();
    ExpectLogInOrder({"System supports S0", "ZEL Service DOWN", "Cleanup Driver Interfaces",
                      "Driver is already disabled.", "zel_json_data file deleted successfully"});
}

// A report on a thread that the stop does not join turns the driver on while the stop has begun.
TEST_F(FilterDriverLife, TheStopWaitsForAChangeThatIsUnderWayAndUndoesIt) {
    StartAndTurnOn();
    service->m_filterDriver.SetFilterDriver(false);
    HoldPowerShell();
    std::thread report([this] { service->m_filterDriver.UpdateFilterDriver(true, true); });
    ASSERT_TRUE(AwaitPowerShell());
    ASSERT_TRUE(driverpc::Runs());
    std::atomic<bool> isOver{false};
    std::thread stop([&] {
        service->ServiceCleanup();
        isOver = true;
    });
    AwaitLog("Cleanup Driver Interfaces");
    EXPECT_FALSE(Eventually([&] { return isOver.load(); }, 50ms));
    ReleasePowerShell();
    report.join();
    stop.join();
    EXPECT_FALSE(driverpc::Runs());
    EXPECT_EQ(service->m_filterDriver.m_filterDriverEnabled, 0);
    service->m_filterDriver.UpdateFilterDriver(true, true);
    EXPECT_FALSE(driverpc::Runs()) << "a report that comes later";
}

TEST_F(FilterDriverLife, TheStopGivesASlowDriverItsFiveSeconds) {
    Pc().Change([](auto& pc) { pc.services[0].stopMs = 2000; });
    StartAndTurnOn();
    std::thread stop([this] { service->ServiceCleanup(); });
    for (int poll = 0; poll < 4; ++poll)
        PassSleepOf(500ms);
    stop.join();
    EXPECT_FALSE(driverpc::Runs());
    EXPECT_EQ(LogCount("Driver disabled successfully."), 1u);
}
