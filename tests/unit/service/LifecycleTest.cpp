// The program from its arguments to its end, as the SCM and a person at the console start it.
#include <stdexcept>
#include <thread>

#include "tests/support/ServiceFixture.h"
#include "tests/support/ThrowAt.h"
#include "winhost/service/Scm.h"

namespace {

using namespace std::chrono_literals;
using winhost::ServiceReport;

class Lifecycle : public ServiceFixture {
  protected:
    void TearDown() override {
        EndMain();
        ServiceFixture::TearDown();
    }

    static winhost::Scm& Scm() { return winhost::Scm::Instance(); }

    int Run(std::vector<std::string> arguments) {
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        const int argc = static_cast<int>(argv.size());
        argv.push_back(nullptr);
        return service->Main(argc, argv.data());
    }

    void StartMain(const std::string& argument) {
        m_main = std::thread([this, argument] { EXPECT_EQ(Run({"ZELService.exe", argument}), 0); });
    }
    void EndMain() {
        if (m_main.joinable()) m_main.join();
    }

    // Until the firmware has had its first report.
    void StartUnderScm() {
        StartMain("-service");
        PassSleepOf(1s);
        ASSERT_TRUE(Scm().AwaitState(SERVICE_RUNNING));
        ASSERT_TRUE(firmware.AwaitRequest("WriteMultiNwInfo"));
        AwaitListener();
    }

    std::vector<uint32_t> ReportedStates() {
        std::vector<uint32_t> states;
        for (const ServiceReport& report : Pc().Records<winhost::ServiceReport>())
            states.push_back(report.state);
        return states;
    }

    std::thread m_main;
};

class WrongInstallation : public Lifecycle {
  protected:
    void Describe(winhost::PcDescription& description) override {
        Lifecycle::Describe(description);
        description.modulePath = "C:\\Elsewhere\\ZELService.exe";
    }
};

class WithoutDriver : public Lifecycle {
  protected:
    void Describe(winhost::PcDescription& description) override { description.mailbox.clear(); }
};

class ByHand : public Lifecycle {
  protected:
    void Describe(winhost::PcDescription& description) override {
        Lifecycle::Describe(description);
        description.startedByScm = false;
    }
};

}  // namespace

TEST_F(Lifecycle, WithoutAnArgumentOnlyTheLogHearsOfIt) {
    ExpectErrors({"Argument incorrect. count = 1, 1", "arg = ZELService.exe"});
    EXPECT_EQ(Run({"ZELService.exe"}), 0);
    EXPECT_TRUE(HasLine("INFO", "Started by SYSTEM user"));
    EXPECT_TRUE(HasLine("ERROR", "Argument incorrect. count = 1, 1"));
    EXPECT_EQ(LogCount("arg = "), 1u);
    EXPECT_TRUE(firmware.Requests().empty());
    EXPECT_TRUE(Pc().Records<winhost::ServiceReport>().empty());
}

TEST_F(Lifecycle, WithTwoArgumentsEachIsTold) {
    ExpectErrors({"Argument incorrect. count = 3, 3", "arg = "});
    EXPECT_EQ(Run({"ZELService.exe", "-service", "-console"}), 0);
    ExpectLogInOrder(
        {"Argument incorrect. count = 3, 3", "arg = ZELService.exe", "arg = -service", "arg = -console"});
    EXPECT_TRUE(Pc().Records<winhost::ServiceReport>().empty());
}

TEST_F(Lifecycle, AnArgumentCountsToTheLetter) {
    ExpectErrors({"Invalid argument", "arg = "});
    for (const char* argument : {"-Service", "-CONSOLE", "-service ", "-console ", "-", "", "service"})
        EXPECT_EQ(Run({"ZELService.exe", argument}), 0);
    EXPECT_EQ(LogCount("Invalid argument"), 7u);
    EXPECT_EQ(LogCount("arg = ZELService.exe"), 7u);
    EXPECT_TRUE(HasLine("ERROR", "arg = -service "));
    EXPECT_EQ(LogCount("Starting as"), 0u);
}

