// The report to the firmware when the platform fails at any of its calls.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <utility>

#include "base/FieldText.h"
#include "reporting/NetworkInventory.h"
#include "tests/unit/reporting/ReportingFixture.h"

namespace {

using namespace std::chrono_literals;

class PlatformFaults : public ReportingFixture {
  protected:
    void SetUp() override {
        ReportingFixture::SetUp();
        Clock().SetManual(true);
        SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1"), Wired(2, "192.168.8.3", "")});
        OpenMailbox();
    }

    void TearDown() override {
        service->m_networkMonitor.StopNetworkScanThread();
        ReportingFixture::TearDown();
    }

    // One report from its begin to its end, however long the host has to wait in between.
    void Report() {
        std::atomic<bool> over{false};
        std::thread report([&] {
            service->UpdatePlatformInfoToMPM();
            over = true;
        });
        while (!over)
            if (Clock().AwaitSleepers(1, 1ms)) Advance(100ms);
        report.join();
        service->m_networkMonitor.StopNetworkScanThread();
    }

    void ExpectAWholeReport() {
        firmware.Clear();
        Report();
        for (const char* name : {"WriteZELStatus", "WriteOsInfo", "GetZELVersion", "WriteCapabilityConfig",
                                 "WriteIPCompleteInformation", "WriteNetworkStatusInfo", "WriteADInfo",
                                 "GetCloudCertInfo", "WriteMultiNwInfo"}) {
            EXPECT_GE(firmware.Count(name), 1u) << name;
        }
    }
};

// A call, and the ERROR line of its failure, if it has one.
using CallAndLine = std::pair<const char*, const char*>;
class FailingCall : public PlatformFaults, public ::testing::WithParamInterface<CallAndLine> {};

}  // namespace

TEST_P(FailingCall, CostsTheReportNoMoreThanWhatItWouldHaveTold) {
    const auto& [call, line] = GetParam();
    if (line) ExpectError(line);
    Gate().FailNth(call, 1, ERROR_GEN_FAILURE, true);
    std::thread report([this] { Report(); });
    // Not each failure of a call leaves the line.
    EXPECT_TRUE(Eventually([&] { return line ? LogCount(line) > 0 : Gate().Failures() > 0; }));
    Gate().Reset();
    report.join();
    ExpectAWholeReport();
    const auto inventory = firmware.Requests("WriteMultiNwInfo").back().As<MultiNwInfo>();
    EXPECT_EQ(inventory.Count, 2);
}

INSTANTIATE_TEST_SUITE_P(OfTheNetwork, FailingCall,
                         ::testing::Values(CallAndLine("GetIpAddrTable", nullptr),
                                           CallAndLine("GetIfTable", "GetIfTable failed with error: 31"),
                                           CallAndLine("GetIfEntry", nullptr),
                                           CallAndLine("GetAdaptersInfo",
                                                       "GetAdaptersInfo failed with error: 31")));

TEST_F(PlatformFaults, AdaptersThatVanishDuringAScanAreReportedByTheirAddressesAlone) {
    SetAdapters({Wired(3, "192.168.7.3", "192.168.7.1"), Wired(4, "192.168.8.3", "")});
    Gate().Ask([](const std::string& call, const void*) -> uint32_t {
        if (call == "GetIfTable") SetAdapters({});
        return 0;
    });
    MultiNwInfo record;
    service->m_networkInventory.FillMultiNwInfo(record);
    ASSERT_EQ(record.Count, 2);
    for (const auto& [entry, address] :
         {std::pair(record.Entries[0], "192.168.7.3"), {record.Entries[1], "192.168.8.3"}}) {
        EXPECT_EQ(entry.IPv4Address, inet_addr(address));
        EXPECT_EQ(TextInField(entry.Name), "");
        EXPECT_EQ(TextInField(entry.MACAddress), "");
        EXPECT_EQ(entry.Gateway, 0u);
    }
    Gate().Reset();
    service->m_networkInventory.FillMultiNwInfo(record);
    EXPECT_EQ(record.Count, 0);
}

TEST_F(PlatformFaults, NamesInAnyScriptGoOutAsTheyAreUpToTheirField) {
    winhost::Adapter adapter = Wired(1, "192.168.7.3", "192.168.7.1");
    adapter.description =
        "Netzwerkkarte f\xC3\xBCr B\xC3\xBCro \xE7\xB6\xB2\xE8\xB7\xAF " + std::string(300, 'x');
    SetAdapters({adapter});
    Pc().Change([](auto& pc) { pc.computerName = "B\xC3\x9CRO-PC"; });
    ExpectAWholeReport();
    const auto inventory = firmware.Requests("WriteMultiNwInfo").back().As<MultiNwInfo>();
    ASSERT_EQ(inventory.Count, 1);
    const auto& name = inventory.Entries[0].Name;
    EXPECT_EQ(std::string_view(name, 24), std::string_view(adapter.description).substr(0, 24));
    EXPECT_EQ(name[sizeof name - 1], '\0');
}
