// How the filter driver is turned on and off, and what is logged about it.
#include <mutex>
#include <set>
#include <thread>

#include "tests/support/DriverPc.h"
#include "tests/support/ServiceFixture.h"
#include "winhost/core/HandleTable.h"

namespace {

using namespace std::chrono_literals;
using driverpc::Driver;
using driverpc::Install;
using driverpc::Installed;
using Texts = std::vector<std::string>;

constexpr char kNoEnableBinding[] = "Failed to enable network binding via PowerShell.";
constexpr char kNoDisableBinding[] = "Failed to disable network binding via PowerShell.";

class FilterDriverTest : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        driverpc::WritePowerShell("exit 0");
        m_handles = winhost::HandleTable::Instance().Size();
        m_linesBefore = Log().size();
    }
    void TearDown() override {
        EXPECT_EQ(m_handles, winhost::HandleTable::Instance().Size()) << "a handle is left open";
        ServiceFixture::TearDown();
    }

    FilterDriver& Control() { return service->m_filterDriver; }
    bool IsEnabled() { return Control().m_filterDriverEnabled != 0; }
    // "INFO Driver stopped."
    Texts Lines() const {
        Texts lines;
        for (const LogLine& line : Log())
            lines.push_back(line.level + " " + line.message);
        lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(m_linesBefore));
        return lines;
    }
    void ForgetLines() { m_linesBefore = Log().size(); }
    // On a machine with Modern Standby, with the driver running.
    void TurnOn(const winhost::DescribedService& driver = Driver()) {
        Install(driver);
        ASSERT_TRUE(Control().SetFilterDriver(true));
        ASSERT_TRUE(IsEnabled());
        ForgetLines();
    }
    static void PassPolls(int count) {
        for (int poll = 0; poll < count; ++poll)
            ASSERT_NO_FATAL_FAILURE(PassSleepOf(500ms));
    }
    // The calls that reach the service manager and the command processor, in their order.
    static void RecordCalls(Texts& calls, std::mutex& mutex) {
        Gate().Ask([&](const char* call, const void*) -> uint32_t {
            static const std::set<std::string> kAll = {
                "OpenSCManagerA", "OpenServiceA",         "QueryServiceConfigA",
                "StartServiceA",  "ChangeServiceConfigA", "QueryServiceStatus",
                "ControlService", "CloseServiceHandle",   "system"};
            std::lock_guard lock(mutex);
            if (kAll.contains(call)) calls.emplace_back(call);
            return 0;
        });
    }

  private:
    size_t m_handles = 0, m_linesBefore = 0;
};

}  // namespace

// ---- turning on ----

TEST_F(FilterDriverTest, TurnsOnAStoppedDriver) {
    Install(Driver());
    EXPECT_TRUE(Control().SetFilterDriver(true));
    EXPECT_TRUE(IsEnabled());
    EXPECT_TRUE(driverpc::Runs());
    EXPECT_EQ(Lines(), (Texts{"INFO Driver started successfully.", "INFO Enabling network binding...",
                              "INFO Network binding enabled."}));
    EXPECT_EQ(driverpc::Commands(), Texts{driverpc::kEnableBinding});
}

TEST_F(FilterDriverTest, AsksForTheRightsThatItNeedsAndNoMore) {
    // What is left out of 23 and 39 would make one of the calls fail.
    for (const char* user : {"SYSTEM", "alice"}) {
        Pc().Change([&](auto& pc) { pc.userName = user; });
        Install(Driver());
        EXPECT_EQ(Control().SetFilterDriver(true), std::string(user) == "SYSTEM");
    }
    ExpectError("Failed to open driver. Error: 5");
    EXPECT_FALSE(Control().SetFilterDriver(false));
    Pc().Change([](auto& pc) { pc.userName = "SYSTEM"; });
    EXPECT_TRUE(Control().SetFilterDriver(false));
}

