// Which installation may start, and how the device is waited for.
#include <atomic>
#include <future>
#include <thread>

#include "tests/support/ServiceFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr char kKey[] = "HKEY_LOCAL_MACHINE\\SOFTWARE\\WOW6432Node\\Tarvix\\Tarvix Manageability Service";

class Initialisation : public ServiceFixture {
  protected:
    uint32_t Initialise(int seconds = 1) {
        uint32_t result = 0;
        std::thread thread([&] { result = service->DoInitialization(); });
        for (int second = 0; second < seconds; ++second)
            PassSleepOf(1s);
        thread.join();
        return result;
    }
    void Install(const std::string& path) {
        Pc().Change([&](auto& description) { description.registry[kKey]["InstallationPath"] = path; });
    }
    void PlaceExecutable(const std::string& path) {
        Pc().Change([&](auto& description) { description.modulePath = path; });
    }
};

class DeviceRetry : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        service->m_bRunAsConsole = 1;
        firmware.Vanish();
        ExpectErrors({"ZELService::DoDriverInitialization: OpenMPMDevice() call failed with error: 487",
                      "m_pDeviceInterfaceDetailData is NULL. No device interfaces present"});
        // Of the farewell at the end of a test.
        AllowError("Error Invalid Handle, returning: 6 to the caller");
        m_thread = std::thread([this] { EXPECT_EQ(service->DoDriverInitialization(), 0u); });
    }
    void TearDown() override {
        if (m_thread.joinable()) {
            service->ServiceCleanup();
            m_thread.join();
        }
        ServiceFixture::TearDown();
    }

    size_t Tries() { return LogCount("SetupDiEnumDeviceInterfaces() API returned: 259"); }
    size_t ReportedFailures() { return LogCount("OpenMPMDevice() call failed with error: 487"); }
    void PassQuickRetries() {
        for (int retry = 0; retry < 5; ++retry)
            PassSleepOf(50ms);
    }

    std::thread m_thread;
};

}  // namespace

TEST_F(Initialisation, TheFolderBinOfTheInstallationIsTheRightPlace) {
    EXPECT_EQ(Initialise(), 0u);
    ExpectLogInOrder(
        {"Enter ZEL Initialization Block", "hKeyParent is passed.",
         "subkey: SOFTWARE\\WOW6432Node\\Tarvix\\Tarvix Manageability Service.",
         "valueName: InstallationPath.", "Couldn't read registy with RegOpenKeyEx() API in attempt 0",
         "Read from registry successful.", "Installed registry path: = C:\\Program Files\\Tarvix\\Service\\",
         "(INST: C:\\Program Files\\Tarvix\\Service\\bin), (CWD: C:\\Program "
         "Files\\Tarvix\\Service\\bin)",
         "Both installed path and CWD paths match."});
    EXPECT_TRUE(HasLine("WARN", "Couldn't read registy with RegOpenKeyEx() API in attempt 0"));
    EXPECT_EQ(LogCount("in attempt"), 1u);
}

TEST_F(Initialisation, TheBootModeIsTold) {
    const std::pair<uint32_t, std::string> modes[] = {{0, "Boot mode is Regular boot"},
                                                      {1, "Boot mode is Safe boot"},
                                                      {2, "Boot mode is Safe boot with Networking"},
                                                      {3, "Unknown Safe Boot mode: 3"}};
    for (const auto& [mode, line] : modes) {
        Pc().Change([mode = mode](auto& description) { description.cleanBoot = mode; });
        EXPECT_EQ(Initialise(), 0u);
        EXPECT_EQ(service->m_bootMode, mode);
        EXPECT_TRUE(HasLine("INFO", line));
    }
}

TEST_F(Initialisation, AWmiThatFailsRefusesTheStartWithItsCode) {
    ExpectError("DoInitialization: m_WMIInterfaceObj.DoInit() call failed with error: -2147217405");
    Pc().Change([](auto& description) { description.wmiConnectError = 0x80041003; });
    EXPECT_EQ(Initialise(), 0x80041003u);
}

TEST_F(Initialisation, InSafeBootNobodyAsksForWmi) {
    Pc().Change([](auto& description) { description.cleanBoot = 1; });
    EXPECT_EQ(Initialise(), 0u);
    EXPECT_EQ(Gate().Count("CoInitializeSecurity"), 0u);
}

