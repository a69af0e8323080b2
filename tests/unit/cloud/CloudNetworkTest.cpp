// When the service reads the cloud data, and starts and stops the client: at the platform update, at changes
// of the network, at a resume and at the farewell.
#include <gtest/gtest.h>

#include "service/CommandDispatch.h"
#include "tests/unit/cloud/CloudFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr char kStart[] = "Start NUBA from ZEL";
constexpr char kEnd[] = "Attempting to deinit NUBA";
constexpr char kIdle[] = "Not connected over NUBA skipping stopNUBA";

class CloudNetwork : public CloudFixture {
  protected:
    static constexpr std::chrono::milliseconds kPoll{61000};
    static constexpr std::chrono::milliseconds kPeriod{61002};

    void SetUp() override {
        CloudFixture::SetUp();
        Advance(kPeriod);
        InstallLibrary();
        HoldConnections();
    }
    void TearDown() override {
        service->m_networkMonitor.StopNetworkScanThread();
        Client().EndThread();
        CloudFixture::TearDown();
    }
    void UpdateAt(uint32_t version) {
        firmware.Change([&](mpm::Settings& settings) { settings.uVORKVersion = version; });
        service->UpdatePlatformInfoToMPM();
    }
    // A first report to firmware of this level, and a connection.
    void ConnectAt(uint32_t version) {
        UpdateAt(version);
        ASSERT_TRUE(AwaitConnections(1));
    }
    static void ChangeAdapter(const std::function<void(winhost::Adapter&)>& change) {
        Pc().Change([&](auto& pc) { change(pc.adapters->front()); });
    }
    static void MoveTo(const std::string& address, const std::string& suffix) {
        Pc().Change([&](auto& pc) {
            pc.adapters->front().address = address;
            SetSuffix(pc, pc.adapters->front().name, suffix);
        });
    }
    static void MoveAddress() {
        ChangeAdapter([](winhost::Adapter& adapter) { adapter.address = "192.168.1.44"; });
    }
    void Poll() {
        ASSERT_TRUE(Clock().AwaitSleeper(kPoll));
        Advance(kPeriod);
        ASSERT_TRUE(Clock().AwaitSleeper(kPoll));
    }
    void NotifyWlan() {
        WLAN_NOTIFICATION_DATA data{};
        data.NotificationCode = wlan_notification_acm_connection_complete;
        data.NotificationSource = WLAN_NOTIFICATION_SOURCE_ACM;
        service->m_networkMonitor.OnWlanNotification(data);
        PassSleepOf(2000ms);
    }
};

class CloudLevels : public CloudNetwork, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(CloudLevels, ThePlatformUpdateReadsWhatThisFirmwareHas) {
    const uint32_t version = GetParam();
    SetDomains("corp.example.com");
    UpdateAt(version);
    EXPECT_EQ(firmware.Count("GetCloudCertInfo"), version >= 21 ? 1u : 0u);
    EXPECT_EQ(firmware.Count("GetDomainInfo"), version >= 31 ? 1u : 0u);
    EXPECT_EQ(LogCount("Setup Cloud Server"), version >= 31 ? 1u : 0u);
    EXPECT_EQ(LogCount("NUBA does not apply to version below VOR-K 2.0"), version < 21 ? 1u : 0u);
    EXPECT_EQ(LogCount(kStart), version >= 21 ? 1u : 0u);
    EXPECT_EQ(LogCount("NUBA: No matching domain found.") + LogCount("NUBA: Network Domain list is empty"),
              version >= 40 ? 1u : 0u);
    EXPECT_EQ(Exists("cloud.txt"), version >= 21);
}

TEST_P(CloudLevels, TheFarewellEndsTheConnection) {
    const uint32_t version = GetParam();
    UpdateAt(version);
    service->StopPlatformUpdates();
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_EQ(LogCount(kEnd), version >= 21 ? 1u : 0u);
    EXPECT_EQ(LogCount(kIdle), 0u);
    if (version >= 21) ExpectLogInOrder({"ZEL Service DOWN", kEnd, "stop NUBA"});
}

INSTANTIATE_TEST_SUITE_P(All, CloudLevels, ::testing::Values(19, 20, 21, 30, 31, 39, 40, 44, 45, 50));

TEST_F(CloudNetwork, TheClientStartsAtTheEndOfTheUpdate) {
    ConnectAt(50);
    ExpectLogInOrder({"Timezone diff is 0", "Setup Cloud Server", kStart});
}

TEST_F(CloudNetwork, ANewAddressMovesTheConnection) {
    ConnectAt(50);
    MoveAddress();
    Poll();
    ASSERT_TRUE(AwaitConnections(2));
    EXPECT_TRUE(Client().IsRunning());
    EXPECT_EQ(Script().Count("nuba_server_deinit"), 1u);
    ExpectLogInOrder(
        {"Available NICs Count: 1", "IPv4Address mismatch: current value: ", kEnd, "stop NUBA", kStart});
    EXPECT_EQ(firmware.Count("GetCloudCertInfo"), 1u);
}