class StartTypes : public FilterDriverTest, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(StartTypes, OnlyBootSystemAndDisabledBecomeOnDemand) {
    const uint32_t type = GetParam();
    winhost::DescribedService driver = Driver();
    driver.startType = type;
    Install(driver);
    EXPECT_TRUE(Control().SetFilterDriver(true));
    const bool isChanged = type == 0 || type == 1 || type == 4;
    EXPECT_EQ(Installed().startType, isChanged ? 3u : type);
    Texts lines = {"INFO Driver started successfully.", "INFO Enabling network binding...",
                   "INFO Network binding enabled."};
    if (isChanged)
        lines.insert(lines.begin(),
                     "INFO Driver start type is " + std::to_string(type) + " (disabled/boot/system).");
    EXPECT_EQ(Lines(), lines);
    EXPECT_EQ(driverpc::Actions(), isChanged ? (Texts{"start type 3", "start"}) : Texts{"start"});
}

INSTANTIATE_TEST_SUITE_P(All, StartTypes, ::testing::Range(0u, 5u));

TEST_F(FilterDriverTest, AnUnreadableConfigurationIsLeftAlone) {
    winhost::DescribedService driver = Driver();
    driver.startType = 4;
    Install(driver);
    ExpectError("Failed to start driver. Error: 1058");
    Gate().FailNth("QueryServiceConfigA", 1, ERROR_INSUFFICIENT_BUFFER);
    EXPECT_FALSE(Control().SetFilterDriver(true));
    EXPECT_EQ(Lines(), Texts{"ERROR Failed to start driver. Error: 1058"});
}

TEST_F(FilterDriverTest, ADriverWhoseStartTypeCannotBeChangedStaysOff) {
    winhost::DescribedService driver = Driver();
    driver.startType = 4;
    driver.changeError = 5;
    Install(driver);
    ExpectError("Failed to enable driver. Error: 5");
    EXPECT_FALSE(Control().SetFilterDriver(true));
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(Lines(), (Texts{"INFO Driver start type is 4 (disabled/boot/system).",
                              "ERROR Failed to enable driver. Error: 5"}));
}

TEST_F(FilterDriverTest, ADriverThatRunsAlreadyCountsAsTurnedOn) {
    winhost::DescribedService driver = Driver();
    driver.state = 4;
    Install(driver);
    EXPECT_TRUE(Control().SetFilterDriver(true));
    EXPECT_TRUE(IsEnabled());
    EXPECT_EQ(Lines(), (Texts{"INFO Driver is already running.", "INFO Enabling network binding...",
                              "INFO Network binding enabled."}));
}

TEST_F(FilterDriverTest, ADriverThatDoesNotStartStaysOff) {
    winhost::DescribedService driver = Driver();
    driver.startError = 31;
    Install(driver);
    ExpectError("Failed to start driver. Error: 31");
    EXPECT_FALSE(Control().SetFilterDriver(true));
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(Lines(), Texts{"ERROR Failed to start driver. Error: 31"});
    EXPECT_TRUE(driverpc::Commands().empty());
}

TEST_F(FilterDriverTest, ADriverWithoutItsBindingCountsAsTurnedOn) {
    Install(Driver());
    driverpc::WritePowerShell("exit 1");
    ExpectError(kNoEnableBinding);
    EXPECT_TRUE(Control().SetFilterDriver(true));
    EXPECT_TRUE(IsEnabled());
    EXPECT_EQ(Lines(), (Texts{"INFO Driver started successfully.", "INFO Enabling network binding...",
                              std::string("ERROR ") + kNoEnableBinding}));
}

TEST_F(FilterDriverTest, APcWithoutPowerShellFailsTheBindingAlone) {
    TurnOn();
    std::filesystem::remove(HostPath(R"(C:\Windows\System32\powershell.exe)"));
    ExpectErrors({kNoDisableBinding, kNoEnableBinding});
    EXPECT_TRUE(Control().SetFilterDriver(false));
    EXPECT_FALSE(IsEnabled());
    EXPECT_TRUE(Control().SetFilterDriver(true));
    EXPECT_TRUE(IsEnabled());
}

TEST_F(FilterDriverTest, APowerShellThatCannotBeRunFailsTheBindingAlone) {
    Install(Driver());
    ExpectError(kNoEnableBinding);
    Gate().FailNth("system", 1, 12);
    EXPECT_TRUE(Control().SetFilterDriver(true));
    EXPECT_TRUE(IsEnabled());
}

// ---- turning off ----