TEST_F(Lifecycle, TheScmSeesTheServiceStartAndStop) {
    StartUnderScm();
    EXPECT_EQ(Scm().Control(SERVICE_CONTROL_STOP), NO_ERROR);
    EndMain();

    const auto reports = Pc().Records<winhost::ServiceReport>();
    ASSERT_EQ(ReportedStates(), (std::vector<uint32_t>{SERVICE_START_PENDING, SERVICE_RUNNING,
                                                       SERVICE_STOP_PENDING, SERVICE_STOPPED}));
    for (const ServiceReport& report : reports) {
        EXPECT_EQ(report.type, 16u);
        EXPECT_EQ(report.win32ExitCode, 0u);
    }
    EXPECT_EQ(reports[0].controlsAccepted, 0u);
    EXPECT_EQ(reports[0].waitHint, 20000u);
    EXPECT_GT(reports[0].checkPoint, 0u);
    EXPECT_EQ(reports[1].controlsAccepted, 321u);
    EXPECT_EQ(reports[1].waitHint, 0u);
    EXPECT_EQ(reports[1].checkPoint, 0u);
    EXPECT_EQ(reports[2].controlsAccepted, 321u);
    EXPECT_EQ(reports[2].waitHint, 3000u);
    EXPECT_EQ(reports[2].checkPoint, reports[0].checkPoint + 1);
    EXPECT_EQ(reports[3].checkPoint, 0u);
    ExpectLogInOrder(
        {"Started by SYSTEM user", "Starting as a Win32 Service", "Enter ZEL Initialization Block",
         "Register: ZEL Win32 Service started and initialized successfully",
         "ServiceCtrlHandler: SERVICE_CONTROL_STOP received",
         "Changing state of service in Service Control Manager to Stop Pending", "Cleanup Driver Interfaces",
         "Changing state of service in Service Control Manager to Stopped",
         "Gracefully exitting ZEL Service. Close Log File."});
    EXPECT_EQ(Messages().back(), "Gracefully exitting ZEL Service. Close Log File.");
}

TEST_F(Lifecycle, TheProcessEndsWithAllThreadsGoneAndTheDeviceClosed) {
    StartUnderScm();
    Scm().Control(SERVICE_CONTROL_STOP);
    EndMain();
    EXPECT_TRUE(service->EndThreads(INFINITE));
    EXPECT_TRUE(Eventually([this] { return !firmware.HostListening(); }));
    EXPECT_TRUE(firmware.Requests("WriteShutdownLaptop").empty());  // only the service ends
}

TEST_F(Lifecycle, AnInterrogationIsAnsweredWithTheStateAsItIs) {
    StartUnderScm();
    EXPECT_EQ(Scm().Control(SERVICE_CONTROL_INTERROGATE), NO_ERROR);
    EXPECT_EQ(Pc().Records<winhost::ServiceReport>().back().state, static_cast<uint32_t>(SERVICE_RUNNING));
    EXPECT_EQ(Pc().Records<winhost::ServiceReport>().size(), 3u);
    EXPECT_TRUE(HasLine("INFO", "ServiceCtrlHandler: SERVICE_CONTROL_INTERROGATE received"));
    Scm().Control(SERVICE_CONTROL_STOP);
}

TEST_F(Lifecycle, BeforeAShutdownTheFirmwareIsToldWhileTheDeviceIsOpen) {
    StartUnderScm();
    EXPECT_EQ(Scm().Control(SERVICE_CONTROL_PRESHUTDOWN), NO_ERROR);
    EndMain();
    const auto notices = firmware.Requests("WriteShutdownLaptop");
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices[0].data, (std::vector<uint8_t>{2, 0}));
    EXPECT_EQ(firmware.Requests().back().As<ZELStatusRecord>().state, 2u);
    ExpectLogInOrder({"ServiceCtrlHandler: SERVICE_CONTROL_PRESHUTDOWN received", "Stop Pending",
                      "WriteShutdownLaptop: connecting to Driver. Input buffer size = 2", "ZEL Service DOWN",
                      "Changing state of service in Service Control Manager to Stopped"});
}

TEST_F(Lifecycle, WithoutAHandlerNothingElseHappens) {
    ExpectError("Register: RegisterServiceCtrlHandlerEx() API failed with error: 5");
    Gate().FailNth("RegisterServiceCtrlHandlerExA", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run({"ZELService.exe", "-service"}), 0);
    EXPECT_TRUE(Pc().Records<winhost::ServiceReport>().empty());
    EXPECT_EQ(LogCount("Enter ZEL Initialization Block"), 0u);
    EXPECT_TRUE(service->EndThreads(INFINITE));
}

TEST_F(Lifecycle, AnExceptionEndsTheProgramWithoutItsText) {
    ExpectError("Exception: In main");
    ThrowAt("GetUserNameA", std::runtime_error("boom"));
    EXPECT_EQ(Run({"ZELService.exe", "-service"}), 0);
    EXPECT_TRUE(HasLine("ERROR", "Exception: In main"));
    EXPECT_EQ(LogCount("boom"), 0u);
    EXPECT_TRUE(Pc().Records<winhost::ServiceReport>().empty());
}

TEST_F(Lifecycle, AnExceptionOfAnyOtherKindDoesSoToo) {
    ExpectError("Unknown Exception: In main");
    ThrowAt("GetUserNameA", 1);
    EXPECT_EQ(Run({"ZELService.exe", "-service"}), 0);
    EXPECT_TRUE(HasLine("ERROR", "Unknown Exception: In main"));
}

TEST_F(Lifecycle, AnExceptionDuringTheStartStopsTheServiceWithACodeOfItsOwn) {
    ExpectError("Exception: In Register");
    ThrowAt("RegOpenKeyExA", std::runtime_error("boom"));
    EXPECT_EQ(Run({"ZELService.exe", "-service"}), 0);
    EXPECT_TRUE(HasLine("ERROR", "Exception: In Register"));
    EXPECT_EQ(LogCount("boom"), 0u);
    ASSERT_EQ(ReportedStates(), (std::vector<uint32_t>{SERVICE_START_PENDING, SERVICE_STOPPED}));
    EXPECT_EQ(Pc().Records<winhost::ServiceReport>().back().win32ExitCode, 1064u);
    EXPECT_EQ(Pc().Records<winhost::ServiceReport>().back().waitHint, 0u);
}

