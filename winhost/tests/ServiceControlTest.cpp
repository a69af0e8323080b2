// Services of the PC's description, as a program controls them.
#include <winsvc.h>

#include "winhost/tests/PcFixture.h"

namespace {

using winhost::DescribedService;
using Texts = std::vector<std::string>;

class ServiceControlTest : public PcFixture {
  protected:
    static constexpr DWORD kReadOnly = SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS;
    static constexpr DWORD kAll = kReadOnly | SERVICE_CHANGE_CONFIG | SERVICE_START | SERVICE_STOP;

    static void Describe(const DescribedService& service) {
        Change([&](auto& pc) { pc.services = {service}; });
    }
    static DescribedService Now() { return Description().services.at(0); }
    static std::vector<std::string> Actions() {
        std::vector<std::string> actions;
        for (const auto& action : Records<winhost::ServiceAction>())
            actions.push_back(action.service + ": " + action.action);
        return actions;
    }

    SC_HANDLE KeepOpened(SC_HANDLE handle) { return handle ? Keep(handle, CloseServiceHandle) : handle; }
    SC_HANDLE Manager() { return KeepOpened(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT)); }
    SC_HANDLE Open(DWORD access = kAll, const char* name = "driver") {
        return KeepOpened(OpenServiceA(Manager(), name, access));
    }
    static BOOL SetStart(SC_HANDLE service, DWORD type) {
        return ChangeServiceConfigA(service, SERVICE_NO_CHANGE, type, SERVICE_NO_CHANGE, nullptr, nullptr,
                                    nullptr, nullptr, nullptr, nullptr, nullptr);
    }
    static BOOL Stop(SC_HANDLE service) {
        SERVICE_STATUS status{};
        return ControlService(service, SERVICE_CONTROL_STOP, &status);
    }
    static DWORD StateOf(SC_HANDLE service) {
        SERVICE_STATUS status{};
        EXPECT_TRUE(QueryServiceStatus(service, &status));
        return status.dwCurrentState;
    }
};

}  // namespace

// ---- opening ----

TEST_F(ServiceControlTest, AServiceThatIsNotDescribedDoesNotExist) {
    EXPECT_EQ(ERROR_SERVICE_DOES_NOT_EXIST, ErrorOf(Open()));
    Describe({.name = "Driver"});
    EXPECT_NE(nullptr, Open(kAll, "dRIVER"));
}

TEST_F(ServiceControlTest, OnlyTheLocalManagersActiveDatabaseIsThere) {
    EXPECT_EQ(RPC_S_SERVER_UNAVAILABLE, ErrorOf(OpenSCManagerA("other", nullptr, SC_MANAGER_CONNECT)));
    EXPECT_EQ(ERROR_DATABASE_DOES_NOT_EXIST, ErrorOf(OpenSCManagerA(nullptr, "old", SC_MANAGER_CONNECT)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(OpenSCManagerA(nullptr, nullptr, 2)));
    EXPECT_NE(nullptr, KeepOpened(OpenSCManagerA("", "servicesactive", SC_MANAGER_CONNECT)));
}

TEST_F(ServiceControlTest, AServiceIsOpenedWithTheManagersHandle) {
    Describe({.name = "driver"});
    const SC_HANDLE service = Open();
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(OpenServiceA(service, "driver", kAll)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(OpenServiceA(nullptr, "driver", kAll)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(OpenServiceA(Manager(), nullptr, kAll)));
}

TEST_F(ServiceControlTest, AnOrdinaryUserOnlyReads) {
    Describe({.name = "driver"});
    Change([](auto& pc) { pc.userName = "alice"; });
    EXPECT_NE(nullptr, Open(kReadOnly));
    for (const DWORD right : {SERVICE_CHANGE_CONFIG, SERVICE_START, SERVICE_STOP})
        EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(Open(DWORD(right)))) << right;
}

TEST_F(ServiceControlTest, EachCallNeedsItsRight) {
    Describe({.name = "driver", .state = SERVICE_RUNNING});
    const SC_HANDLE service = Open(0);
    alignas(8) char buffer[512];
    DWORD needed = 0;
    SERVICE_STATUS status{};
    EXPECT_EQ(ERROR_ACCESS_DENIED,
              ErrorOf(QueryServiceConfigA(service, reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer),
                                          sizeof buffer, &needed)));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(QueryServiceStatus(service, &status)));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(SetStart(service, SERVICE_DISABLED)));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(StartServiceA(service, 0, nullptr)));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(Stop(service)));
    EXPECT_EQ(DWORD{SERVICE_RUNNING}, Now().state);
}

