// The service with its scanning thread and its WLAN notifications, on a clock that the test moves.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "reporting/NetworkInventory.h"
#include "tests/unit/reporting/ReportingFixture.h"
#include "winhost/wlan/WlanService.h"

class NetworkMonitoring : public ReportingFixture {
  protected:
    static constexpr std::chrono::milliseconds kPoll{61000};
    static constexpr std::chrono::milliseconds kPeriod{61002};
    static constexpr std::chrono::milliseconds kDebounce{2000};

    void SetUp() override {
        ReportingFixture::SetUp();
        Clock().SetManual(true);
        // The PC has been running for longer than the least distance of two scans.
        Advance(kPeriod);
        SetAdapters({Wired(1, "192.168.7.3", "192.168.7.1")});
        OpenMailbox();
    }

    void TearDown() override {
        service->m_networkMonitor.StopNetworkScanThread();
        ReportingFixture::TearDown();
    }

    // The host is reported to firmware of this version; what it received is forgotten.
    void ReportTo(uint32_t version) {
        firmware.Change([&](mpm::Settings& settings) { settings.uVORKVersion = version; });
        service->UpdatePlatformInfoToMPM();
        firmware.Clear();
    }

    void MoveAddress() { SetAdapters({Wired(1, "192.168.7.44", "192.168.7.1")}); }

    void Poll() {
        ASSERT_TRUE(Clock().AwaitSleeper(kPoll));
        Advance(kPeriod);
        ASSERT_TRUE(Clock().AwaitSleeper(kPoll));
    }

    void Notify(DWORD code, DWORD source = WLAN_NOTIFICATION_SOURCE_ACM) {
        WLAN_NOTIFICATION_DATA data{};
        data.NotificationCode = code;
        data.NotificationSource = source;
        service->m_networkMonitor.OnWlanNotification(data);
    }

    // The debounce's two seconds pass, and what follows is over.
    void PassDebounce() {
        ASSERT_TRUE(Clock().AwaitSleeper(kDebounce));
        Advance(kDebounce);
        Notify(99);
        // The next notification is taken only when the one before has been dealt with.
        while (!Clock().AwaitSleeper(kDebounce, std::chrono::milliseconds(20)))
            Notify(99);
    }

    // It is gone, and only a scan writes it again.
    void RemoveStatusFile() { std::filesystem::remove(HostPath(service->GetStatusFilePath())); }
    bool HasStatusFile() { return std::filesystem::exists(HostPath(service->GetStatusFilePath())); }

    size_t Received(const char* name) { return firmware.Count(name); }
};
