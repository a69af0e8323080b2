// What the firmware receives when the host comes up and when it goes away.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "mailbox/DisplayRecords.h"
#include "tests/unit/reporting/ReportingFixture.h"

namespace {

using namespace std::chrono_literals;

class PlatformUpdate : public ReportingFixture {
  protected:
    void SetUp() override {
        ReportingFixture::SetUp();
        OpenMailbox();
        service->m_mailBoxDriverInterface.m_bServiceUp = 0;
        SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
        SetDnsServers({"192.168.7.53"});
    }

    void SetConnected(bool connected) {
        Pc().Change([&](auto& pc) { pc.connectedFlags = connected ? 0x12 : 0; });
    }

    std::vector<std::string> RequestNames() {
        std::vector<std::string> names;
        for (const mpm::Request& request : firmware.Requests())
            names.push_back(request.name);
        return names;
    }

    // Lets so many polls for a connection fail.
    void FailPolls(int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(Clock().AwaitSleeper(100ms));
            Advance(100ms);
        }
    }

    // The next poll succeeds.
    void ComeOnline() {
        ASSERT_TRUE(Clock().AwaitSleeper(100ms));
        SetConnected(true);
        Advance(100ms);
    }

    std::thread Update() {
        return std::thread([this] { service->UpdatePlatformInfoToMPM(); });
    }
};

}  // namespace

TEST_F(PlatformUpdate, ReportsTheHostUpAndThenItsAddress) {
    service->UpdatePlatformInfoToMPM();
    EXPECT_EQ(RequestNames(), (std::vector<std::string>{"WriteZELStatus", "WriteOsInfo", "GetZELVersion",
                                                        "WriteCapabilityConfig", "WriteIPCompleteInformation",
                                                        "WriteNetworkStatusInfo", "WriteADInfo",
                                                        "GetCloudCertInfo", "WriteMultiNwInfo"}));
    EXPECT_EQ(firmware.Requests("WriteZELStatus")[0].As<ZELStatusRecord>().state, 1u);
    EXPECT_EQ(firmware.Requests("WriteIPCompleteInformation")[0].As<IPCompleteInfo>().IPv4Address,
              inet_addr("192.168.7.3"));
    EXPECT_TRUE(service->m_mailBoxDriverInterface.m_bServiceUp);
    EXPECT_EQ(service->m_vorkVersion, 50u);
    EXPECT_TRUE(service->m_bPlatformUpdateDone);
    ExpectLogInOrder({"Write ZEL Service status to MPM", "ZEL Service UP", "Network Address: 0x307a8c0",
                      "Updating IPv4 Info 0x307a8c0"});
}

TEST_F(PlatformUpdate, SendsAnEmptyInventoryOnceAfterTenSecondsWithoutConnection) {
    SetConnected(false);
    std::thread update = Update();
    FailPolls(99);
    ASSERT_TRUE(Clock().AwaitSleeper(100ms));
    EXPECT_EQ(firmware.Count("WriteMultiNwInfo"), 0u);
    EXPECT_FALSE(service->m_bPlatformUpdateDone);

    FailPolls(1);
    const auto inventory = firmware.AwaitRequest("WriteMultiNwInfo");
    ASSERT_TRUE(inventory);
    EXPECT_EQ(inventory->data, std::vector<uint8_t>(sizeof(MultiNwInfo)));
    FailPolls(150);
    EXPECT_EQ(firmware.Count("WriteMultiNwInfo"), 1u);
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 0u);

    ComeOnline();
    update.join();
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 1u);
}

TEST_F(PlatformUpdate, SendsTheEmptyInventoryOfOldFirmwareBelowVersion20) {
    firmware.Change([](mpm::Settings& settings) { settings.uVORKVersion = 19; });
    SetConnected(false);
    std::thread update = Update();
    FailPolls(100);
    const auto inventory = firmware.AwaitRequest("WriteNwInfo");
    ASSERT_TRUE(inventory);
    EXPECT_EQ(inventory->data, std::vector<uint8_t>(sizeof(NwInfo)));
    ComeOnline();
    update.join();
}

TEST_F(PlatformUpdate, AConnectionWithinTenSecondsSparesTheEmptyInventory) {
    SetConnected(false);
    std::thread update = Update();
    FailPolls(50);
    ComeOnline();
    update.join();
    ASSERT_EQ(firmware.Count("WriteMultiNwInfo"), 1u);
    EXPECT_EQ(firmware.Requests("WriteMultiNwInfo")[0].As<MultiNwInfo>().Count, 1u);
}

TEST_F(PlatformUpdate, AStopEndsTheWaitForAConnection) {
    SetConnected(false);
    std::thread update = Update();
    FailPolls(3);
    service->ServiceCleanup();
    update.join();
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 0u);
}

TEST_F(PlatformUpdate, ASuspendEndsTheWaitForAConnection) {
    SetConnected(false);
    std::thread update = Update();
    FailPolls(3);
    ASSERT_TRUE(Clock().AwaitSleeper(100ms));
    service->StopPlatformUpdates();
    SetConnected(true);
    Advance(100ms);
    update.join();
    EXPECT_EQ(firmware.Requests().back().As<ZELStatusRecord>().state, 2u);
    EXPECT_FALSE(service->m_bPlatformUpdateDone);
}