TEST_F(Initialisation, APathWithoutItsSeparatorGetsBinGluedOn) {
    ExpectError("Installed path doesn't match CWD path.");
    Install("C:\\Program Files\\Tarvix\\Service");
    EXPECT_EQ(Initialise(), 3u);
    EXPECT_EQ(LogCount("(INST: C:\\Program Files\\Tarvix\\Servicebin), "), 1u);
}

TEST_F(Initialisation, ThePathsAreComparedToTheLetter) {
    ExpectError("Installed path doesn't match CWD path.");
    PlaceExecutable("c:\\Program Files\\Tarvix\\Service\\bin\\ZELService.exe");
    EXPECT_EQ(Initialise(), 3u);
    PlaceExecutable("C:\\Program Files\\Tarvix\\Service\\ZELService.exe");
    EXPECT_EQ(Initialise(), 3u);
    EXPECT_EQ(LogCount("Installed path doesn't match CWD path."), 2u);
}

TEST_F(Initialisation, AnExecutableWithoutAFolderIsTold) {
    ExpectError("Installed path doesn't match CWD path.");
    PlaceExecutable("ZELService.exe");
    EXPECT_EQ(Initialise(), 3u);
    EXPECT_TRUE(HasLine("INFO", "Obtained empty working directory"));
}

TEST_F(Initialisation, AMissingKeyIsTriedTenTimesWithASecondBetween) {
    ExpectError("Service path is empty");
    Pc().Change([](auto& description) { description.registry.clear(); });
    EXPECT_EQ(Initialise(10), 3u);
    EXPECT_EQ(LogCount("Couldn't read registy with RegOpenKeyEx() API in attempt"), 10u);
    ExpectLogInOrder({"in attempt 0", "in attempt 9",
                      "RegOpenKeyEx() encountered an error while reading form registry: 1011.",
                      "Reading registry failed.", "Service path is empty",
                      "Encountered error reading installation path from registry: = InstallationPath"});
}

TEST_F(Initialisation, AKeyThatComesLateIsRead) {
    const auto registry = Pc().Description().registry;
    Pc().Change([](auto& description) { description.registry.clear(); });
    uint32_t result = 1;
    std::thread thread([&] { result = service->DoInitialization(); });
    for (int second = 0; second < 3; ++second)
        PassSleepOf(1s);
    ASSERT_TRUE(Clock().AwaitSleeper(1s));
    Pc().Change([&](auto& description) { description.registry = registry; });
    Advance(1s);
    PassSleepOf(1s);
    thread.join();
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(LogCount("in attempt"), 5u);
}

TEST_F(Initialisation, AMissingValueIsTold) {
    ExpectError("Service path is empty");
    Pc().Change([](auto& description) { description.registry[kKey].clear(); });
    EXPECT_EQ(Initialise(), 3u);
    EXPECT_EQ(LogCount("RegQueryValueEx() encountered an error while reading form registry: "), 1u);
    ExpectLogInOrder({"RegQueryValueEx() encountered", "Reading registry failed.", "Service path is empty"});
}

TEST_F(Initialisation, AnEmptyValueIsNoPath) {
    ExpectError("Service path is empty");
    Install("");
    EXPECT_EQ(Initialise(), 3u);
    ExpectLogInOrder({"Read from registry successful.",
                      "Installed registry path: = ", "Service path is empty",
                      "Encountered error reading installation path from registry: = InstallationPath"});
}

TEST_F(Initialisation, ALongValueIsReadInFull) {
    ExpectError("Installed path doesn't match CWD path.");
    const std::string path = "C:\\" + std::string(3000, 'x') + "\\";
    Install(path);
    EXPECT_EQ(Initialise(), 3u);
    EXPECT_EQ(Gate().Count("RegQueryValueExA"), 3u);
}

TEST_F(Initialisation, AValueThatNeverFitsIsGivenUp) {
    ExpectError("Service path is empty");
    Gate().FailNth("RegQueryValueExA", 1, ERROR_MORE_DATA, true);
    EXPECT_EQ(Initialise(), 3u);
    EXPECT_EQ(LogCount("RegQueryValueEx() encountered an error"), 1u);
}