TEST_F(CloudNetwork, AFurtherAdapterMovesTheConnection) {
    ConnectAt(30);
    Pc().Change([](auto& pc) {
        pc.adapters->push_back(pc.adapters->front());
        pc.adapters->back().index = 7;
        pc.adapters->back().name = "{second}";
        pc.adapters->back().address = "192.168.2.10";
    });
    Poll();
    ASSERT_TRUE(AwaitConnections(2));
    ExpectLogInOrder({"NIC connected count has changed", "Available NICs Count: 2",
                      "NIC connected count has changed", kEnd, kStart});
}

TEST_F(CloudNetwork, AChangeThatLeavesTheAddressesLeavesTheConnection) {
    ConnectAt(50);
    ChangeAdapter([](winhost::Adapter& adapter) { adapter.mac = "00:11:22:33:44:66"; });
    Poll();
    EXPECT_EQ(LogCount(kEnd), 0u);
    EXPECT_EQ(LogCount("NUBA is already running from ZEL"), 1u);
    EXPECT_EQ(Script().Count("nuba_server_init"), 1u);
}

TEST_F(CloudNetwork, AnUnchangedNetworkTouchesNothing) {
    ConnectAt(50);
    Poll();
    EXPECT_EQ(LogCount("NUBA is already running from ZEL"), 0u);
    EXPECT_TRUE(Client().IsRunning());
}

TEST_F(CloudNetwork, WithoutAnAdapterItEndsAndStaysDown) {
    ExpectErrors({"GetAdaptersInfo failed with error: 232"});
    ConnectAt(50);
    Pc().Change([](auto& pc) { pc.adapters->clear(); });
    Poll();
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_EQ(LogCount(kEnd), 1u);
    EXPECT_EQ(LogCount(kStart), 1u);
}

TEST_F(CloudNetwork, WithTheLoopbackAddressAloneItStaysDown) {
    ExpectError("No valid IPv4 address found after 2 attempts.");
    ChangeAdapter([](winhost::Adapter& adapter) { adapter.gateway = ""; });
    Pc().Change([](auto& pc) { pc.connectedFlags = 0x12; });
    InTime([this] { UpdateAt(50); });
    EXPECT_EQ(LogCount(kStart), 0u);
}

TEST_F(CloudNetwork, AWlanEventMovesTheConnectionToo) {
    ConnectAt(50);
    MoveAddress();
    NotifyWlan();
    ASSERT_TRUE(AwaitConnections(2));
    EXPECT_EQ(Script().Count("nuba_server_deinit"), 1u);
}

TEST_F(CloudNetwork, AtHomeItStaysDownAndOutsideItComesBack) {
    SetDomains("corp.example.com");
    ConnectAt(50);
    MoveTo("10.1.2.3", "corp.example.com");
    Poll();
    EXPECT_FALSE(Client().IsRunning());
    MoveTo("192.168.1.10", "");
    Poll();
    ASSERT_TRUE(AwaitConnections(2));
    EXPECT_TRUE(Client().IsRunning());
}

TEST_F(CloudNetwork, AfterS0i3TheConnectionIsMadeAnew) {
    ConnectAt(50);
    const uint8_t message[] = {MPM_ZEL_CMD_S0i3_RESUME, 0};
    ProcessRead(service.get(), sizeof message, message);
    ASSERT_TRUE(AwaitConnections(2));
    ExpectLogInOrder(
        {"MPM_ZEL_CMD_S0i3_RESUME send data to MPM upon resume from S0i3", kEnd, "stop NUBA", kStart});
    EXPECT_TRUE(Eventually([this] { return !service->m_bWakeUpdateInProgress; }));
}

TEST_F(CloudNetwork, TheFarewellInSafeBootEndsItToo) {
    ConnectAt(50);
    service->m_bootMode = 1;
    service->StopPlatformUpdates();
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_EQ(LogCount("stop NUBA"), 1u);
}

// The query of the level failed in the meantime.
TEST_F(CloudNetwork, TheFarewellEndsItAtAnUnknownLevelToo) {
    ConnectAt(50);
    service->m_vorkVersion = 0;
    service->StopPlatformUpdates();
    EXPECT_FALSE(Client().IsRunning());
}

TEST_F(CloudNetwork, AReportThatComesAfterTheFarewellDoesNotStartIt) {
    AllowError("Error Service is not signalled as Up, returning: 1062 to the caller");
    ConnectAt(50);
    service->StopPlatformUpdates();
    service->m_networkMonitor.ReportNetwork({.onlyWhenChanged = false});
    EXPECT_FALSE(Client().IsRunning());
    UpdateAt(50);
    ASSERT_TRUE(AwaitConnections(2));
}

}  // namespace