TEST_F(PlatformUpdate, TheFarewellClosesTheGateAndForgetsTheAddress) {
    service->UpdatePlatformInfoToMPM();
    firmware.Clear();
    service->StopPlatformUpdates();
    EXPECT_EQ(RequestNames(), std::vector<std::string>{"WriteZELStatus"});
    EXPECT_EQ(firmware.Requests("WriteZELStatus")[0].As<ZELStatusRecord>().state, 2u);
    EXPECT_FALSE(service->m_mailBoxDriverInterface.m_bServiceUp);
    EXPECT_FALSE(service->m_bNetworkUpdatesEnabled);
    EXPECT_EQ(service->m_ipv4InfoStore.GetCurrentIPv4(), 0u);
    ExpectLogInOrder({"Write ZEL Service status to MPM", "ZEL Service DOWN"});
}

TEST_F(PlatformUpdate, DoesNotBeginWhileTheServiceStops) {
    OpenMailbox();
    service->m_bServiceStopping = 1;
    firmware.Clear();
    service->UpdatePlatformInfoToMPM();
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(PlatformUpdate, TheFarewellInSafeBootLeavesTheRestAlone) {
    service->UpdatePlatformInfoToMPM();
    service->m_bootMode = 1;
    service->StopPlatformUpdates();
    EXPECT_FALSE(service->m_mailBoxDriverInterface.m_bServiceUp);
    EXPECT_TRUE(service->m_bNetworkUpdatesEnabled);
    EXPECT_EQ(service->m_ipv4InfoStore.GetCurrentIPv4(), inet_addr("192.168.7.3"));
}

TEST_F(PlatformUpdate, ALaterUpdateEnablesTheReportsAgain) {
    service->UpdatePlatformInfoToMPM();
    service->StopPlatformUpdates();
    firmware.Clear();
    service->UpdatePlatformInfoToMPM();
    EXPECT_EQ(firmware.Count("WriteIPCompleteInformation"), 1u);
    EXPECT_TRUE(service->m_bNetworkUpdatesEnabled);
}

TEST_F(PlatformUpdate, ATimeZoneThatChangesWhileTheServiceRunsIsInTheNextReport) {
    const auto reported = [this] {
        firmware.Clear();
        service->UpdatePlatformInfoToMPM();
        return firmware.Requests("WriteADInfo").at(0).As<ADInfo>().TimezoneDiff;
    };
    Pc().Change([](auto& pc) { pc.timeZoneBiasMinutes = -60; });
    EXPECT_EQ(reported(), 3600);
    service->StopPlatformUpdates();
    Pc().Change([](auto& pc) { pc.timeZoneBiasMinutes = 300; });
    EXPECT_EQ(reported(), -18000);
}

// There is no media runtime on this PC.
TEST_F(PlatformUpdate, FirmwareOfLevel50HearsWhetherTheHostCanEncode) {
    firmware.Change([](mpm::Settings& settings) { settings.uVORKVersion = 50; });
    service->UpdatePlatformInfoToMPM();
    const auto sent = firmware.Requests("WriteCapabilityConfig");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].As<CapabilityConfigRecord>().encode, 0u);
    const auto names = RequestNames();
    const auto position = std::find(names.begin(), names.end(), "WriteCapabilityConfig");
    ASSERT_NE(position, names.begin());
    EXPECT_EQ(*(position - 1), "GetZELVersion");
    ExpectLogInOrder({"VORK Version: 50",
                      "Getting LUX AV1 encode 0 Current version 0x0 Min supported version 0x0",
                      "Sending LUX capability to MPM. Encode caps: 0"});
    EXPECT_TRUE(HasLine("INFO", "VORK Version: 50"));
}

TEST_F(PlatformUpdate, FirmwareBelowLevel50HearsNothingOfTheEncoder) {
    firmware.Change([](mpm::Settings& settings) { settings.uVORKVersion = 49; });
    service->UpdatePlatformInfoToMPM();
    EXPECT_EQ(firmware.Count("WriteCapabilityConfig"), 0u);
    EXPECT_EQ(LogCount("VORK Version"), 0u);
}

// Windows counts a host on a local network as connected even when no gateway leads further.
TEST_F(PlatformUpdate, AConnectionWithoutAGatewayIsReportedWithTheLoopbackAddress) {
    ExpectError("No valid IPv4 address found after 2 attempts.");
    SetAdapters({Wired(1, "192.168.7.3", "")});
    SetConnected(true);
    std::thread update = Update();
    // The report and the commit of its inventory each look twice.
    PassSleepOf(3s);
    PassSleepOf(3s);
    update.join();
    const auto sent = firmware.Requests("WriteIPCompleteInformation");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].As<IPCompleteInfo>().IPv4Address, 0x0100007Fu);
    EXPECT_EQ(firmware.Requests("WriteMultiNwInfo").at(0).As<MultiNwInfo>().Entries[0].IPv4Address,
              inet_addr("192.168.7.3"));
}