TEST_F(DeviceRetry, IsQuickAtFirstAndThenEveryTenSecondsWithALineInSixTries) {
    AwaitLog("OpenMPMDevice() call failed with error: 487");
    PassQuickRetries();
    ASSERT_TRUE(Clock().AwaitSleeper(10s));
    EXPECT_EQ(Tries(), 6u);
    EXPECT_EQ(ReportedFailures(), 1u);
    PassSleepOf(10s);
    ASSERT_TRUE(Clock().AwaitSleeper(10s));
    EXPECT_EQ(Tries(), 7u);
    EXPECT_EQ(ReportedFailures(), 2u);
    for (int retry = 0; retry < 5; ++retry)
        PassSleepOf(10s);
    ASSERT_TRUE(Clock().AwaitSleeper(10s));
    EXPECT_EQ(ReportedFailures(), 2u);
    PassSleepOf(10s);
    ASSERT_TRUE(Clock().AwaitSleeper(10s));
    EXPECT_EQ(ReportedFailures(), 3u);
}

TEST_F(DeviceRetry, ItsCounterWrapsWithoutASleep) {
    PassQuickRetries();
    // Tries 7 to 119 each follow a sleep; the 120th is followed by the next at once.
    for (int tries = 6; tries < 120; ++tries)
        PassSleepOf(10s);
    ASSERT_TRUE(Clock().AwaitSleeper(10s));
    EXPECT_EQ(Tries(), 121u);
}

TEST_F(DeviceRetry, ADriverThatComesLaterIsFoundAndTheFirmwareHearsOfTheHost) {
    PassQuickRetries();
    ASSERT_TRUE(Clock().AwaitSleeper(10s));
    firmware.ComeBack();
    Advance(10s);
    EXPECT_TRUE(firmware.AwaitRequest("WriteMultiNwInfo"));
    AwaitLog("Open MPM Device Success");
    AwaitListener();
}

TEST_F(DeviceRetry, AStopDoesNotWaitForADriverThatHoldsTheOpen) {
    ExpectError("ZELService::DoDriverInitialization: OpenMPMDevice() call failed with error: 995");
    PassQuickRetries();
    ASSERT_TRUE(Clock().AwaitSleeper(10s));
    std::promise<void> entered, leave;
    std::atomic<bool> held{false};
    Gate().Ask([&](const std::string& call, const void*) {
        if (call == "CreateFileA" && !held.exchange(true)) {
            entered.set_value();
            leave.get_future().wait();
        }
        return 0u;
    });
    firmware.ComeBack();
    Advance(10s);
    entered.get_future().wait();
    std::atomic<bool> over{false};
    std::thread stop([&] {
        service->ServiceCleanup();
        over = true;
    });
    EXPECT_TRUE(Eventually([&] { return over.load(); }, 5s));
    leave.set_value();
    stop.join();
    m_thread.join();
    EXPECT_FALSE(service->m_mailBoxDriverInterface.IsOpen());
    EXPECT_TRUE(firmware.Requests().empty());
    EXPECT_EQ(LogCount("Call GetNewHandleToMPMDevice"), 0u);
}

TEST_F(DeviceRetry, AStopDuringTheOpenStartsNothing) {
    PassQuickRetries();
    ASSERT_TRUE(Clock().AwaitSleeper(10s));
    Gate().Ask([this](const std::string& call, const void*) {
        if (call == "CreateFileA") service->SignalStop();
        return 0u;
    });
    firmware.ComeBack();
    Advance(10s);
    m_thread.join();
    EXPECT_EQ(LogCount("Open MPM Device Success"), 1u);
    EXPECT_EQ(LogCount("Call GetNewHandleToMPMDevice"), 0u);
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(DeviceRetry, AStopEndsIt) {
    PassQuickRetries();
    ASSERT_TRUE(Clock().AwaitSleeper(10s));
    EXPECT_TRUE(service->ServiceCleanup());
    m_thread.join();
    ExpectLogInOrder({"ZEL Service DOWN", "Clean up DASH object", "Cleanup Driver Interfaces",
                      "m_pDeviceInterfaceDetailData is NULL. No device interfaces present, returning "
                      "ERROR_INVALID_ADDRESS to the caller"});
    EXPECT_FALSE(service->m_mailBoxDriverInterface.IsOpen());
}
