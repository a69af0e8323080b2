// The WLAN service: interfaces, their state, and whom it tells.
#include <future>

#include "winhost/tests/WlanFixture.h"
#include "winhost/wlan/WlanService.h"

namespace {

using winhost::WlanService;

constexpr uint32_t kConnected = wlan_notification_acm_connection_complete;
constexpr uint32_t kDisconnected = wlan_notification_acm_disconnected;

// What a callback was told, and by which thread.
struct Heard {
    std::vector<WLAN_NOTIFICATION_DATA> notifications;
    std::vector<std::string> data;
    std::thread::id thread;
};

void WINAPI Listen(PWLAN_NOTIFICATION_DATA data, PVOID context) {
    auto* heard = static_cast<Heard*>(context);
    heard->notifications.push_back(*data);
    heard->data.emplace_back(static_cast<const char*>(data->pData), data->dwDataSize);
    heard->thread = std::this_thread::get_id();
}

class Wlan : public WlanFixture {
  protected:
    void SetUp() override {
        StartPc([](auto& pc) { pc.wlanInterfaces = {{kGuid, "Wireless Adapter", 4}}; });
        OpenClient();
    }
    void TearDown() override {
        WlanFixture::TearDown();
        EXPECT_EQ(0u, WlanService::Instance().Listeners());
    }

    // What WlanEnumInterfaces lists, and its error.
    std::vector<WLAN_INTERFACE_INFO> Interfaces() {
        WLAN_INTERFACE_INFO_LIST* list = nullptr;
        EXPECT_EQ(ERROR_SUCCESS, WlanEnumInterfaces(m_client, nullptr, &list));
        EXPECT_EQ(0u, list->dwIndex);
        const WLAN_INTERFACE_INFO* const first = &list->InterfaceInfo[0];
        const std::vector<WLAN_INTERFACE_INFO> interfaces(first, first + list->dwNumberOfItems);
        WlanFreeMemory(list);
        return interfaces;
    }
    static DWORD ErrorOfInterfaces(HANDLE client) {
        WLAN_INTERFACE_INFO_LIST* list = nullptr;
        return WlanEnumInterfaces(client, nullptr, &list);
    }
    void Register(BOOL ignoresDuplicates = TRUE, DWORD source = WLAN_NOTIFICATION_SOURCE_ACM) {
        EXPECT_EQ(ERROR_SUCCESS, WlanRegisterNotification(m_client, source, ignoresDuplicates, Listen,
                                                          &m_heard, nullptr, nullptr));
    }
    DWORD Unregister() {
        return WlanRegisterNotification(m_client, WLAN_NOTIFICATION_SOURCE_NONE, TRUE, nullptr, nullptr,
                                        nullptr, nullptr);
    }
    static void Notify(uint32_t code, uint32_t source = WLAN_NOTIFICATION_SOURCE_ACM) {
        WlanService::Instance().Notify({code, source, 0, ""});
    }

    Heard m_heard;
};

TEST_F(Wlan, ListsTheInterfacesOfThePcAsTheyAreNow) {
    auto interfaces = Interfaces();
    ASSERT_EQ(1u, interfaces.size());
    EXPECT_TRUE(interfaces[0].InterfaceGuid == m_guid);
    EXPECT_EQ(L"Wireless Adapter", std::wstring(interfaces[0].strInterfaceDescription));
    EXPECT_EQ(wlan_interface_state_disconnected, interfaces[0].isState);
    Change([](auto& pc) {
        pc.wlanInterfaces[0].state = 1;
        pc.wlanInterfaces.push_back({kGuid, "Second", 7});
    });
    interfaces = Interfaces();
    ASSERT_EQ(2u, interfaces.size());
    EXPECT_EQ(wlan_interface_state_connected, interfaces[0].isState);
    EXPECT_EQ(wlan_interface_state_authenticating, interfaces[1].isState);
    Change([](auto& pc) { pc.wlanInterfaces.clear(); });
    EXPECT_TRUE(Interfaces().empty());
}

TEST_F(Wlan, TellsAListenerOnAThreadOfItsOwn) {
    Register();
    WlanService::Instance().Notify({kConnected, WLAN_NOTIFICATION_SOURCE_ACM, 0, "profile"});
    ASSERT_EQ(1u, m_heard.notifications.size());
    EXPECT_EQ(kConnected, m_heard.notifications[0].NotificationCode);
    EXPECT_EQ(DWORD{WLAN_NOTIFICATION_SOURCE_ACM}, m_heard.notifications[0].NotificationSource);
    EXPECT_TRUE(m_heard.notifications[0].InterfaceGuid == m_guid);
    EXPECT_EQ("profile", m_heard.data[0]);
    EXPECT_NE(std::this_thread::get_id(), m_heard.thread);
}

TEST_F(Wlan, TellsOnlyOfTheSourcesListenedTo) {
    Register();
    Notify(kConnected, WLAN_NOTIFICATION_SOURCE_MSM);
    EXPECT_TRUE(m_heard.notifications.empty());
    Register(TRUE, WLAN_NOTIFICATION_SOURCE_ALL);
    Notify(kConnected, WLAN_NOTIFICATION_SOURCE_MSM);
    EXPECT_EQ(1u, m_heard.notifications.size());
}

TEST_F(Wlan, ADuplicateIsToldOnlyToWhoWantsIt) {
    Register(TRUE);
    for (const uint32_t code : {kConnected, kConnected, kDisconnected, kConnected})
        Notify(code);
    EXPECT_EQ(3u, m_heard.notifications.size());
    Register(FALSE);
    Notify(kConnected);
    Notify(kConnected);
    EXPECT_EQ(5u, m_heard.notifications.size());
}

TEST_F(Wlan, AnEndedRegistrationHearsNothing) {
    Register();
    EXPECT_EQ(1u, WlanService::Instance().Listeners());
    EXPECT_EQ(ERROR_SUCCESS, Unregister());
    Notify(kConnected);
    EXPECT_TRUE(m_heard.notifications.empty());
}

TEST_F(Wlan, ARegistrationTellsTheOneBefore) {
    Register();
    DWORD before = 0;
    EXPECT_EQ(ERROR_SUCCESS, WlanRegisterNotification(m_client, WLAN_NOTIFICATION_SOURCE_NONE, TRUE, nullptr,
                                                      nullptr, nullptr, &before));
    EXPECT_EQ(DWORD{WLAN_NOTIFICATION_SOURCE_ACM}, before);
}

// A callback that stays until it is let go.
struct Held {
    std::promise<void> entered, release;
    std::atomic<bool> left{false};
};
void WINAPI Stay(PWLAN_NOTIFICATION_DATA, PVOID context) {
    auto* held = static_cast<Held*>(context);
    held->entered.set_value();
    held->release.get_future().wait();
    held->left = true;
}

TEST_F(Wlan, ClosingWaitsForACallbackThatRuns) {
    Held held;
    ASSERT_EQ(ERROR_SUCCESS, WlanRegisterNotification(m_client, WLAN_NOTIFICATION_SOURCE_ACM, TRUE, Stay,
                                                      &held, nullptr, nullptr));
    std::thread notifier([] { Notify(kConnected); });
    held.entered.get_future().wait();
    auto closed = std::async(std::launch::async, [&] {
        const DWORD error = WlanCloseHandle(m_client, nullptr);
        return error == ERROR_SUCCESS && held.left;
    });
    EXPECT_EQ(std::future_status::timeout, closed.wait_for(std::chrono::milliseconds(50)));
    held.release.set_value();
    EXPECT_TRUE(closed.get());
    m_client = nullptr;
    notifier.join();
}

TEST_F(Wlan, WithoutItsServiceNothingIsOpened) {
    StartPc([](auto& pc) { pc.wlanService = false; });
    DWORD negotiated = 0;
    HANDLE client = nullptr;
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, WlanOpenHandle(2, nullptr, &negotiated, &client));
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, ErrorOfInterfaces(m_client));
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, Unregister());
}

