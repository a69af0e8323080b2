// The report to the firmware when the platform fails at any of its calls.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

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
        AllowError("");  // each failure has its line; which one is the affair of the call's own test
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
        for (const char* name :
             {"WriteZELStatus", "WriteOsInfo", "GetZELVersion", "WriteIPCompleteInformation",
              "WriteNetworkStatusInfo", "WriteADInfo", "WriteMultiNwInfo"}) {
            EXPECT_GE(firmware.Count(name), 1u) << name;
        }
    }
};

class FailingCall : public PlatformFaults, public ::testing::WithParamInterface<const char*> {};

}  // namespace

TEST_P(FailingCall, CostsTheReportNoMoreThanWhatItWouldHaveTold) {
    Gate().FailNth(GetParam(), 1, ERROR_GEN_FAILURE, true);
    std::thread report([this] { Report(); });
    EXPECT_TRUE(Eventually([] { return Gate().Failures() > 0; }));
    Gate().Reset();
    report.join();
    ExpectAWholeReport();
    const auto inventory = firmware.Requests("WriteMultiNwInfo").back().As<MultiNwInfo>();
    EXPECT_EQ(inventory.Count, 2);
}

INSTANTIATE_TEST_SUITE_P(OfTheNetwork, FailingCall,
                         ::testing::Values("GetIpAddrTable", "GetIfTable", "GetIfEntry", "GetAdaptersInfo"));

TEST_F(PlatformFaults, AdaptersThatVanishDuringAScanAreNotReported) {
    Gate().Delay("GetIfTable", 50ms);
    MultiNwInfo record;
    std::thread scan([&] { service->m_networkInventory.FillMultiNwInfo(record); });
    EXPECT_TRUE(Eventually([] { return Gate().Count("GetIfTable") > 0; }));
    SetAdapters({});
    scan.join();
    // Their addresses were read before, the rest is gone.
    EXPECT_LE(record.Count, 2);
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