TEST_F(FilterDriverTest, TurnsOffARunningDriver) {
    TurnOn();
    EXPECT_TRUE(Control().SetFilterDriver(false));
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(Installed().state, 1u);
    EXPECT_EQ(Installed().startType, 4u);
    EXPECT_EQ(Lines(), (Texts{"INFO Disabling network binding...", "INFO Network binding disabled.",
                              "INFO Stopping driver...", "INFO Driver stopped.",
                              "INFO Driver disabled successfully."}));
    EXPECT_EQ(driverpc::Commands(), (Texts{driverpc::kEnableBinding, driverpc::kDisableBinding}));
}

TEST_F(FilterDriverTest, RemovesTheBindingWhileTheDriverStillRuns) {
    Texts calls;
    std::mutex mutex;
    Install(Driver());
    RecordCalls(calls, mutex);
    EXPECT_TRUE(Control().SetFilterDriver(true));
    EXPECT_EQ(calls, (Texts{"OpenSCManagerA", "OpenServiceA", "QueryServiceConfigA", "StartServiceA",
                            "system", "CloseServiceHandle", "CloseServiceHandle"}));
    calls.clear();
    EXPECT_TRUE(Control().SetFilterDriver(false));
    EXPECT_EQ(calls, (Texts{"OpenSCManagerA", "OpenServiceA", "system", "QueryServiceStatus",
                            "ControlService", "QueryServiceStatus", "ChangeServiceConfigA",
                            "CloseServiceHandle", "CloseServiceHandle"}));
    Gate().Reset();
}

TEST_F(FilterDriverTest, ADriverThatTheServiceHasNotTurnedOnCountsAsOff) {
    winhost::DescribedService driver = Driver();
    driver.state = 4;
    Install(driver);
    EXPECT_TRUE(Control().SetFilterDriver(false));
    EXPECT_EQ(Lines(), Texts{"INFO Driver is already disabled."});
    EXPECT_TRUE(driverpc::Runs());
}

TEST_F(FilterDriverTest, ADriverThatHasStoppedByItselfIsNotStopped) {
    TurnOn();
    Pc().Change([](auto& pc) { pc.services[0].state = 1; });
    EXPECT_TRUE(Control().SetFilterDriver(false));
    EXPECT_EQ(Lines(), (Texts{"INFO Disabling network binding...", "INFO Network binding disabled.",
                              "INFO Driver stopped.", "INFO Driver disabled successfully."}));
}

TEST_F(FilterDriverTest, ADriverHasFiveSecondsToStop) {
    winhost::DescribedService driver = Driver();
    driver.stopMs = 4500;
    TurnOn(driver);
    bool isOff = false;
    std::thread change([&] { isOff = Control().SetFilterDriver(false); });
    PassPolls(9);
    change.join();
    EXPECT_TRUE(isOff);
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(Installed().startType, 4u);
}

TEST_F(FilterDriverTest, ADriverThatTakesLongerStaysOnAndIsStoppedTheNextTime) {
    winhost::DescribedService driver = Driver();
    driver.stopMs = 5001;
    TurnOn(driver);
    ExpectError("Driver did not stop in time.");
    bool isOff = true;
    std::thread change([&] { isOff = Control().SetFilterDriver(false); });
    PassPolls(10);
    change.join();
    EXPECT_FALSE(isOff);
    EXPECT_TRUE(IsEnabled());
    EXPECT_EQ(Installed().startType, 3u);
    EXPECT_EQ(Lines(), (Texts{"INFO Disabling network binding...", "INFO Network binding disabled.",
                              "INFO Stopping driver...", "ERROR Driver did not stop in time."}));
    Advance(1ms);
    EXPECT_TRUE(Control().SetFilterDriver(false));
    EXPECT_FALSE(IsEnabled());
}

TEST_F(FilterDriverTest, ADriverThatRefusesTheStopStaysOn) {
    winhost::DescribedService driver = Driver();
    driver.stopError = 1052;
    TurnOn(driver);
    ExpectError("Failed to stop driver. Error: 1052");
    EXPECT_FALSE(Control().SetFilterDriver(false));
    EXPECT_TRUE(IsEnabled());
}

TEST_F(FilterDriverTest, ADriverThatCannotBeDisabledCountsAsOn) {
    winhost::DescribedService driver = Driver();
    driver.changeError = 5;
    TurnOn(driver);
    ExpectError("Failed to disable driver. Error: 5");
    EXPECT_FALSE(Control().SetFilterDriver(false));
    EXPECT_TRUE(IsEnabled());
    EXPECT_EQ(Lines().back(), "ERROR Failed to disable driver. Error: 5");
}

