// The service control manager from both sides: what a service receives and what its senders are answered.
#include "winhost/service/Scm.h"

#include <winsvc.h>

#include <atomic>
#include <semaphore>

#include "winhost/tests/PcFixture.h"

namespace {

using winhost::Scm;

constexpr DWORD kEverything = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_POWEREVENT | SERVICE_ACCEPT_PRESHUTDOWN;
constexpr DWORD kResumeAutomatic = 18;

struct Delivered {
    DWORD control, eventType;
    std::thread::id thread;
};

// The service under the manager: what its main does is the test's choice, its handler records.
struct Service {
    std::function<void()> main;
    std::function<void(DWORD control)> onControl;
    SERVICE_STATUS_HANDLE handle = nullptr;
    std::vector<Delivered> delivered;
    std::atomic<int> entered{0};
    std::thread::id mainThread;
    DWORD argumentCount = 0;
    std::string firstArgument;
    LPVOID context = nullptr;

    void Register(LPVOID registered = nullptr);
    BOOL Report(DWORD state, DWORD accepted = kEverything) {
        SERVICE_STATUS status{SERVICE_WIN32_OWN_PROCESS, state, accepted, 0, 0, 7, 3000};
        return SetServiceStatus(handle, &status);
    }
};
Service* g_service;

DWORD WINAPI Handler(DWORD control, DWORD eventType, LPVOID, LPVOID context) {
    g_service->delivered.push_back({control, eventType, std::this_thread::get_id()});
    g_service->context = context;
    ++g_service->entered;
    if (g_service->onControl) g_service->onControl(control);
    if (control == SERVICE_CONTROL_STOP) g_service->Report(SERVICE_STOPPED);
    return 0;
}

void Service::Register(LPVOID registered) {
    handle = RegisterServiceCtrlHandlerExA("", Handler, registered);
}

void WINAPI Main(DWORD argumentCount, LPSTR* arguments) {
    g_service->mainThread = std::this_thread::get_id();
    g_service->argumentCount = argumentCount;
    g_service->firstArgument = arguments[0];
    g_service->main();
}

char g_noName[] = "";
const SERVICE_TABLE_ENTRYA kTable[] = {{g_noName, Main}, {nullptr, nullptr}};

class ScmTest : public PcFixture {
  protected:
    ScmTest() {
        g_service = &m_service;
        m_service.main = [this] {
            m_service.Register(this);
            m_service.Report(SERVICE_RUNNING);
        };
    }
    ~ScmTest() override {
        if (m_dispatcher.joinable()) {
            Scm::Instance().Control(SERVICE_CONTROL_STOP, 0, nullptr, Scm::Delivery::Forced);
            m_dispatcher.join();
        }
    }

    static uint32_t Control(uint32_t control, uint32_t eventType = 0) {
        return Scm::Instance().Control(control, eventType);
    }
    // The handler of this control returns when the test lets it.
    void Hold(DWORD held) {
        m_service.onControl = [=, this](DWORD control) {
            if (control == held) m_release.acquire();
        };
    }
    void AwaitHandler() const {
        while (m_service.entered == 0)
            std::this_thread::yield();
    }
    void Start() {
        m_dispatcher = std::thread([this] { m_result = StartServiceCtrlDispatcherA(kTable); });
    }
    void StartAndRun() {
        Start();
        ASSERT_TRUE(Scm::Instance().AwaitState(SERVICE_RUNNING));
    }
    BOOL DispatcherResult() {
        m_dispatcher.join();
        return m_result;
    }

    std::binary_semaphore m_release{0};
    Service m_service;
    std::thread m_dispatcher;
    BOOL m_result = FALSE;
};

TEST_F(ScmTest, WhatAHandlerThrowsGoesToTheCallerOfTheDispatcher) {
    m_service.onControl = [](DWORD) { throw std::runtime_error("no thread"); };
    m_dispatcher = std::thread([] { EXPECT_THROW(StartServiceCtrlDispatcherA(kTable), std::runtime_error); });
    ASSERT_TRUE(Scm::Instance().AwaitState(SERVICE_RUNNING));
    EXPECT_EQ(ERROR_EXCEPTION_IN_SERVICE, Control(SERVICE_CONTROL_POWEREVENT, kResumeAutomatic));
    m_dispatcher.join();
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, Control(SERVICE_CONTROL_STOP));
}

TEST_F(ScmTest, TheDispatcherFailsInAProcessThatTheManagerDidNotStart) {
    StartPc([](auto& pc) { pc.startedByScm = false; });
    EXPECT_EQ(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT, ErrorOf(StartServiceCtrlDispatcherA(kTable)));
}