TEST_F(ServiceControlTest, AServiceThatIsStoppingDisabledOrGoneIsNotControlled) {
    Describe({.name = "driver", .state = SERVICE_STOP_PENDING});
    EXPECT_EQ(DWORD{SERVICE_STOP_PENDING}, StateOf(Open())) << "so described, it never stops";
    Describe({.name = "driver", .startType = SERVICE_DISABLED});
    const SC_HANDLE service = Open();
    EXPECT_EQ(ERROR_SERVICE_DISABLED, ErrorOf(StartServiceA(service, 0, nullptr)));
    Change([](auto& pc) { pc.services.clear(); });
    EXPECT_EQ(ERROR_SERVICE_MARKED_FOR_DELETE, ErrorOf(StartServiceA(service, 0, nullptr)));
}

TEST_F(ServiceControlTest, OtherControlsAndAManagersHandleAreRefused) {
    Describe({.name = "driver", .state = SERVICE_RUNNING});
    SERVICE_STATUS status{};
    EXPECT_EQ(ERROR_INVALID_SERVICE_CONTROL, ErrorOf(ControlService(Open(), SERVICE_CONTROL_PAUSE, &status)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(QueryServiceStatus(Manager(), &status)));
}

TEST_F(ServiceControlTest, AClosedHandleIsInvalidAndNothingElseClosesIt) {
    Describe({.name = "driver"});
    const size_t before = winhost::HandleTable::Instance().Size();
    const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE service = OpenServiceA(manager, "driver", kAll);
    EXPECT_FALSE(CloseHandle(service));
    // A service stays open without its manager.
    EXPECT_TRUE(CloseServiceHandle(manager));
    EXPECT_EQ(DWORD{SERVICE_STOPPED}, StateOf(service));
    EXPECT_TRUE(CloseServiceHandle(service));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CloseServiceHandle(service)));
    EXPECT_EQ(before, winhost::HandleTable::Instance().Size());
}

// ---- the configuration ----

TEST_F(ServiceControlTest, TheConfigurationShowsTypeAndStartType) {
    Describe({.name = "driver", .type = SERVICE_FILE_SYSTEM_DRIVER, .startType = SERVICE_SYSTEM_START});
    alignas(8) char buffer[512];
    auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer);
    DWORD needed = 0;
    ASSERT_TRUE(QueryServiceConfigA(Open(), config, sizeof buffer, &needed));
    EXPECT_EQ(DWORD{SERVICE_FILE_SYSTEM_DRIVER}, config->dwServiceType);
    EXPECT_EQ(DWORD{SERVICE_SYSTEM_START}, config->dwStartType);
    EXPECT_EQ(DWORD{SERVICE_ERROR_NORMAL}, config->dwErrorControl);
    EXPECT_STREQ("driver", config->lpDisplayName);
    EXPECT_STREQ("\\SystemRoot\\System32\\drivers\\driver.sys", config->lpBinaryPathName);
    EXPECT_STREQ("", config->lpDependencies);
}

TEST_F(ServiceControlTest, ABufferWithoutRoomForTheTextsIsRefusedWithTheSize) {
    Describe({.name = "driver"});
    const SC_HANDLE service = Open();
    DWORD needed = 0;
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOf(QueryServiceConfigA(service, nullptr, 0, &needed)));
    EXPECT_GT(needed, sizeof(QUERY_SERVICE_CONFIGA));
    std::vector<uint64_t> buffer(needed / 8 + 1);
    auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer.data());
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOf(QueryServiceConfigA(service, config, needed - 1, &needed)));
    EXPECT_TRUE(QueryServiceConfigA(service, config, needed, &needed));
}