TEST_F(FilterDriverTest, AStateThatCannotBeReadEndsThePoll) {
    TurnOn();
    ExpectError("Driver did not stop in time.");
    Gate().FailNth("QueryServiceStatus", 1, 6, true);
    EXPECT_FALSE(Control().SetFilterDriver(false));
    EXPECT_EQ(Lines(), (Texts{"INFO Disabling network binding...", "INFO Network binding disabled.",
                              "ERROR Driver did not stop in time."}));
    EXPECT_EQ(Gate().Count("ControlService"), 0u);
    Gate().Reset();
}

// ---- a machine without the driver ----

TEST_F(FilterDriverTest, AMachineWithoutTheDriverIsNoError) {
    EXPECT_FALSE(Control().SetFilterDriver(true));
    EXPECT_FALSE(IsEnabled());
    EXPECT_EQ(Lines(), Texts{"INFO Driver not found: KelmarMnf"});
}

TEST_F(FilterDriverTest, ADriverThatIsRemovedWhileItRunsIsNoErrorEither) {
    TurnOn();
    Pc().Change([](auto& pc) { pc.services.clear(); });
    EXPECT_FALSE(Control().SetFilterDriver(false));
    EXPECT_TRUE(IsEnabled());
    EXPECT_EQ(Lines(), Texts{"INFO Driver not found: KelmarMnf"});
}

TEST_F(FilterDriverTest, AnyOtherRefusalToOpenItIsAnError) {
    winhost::DescribedService driver = Driver();
    driver.openError = 5;
    Install(driver);
    ExpectError("Failed to open driver. Error: 5");
    EXPECT_FALSE(Control().SetFilterDriver(true));
    EXPECT_EQ(Lines(), Texts{"ERROR Failed to open driver. Error: 5"});
}

TEST_F(FilterDriverTest, WithoutTheServiceManagerNothingIsDone) {
    Install(Driver());
    ExpectError("Failed to open Service Control Manager. Error: 1722");
    Gate().FailNth("OpenSCManagerA", 1, 1722);
    EXPECT_FALSE(Control().SetFilterDriver(true));
    EXPECT_EQ(Lines(), Texts{"ERROR Failed to open Service Control Manager. Error: 1722"});
}

// ---- the support ----

TEST_F(FilterDriverTest, ModernStandbyIsSupported) {
    Pc().Change([](auto& pc) { pc.modernStandby = true; });
    Control().CheckFilterDriverSupport();
    EXPECT_EQ(Control().m_supportsS0, 1);
    EXPECT_EQ(Lines(), Texts{"INFO System supports S0 (Modern Standby) power state."});
}

TEST_F(FilterDriverTest, WithoutModernStandbyTheDriverIsTurnedOff) {
    for (const bool s3 : {true, false}) {
        ForgetLines();
        Pc().Change([=](auto& pc) { pc.sleepS3 = s3; });
        Control().CheckFilterDriverSupport();
        EXPECT_EQ(Control().m_supportsS0, 0);
        EXPECT_EQ(Lines(),
                  (Texts{"INFO System does not support S0 (Modern Standby) power state.",
                         s3 ? "INFO System supports S3 (Sleep) power state."
                            : "INFO System does not support S3 (Sleep) power state.",
                         "INFO Driver is already disabled.", "INFO Filter driver disabled successfully"}));
    }
}

TEST_F(FilterDriverTest, ADriverThatCannotBeTurnedOffIsNotReportedAsDisabled) {
    winhost::DescribedService driver = Driver();
    driver.stopError = 1052;
    TurnOn(driver);
    ExpectError("Failed to stop driver. Error: 1052");
    Control().CheckFilterDriverSupport();
    EXPECT_EQ(LogCount("Filter driver disabled successfully"), 0u);
}

TEST_F(FilterDriverTest, UnknownCapabilitiesChangeNothing) {
    for (const uint8_t known : {0, 1}) {
        ForgetLines();
        Control().m_supportsS0 = known;
        ExpectError("Failed to retrieve power capabilities.");
        Gate().FailNth("GetPwrCapabilities", 1, 5);
        Control().CheckFilterDriverSupport();
        EXPECT_EQ(Control().m_supportsS0, known);
        EXPECT_EQ(Lines(), Texts{"ERROR Failed to retrieve power capabilities."});
    }
}