TEST_F(Wlan, ARestartOfItsServiceInvalidatesHandlesAndRegistrations) {
    Register();
    WlanService::Instance().Restart();
    EXPECT_EQ(0u, WlanService::Instance().Listeners());
    Notify(kConnected);
    EXPECT_TRUE(m_heard.notifications.empty());
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOfInterfaces(m_client));
    EXPECT_EQ(ERROR_INVALID_HANDLE, Unregister());
    const size_t open = winhost::HandleTable::Instance().Size();
    EXPECT_EQ(ERROR_INVALID_HANDLE, WlanCloseHandle(m_client, nullptr));
    EXPECT_EQ(open - 1, winhost::HandleTable::Instance().Size());

    OpenClient();
    Register();
    Notify(kConnected);
    EXPECT_EQ(1u, m_heard.notifications.size());
}

TEST_F(Wlan, AStoppedServiceIsNamedBeforeAHandleOfItsLastRun) {
    const auto run = [](bool runs) { Change([&](auto& pc) { pc.wlanService = runs; }); };
    run(false);
    EXPECT_EQ(ERROR_SERVICE_NOT_ACTIVE, ErrorOfInterfaces(m_client));
    run(true);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOfInterfaces(m_client));
    EXPECT_EQ(ERROR_INVALID_HANDLE, WlanCloseHandle(m_client, nullptr));
    m_client = nullptr;
}

TEST_F(Wlan, RefusesWhatIsNoClient) {
    DWORD negotiated = 0;
    WLAN_INTERFACE_INFO_LIST* list = nullptr;
    for (const HANDLE wrong : {HANDLE{nullptr}, NewEvent()}) {
        EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOfInterfaces(wrong));
        EXPECT_EQ(ERROR_INVALID_HANDLE,
                  WlanRegisterNotification(wrong, 8, TRUE, Listen, nullptr, nullptr, nullptr));
        EXPECT_EQ(ERROR_INVALID_HANDLE, WlanCloseHandle(wrong, nullptr));
    }
    EXPECT_FALSE(CloseHandle(m_client)) << "it has a closing call of its own";
    EXPECT_EQ(ERROR_INVALID_PARAMETER, WlanOpenHandle(2, nullptr, nullptr, nullptr));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, WlanOpenHandle(0, nullptr, &negotiated, &m_client));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, WlanEnumInterfaces(m_client, &list, &list));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, WlanEnumInterfaces(m_client, nullptr, nullptr));
}

TEST(Guid, IsReadFromItsText) {
    const auto guid = winhost::ParseGuid("{70a9067b-708F-443C-84BA-BC391FDBF72B}");
    ASSERT_TRUE(guid);
    EXPECT_EQ(0x70A9067Bu, guid->Data1);
    EXPECT_EQ(0x443C, guid->Data3);
    EXPECT_EQ(0x84, guid->Data4[0]);
    EXPECT_EQ(0x2B, guid->Data4[7]);
    for (const char* wrong :
         {"", "70A9067B-708F-443C-84BA-BC391FDBF72B", "{70A9067B-708F-443C-84BA-BC391FDBF72}",
          "{70A9067B-708F-443C-84BA-BC391FDBF72G}", "{70A9067B-708F-443C-84BA-BC391FDBF72B} "}) {
        EXPECT_FALSE(winhost::ParseGuid(wrong)) << wrong;
    }
}

}  // namespace