TEST_F(ServiceControlTest, TheStartTypeAloneCanBeChanged) {
    Describe({.name = "driver"});
    const SC_HANDLE service = Open();
    EXPECT_TRUE(SetStart(service, SERVICE_DISABLED));
    EXPECT_EQ(4u, Now().startType);
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(SetStart(service, 5)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(SetStart(service, SERVICE_NO_CHANGE)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED,
              ErrorOf(ChangeServiceConfigA(service, SERVICE_NO_CHANGE, 3, SERVICE_NO_CHANGE, "x.sys", nullptr,
                                           nullptr, nullptr, nullptr, nullptr, nullptr)));
    EXPECT_EQ((Texts{"driver: start type 4"}), Actions());
}

TEST_F(ServiceControlTest, OnlyADriverStartsWithTheSystem) {
    Describe({.name = "driver", .type = SERVICE_WIN32_OWN_PROCESS});
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(SetStart(Open(), SERVICE_BOOT_START)));
    Describe({.name = "driver"});
    EXPECT_TRUE(SetStart(Open(), SERVICE_BOOT_START));
}

// ---- start and stop ----

TEST_F(ServiceControlTest, AServiceIsStartedOnce) {
    Describe({.name = "driver"});
    const SC_HANDLE service = Open();
    EXPECT_TRUE(StartServiceA(service, 0, nullptr));
    EXPECT_EQ(DWORD{SERVICE_RUNNING}, StateOf(service));
    EXPECT_EQ(ERROR_SERVICE_ALREADY_RUNNING, ErrorOf(StartServiceA(service, 0, nullptr)));
    EXPECT_EQ((Texts{"driver: start"}), Actions());
}

TEST_F(ServiceControlTest, AStopEndsAtOnceWhenItTakesNoTime) {
    Describe({.name = "driver", .state = SERVICE_RUNNING});
    const SC_HANDLE service = Open();
    SERVICE_STATUS status{};
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status));
    EXPECT_EQ(DWORD{SERVICE_STOPPED}, status.dwCurrentState);
    EXPECT_EQ(DWORD{SERVICE_KERNEL_DRIVER}, status.dwServiceType);
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, ErrorOf(Stop(service)));
}

TEST_F(ServiceControlTest, ASlowStopTakesItsTimeOnThePcsClock) {
    Describe({.name = "driver", .state = SERVICE_RUNNING, .stopMs = 1500});
    const ManualTime time;
    const SC_HANDLE service = Open();
    EXPECT_TRUE(Stop(service));
    EXPECT_EQ(DWORD{SERVICE_STOP_PENDING}, StateOf(service));
    EXPECT_EQ(ERROR_SERVICE_CANNOT_ACCEPT_CTRL, ErrorOf(Stop(service)));
    EXPECT_EQ(ERROR_SERVICE_ALREADY_RUNNING, ErrorOf(StartServiceA(service, 0, nullptr)));
    Clock().Advance(std::chrono::milliseconds(1499));
    EXPECT_EQ(DWORD{SERVICE_STOP_PENDING}, StateOf(service));
    Clock().Advance(std::chrono::milliseconds(1));
    EXPECT_EQ(DWORD{SERVICE_STOPPED}, StateOf(service));
    EXPECT_EQ((Texts{"driver: stop", "driver: stopped"}), Actions());
}

TEST_F(ServiceControlTest, AServiceRefusesWhatItIsDescribedToRefuse) {
    Describe({.name = "driver", .openError = ERROR_ACCESS_DENIED});
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(Open(kReadOnly)));
    Describe({.name = "driver", .startError = 31, .changeError = 5});
    EXPECT_EQ(31, ErrorOf(StartServiceA(Open(), 0, nullptr)));
    EXPECT_EQ(5, ErrorOf(SetStart(Open(), SERVICE_DISABLED)));
    Describe({.name = "driver", .state = SERVICE_RUNNING, .stopError = 1052});
    EXPECT_EQ(1052, ErrorOf(Stop(Open())));
    EXPECT_EQ(DWORD{SERVICE_RUNNING}, StateOf(Open()));
    EXPECT_TRUE(Actions().empty());
}