TEST_F(ScmTest, WithoutAServiceTheDispatcherFailsAndControlsFindNoneActive) {
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, Control(SERVICE_CONTROL_STOP));
    const SERVICE_TABLE_ENTRYA empty[] = {{nullptr, nullptr}};
    EXPECT_EQ(ERROR_INVALID_DATA, ErrorOf(StartServiceCtrlDispatcherA(empty)));
    EXPECT_EQ(ERROR_INVALID_DATA, ErrorOf(StartServiceCtrlDispatcherA(nullptr)));
}

TEST_F(ScmTest, MainRunsOnAThreadOfItsOwnWithTheNameAsItsArgument) {
    StartAndRun();
    EXPECT_NE(m_dispatcher.get_id(), m_service.mainThread);
    EXPECT_EQ(1u, m_service.argumentCount);
    EXPECT_EQ("", m_service.firstArgument);
}

TEST_F(ScmTest, ControlsRunOnTheDispatchersThreadWithTheRegisteredContext) {
    StartAndRun();
    EXPECT_EQ(0u, Control(SERVICE_CONTROL_POWEREVENT, kResumeAutomatic));
    ASSERT_EQ(1u, m_service.delivered.size());
    EXPECT_EQ(DWORD{SERVICE_CONTROL_POWEREVENT}, m_service.delivered[0].control);
    EXPECT_EQ(kResumeAutomatic, m_service.delivered[0].eventType);
    EXPECT_EQ(m_dispatcher.get_id(), m_service.delivered[0].thread);
    EXPECT_EQ(this, m_service.context);
}

TEST_F(ScmTest, ControlsWaitForTheOneThatRuns) {
    StartAndRun();
    Hold(SERVICE_CONTROL_PRESHUTDOWN);
    std::thread first([] { Control(SERVICE_CONTROL_PRESHUTDOWN); });
    AwaitHandler();
    std::atomic<bool> answered{false};
    std::thread second([&] {
        Control(SERVICE_CONTROL_INTERROGATE);
        answered = true;
    });
    EXPECT_EQ(1, m_service.entered);
    EXPECT_FALSE(answered);
    m_release.release();
    first.join();
    second.join();
    EXPECT_EQ(2, m_service.entered);
}

TEST_F(ScmTest, TheManagerGivesUpOnAHandlerThatDoesNotReturn) {
    Change([](auto& pc) { pc.controlTimeoutMs = 20; });
    StartAndRun();
    Hold(SERVICE_CONTROL_PRESHUTDOWN);
    EXPECT_EQ(ERROR_SERVICE_REQUEST_TIMEOUT, Control(SERVICE_CONTROL_PRESHUTDOWN));
    EXPECT_EQ(ERROR_SERVICE_REQUEST_TIMEOUT, Control(SERVICE_CONTROL_INTERROGATE))
        << "it waits for the handler of the first";
    Change([](auto& pc) { pc.controlTimeoutMs = 10'000; });
    m_release.release();
    EXPECT_EQ(0u, Control(SERVICE_CONTROL_POWEREVENT, kResumeAutomatic));
    ASSERT_EQ(3u, m_service.delivered.size());
    EXPECT_EQ(DWORD{SERVICE_CONTROL_INTERROGATE}, m_service.delivered[1].control)
        << "what was given up is delivered";
}

TEST_F(ScmTest, TheDispatcherReturnsWhenTheServiceHasStoppedAndItsMainHasReturned) {
    m_service.main = [&] {
        m_service.Register();
        m_service.Report(SERVICE_RUNNING);
        m_release.acquire();
    };
    StartAndRun();
    EXPECT_EQ(0u, Control(SERVICE_CONTROL_STOP));
    EXPECT_EQ(uint32_t{SERVICE_STOPPED}, Scm::Instance().State());
    // Stopped, but its main still runs: it can be reached no more, and yet the dispatcher stays.
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, Control(SERVICE_CONTROL_INTERROGATE));
    m_release.release();
    EXPECT_TRUE(DispatcherResult());
}

TEST_F(ScmTest, AStartThatFailsEndsTheDispatcher) {
    m_service.main = [this] {
        m_service.Register();
        m_service.Report(SERVICE_START_PENDING, 0);
        m_service.Report(SERVICE_STOPPED);
    };
    Start();
    EXPECT_TRUE(DispatcherResult());
}

TEST_F(ScmTest, AMainThatNeverRegisteredAHandlerEndsTheDispatcher) {
    Fail("RegisterServiceCtrlHandlerExA", ERROR_SERVICE_NOT_IN_EXE);
    m_service.main = [] { EXPECT_EQ(nullptr, RegisterServiceCtrlHandlerExA("", Handler, nullptr)); };
    Start();
    EXPECT_TRUE(DispatcherResult());
}

TEST_F(ScmTest, AProcessCallsItsDispatcherOnce) {
    StartAndRun();
    Control(SERVICE_CONTROL_STOP);
    EXPECT_TRUE(DispatcherResult());
    EXPECT_EQ(ERROR_SERVICE_ALREADY_RUNNING, ErrorOf(StartServiceCtrlDispatcherA(kTable)));
}

TEST_F(ScmTest, AHandlerNeedsADispatcher) {
    EXPECT_EQ(ERROR_SERVICE_NOT_IN_EXE, ErrorOf(RegisterServiceCtrlHandlerExA("", Handler, nullptr)));
}

TEST_F(ScmTest, ReportsAreRecordedInTheirOrder) {
    m_service.main = [this] {
        m_service.Register();
        m_service.Report(SERVICE_START_PENDING, 0);
        m_service.Report(SERVICE_RUNNING);
    };
    StartAndRun();
    const auto reports = Records<winhost::ServiceReport>();
    ASSERT_EQ(2u, reports.size());
    EXPECT_EQ(uint32_t{SERVICE_START_PENDING}, reports[0].state);
    EXPECT_EQ(0u, reports[0].controlsAccepted);
    EXPECT_EQ(uint32_t{SERVICE_RUNNING}, reports[1].state);
    EXPECT_EQ(kEverything, reports[1].controlsAccepted);
    EXPECT_EQ(7u, reports[1].checkPoint);
    EXPECT_EQ(3000u, reports[1].waitHint);
}

TEST_F(ScmTest, AReportNeedsTheServicesHandleAndAState) {
    StartAndRun();
    SERVICE_STATUS status{};
    status.dwCurrentState = SERVICE_RUNNING;
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(SetServiceStatus(nullptr, &status)));
    status.dwCurrentState = 8;
    EXPECT_EQ(ERROR_INVALID_DATA, ErrorOf(SetServiceStatus(m_service.handle, &status)));
}