TEST_F(Lifecycle, AnExceptionOfAnyOtherKindDuringTheStartDoesSoToo) {
    ExpectError("Unknown Exception: In Register");
    ThrowAt("RegOpenKeyExA", 1);
    EXPECT_EQ(Run({"ZELService.exe", "-service"}), 0);
    ASSERT_EQ(ReportedStates(), (std::vector<uint32_t>{SERVICE_START_PENDING, SERVICE_STOPPED}));
    EXPECT_EQ(Pc().Records<winhost::ServiceReport>().back().win32ExitCode, 1064u);
    EXPECT_EQ(Pc().Records<winhost::ServiceReport>().back().waitHint, 0u);
}

TEST_F(ByHand, TheServiceModeEndsAtOnce) {
    EXPECT_EQ(Run({"ZELService.exe", "-service"}), 0);
    EXPECT_TRUE(HasLine("INFO", "Starting as a Win32 Service"));
    EXPECT_TRUE(Pc().Records<winhost::ServiceReport>().empty());
}

TEST_F(WrongInstallation, StopsTheServiceWithExitCode3) {
    ExpectErrors(
        {"Installed path doesn't match CWD path.", "ServiceSetup: DoInitialization failed with error: 3"});
    StartMain("-service");
    PassSleepOf(1s);
    EndMain();
    ASSERT_EQ(ReportedStates(), (std::vector<uint32_t>{SERVICE_START_PENDING, SERVICE_STOPPED}));
    const ServiceReport last = Pc().Records<winhost::ServiceReport>().back();
    EXPECT_EQ(last.win32ExitCode, 3u);
    EXPECT_EQ(last.checkPoint, 0u);
    EXPECT_EQ(last.controlsAccepted, 321u);
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(WrongInstallation, EndsTheConsoleToo) {
    ExpectErrors(
        {"Installed path doesn't match CWD path.", "ServiceSetup: DoInitialization failed with error: 3"});
    StartMain("-console");
    PassSleepOf(1s);
    EndMain();
    EXPECT_TRUE(Pc().Records<winhost::ServiceReport>().empty());
    EXPECT_EQ(LogCount("Launch as console is successful"), 0u);
}

TEST_F(ByHand, TheConsoleModeRunsWithoutAWordToTheScm) {
    StartMain("-console");
    PassSleepOf(1s);
    AwaitLog("Launch as console is successful");
    ASSERT_TRUE(firmware.AwaitRequest("WriteMultiNwInfo"));
    for (int minute = 0; minute < 3; ++minute)
        PassSleepOf(60s);
    EXPECT_EQ(LogCount("RunAsConsole"), 0u);
    EXPECT_TRUE(Pc().Records<winhost::ServiceReport>().empty());
    // Nothing in the program ends a console run; the test has to.
    service->ServiceCleanup();
    EndMain();
    EXPECT_TRUE(Pc().Records<winhost::ServiceReport>().empty());
}

TEST_F(WithoutDriver, TheStartDoesNotWaitForTheDevice) {
    ExpectErrors({"OpenMPMDevice() call failed with error: 487", "m_pDeviceInterfaceDetailData is NULL",
                  "Error Invalid Handle, returning: 6 to the caller"});
    StartMain("-service");
    PassSleepOf(1s);
    ASSERT_TRUE(Scm().AwaitState(SERVICE_RUNNING));
    AwaitLog("OpenMPMDevice() call failed with error: 487");
    EXPECT_EQ(Scm().Control(SERVICE_CONTROL_STOP), NO_ERROR);
    EndMain();
    EXPECT_EQ(ReportedStates().back(), static_cast<uint32_t>(SERVICE_STOPPED));
    ExpectLogInOrder({"SERVICE_CONTROL_STOP received", "Cleanup Driver Interfaces",
                      "m_pDeviceInterfaceDetailData is NULL. No device interfaces present, returning "
                      "ERROR_INVALID_ADDRESS to the caller",
                      "Gracefully exitting ZEL Service. Close Log File."});
    EXPECT_TRUE(service->EndThreads(INFINITE));
}

TEST_F(Lifecycle, WhatAnEarlierRunLeftIsRemovedAtTheStart) {
    const auto folder = HostPath(service->GetWorkingFolder());
    for (const char* name : {"terminate.txt", "DisplayMgr.log"}) {
        std::filesystem::copy_file(folder / "zel.log", folder / name);
    }
    StartService();
    EXPECT_FALSE(std::filesystem::exists(folder / "terminate.txt"));
    EXPECT_FALSE(std::filesystem::exists(folder / "DisplayMgr.log"));
    EXPECT_TRUE(std::filesystem::exists(folder / "zel.log"));
}