TEST_F(ScmTest, AControlThatIsNotAcceptedIsRefused) {
    StartAndRun();
    for (const uint32_t control :
         {SERVICE_CONTROL_SESSIONCHANGE, SERVICE_CONTROL_SHUTDOWN, SERVICE_CONTROL_PAUSE, 99}) {
        EXPECT_EQ(ERROR_INVALID_SERVICE_CONTROL, Control(control)) << control;
    }
    EXPECT_TRUE(m_service.delivered.empty());
}

TEST_F(ScmTest, InterrogateAndUserDefinedControlsAreAlwaysAccepted) {
    StartAndRun();
    for (const uint32_t control : {4, 128, 255})
        EXPECT_EQ(0u, Control(control)) << control;
    EXPECT_EQ(3u, m_service.delivered.size());
}

TEST_F(ScmTest, AForcedControlIsDeliveredInSpiteOfTheMask) {
    StartAndRun();
    EXPECT_EQ(0u, Scm::Instance().Control(SERVICE_CONTROL_SESSIONCHANGE, 5, nullptr, Scm::Delivery::Forced));
    ASSERT_EQ(1u, m_service.delivered.size());
    EXPECT_EQ(DWORD{SERVICE_CONTROL_SESSIONCHANGE}, m_service.delivered[0].control);
}

TEST_F(ScmTest, AServiceThatStartsTakesNoControls) {
    m_service.main = [this] {
        m_service.Register();
        m_service.Report(SERVICE_START_PENDING, 0);
    };
    Start();
    ASSERT_TRUE(Scm::Instance().AwaitState(SERVICE_START_PENDING));
    EXPECT_EQ(ERROR_INVALID_SERVICE_CONTROL, Control(SERVICE_CONTROL_STOP));
    EXPECT_EQ(ERROR_SERVICE_CANNOT_ACCEPT_CTRL, Control(SERVICE_CONTROL_INTERROGATE));
}

TEST_F(ScmTest, AServiceThatStopsTakesNoControls) {
    StartAndRun();
    m_service.Report(SERVICE_STOP_PENDING);
    EXPECT_EQ(ERROR_SERVICE_CANNOT_ACCEPT_CTRL, Control(SERVICE_CONTROL_STOP));
}

TEST_F(ScmTest, AControlThatWaitsIsAnsweredWhenTheServiceEnds) {
    StartAndRun();
    Hold(SERVICE_CONTROL_STOP);
    std::thread stop([] { Control(SERVICE_CONTROL_STOP); });
    AwaitHandler();
    uint32_t result = 0;
    std::thread late([&] { result = Control(SERVICE_CONTROL_POWEREVENT, kResumeAutomatic); });
    m_release.release();
    stop.join();
    late.join();
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, result);
    EXPECT_EQ(1, m_service.entered);
}

TEST_F(ScmTest, WaitingForAStateThatDoesNotComeEnds) {
    EXPECT_FALSE(Scm::Instance().AwaitState(SERVICE_RUNNING, std::chrono::milliseconds(1)));
}

}  // namespace
