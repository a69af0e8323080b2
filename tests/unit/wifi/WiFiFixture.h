// The service on a laptop that is connected to the network "office".
#pragma once

#include <wlanapi.h>

#include <functional>
#include <string>
#include <vector>

#include "mailbox/WiFiSyncRecord.h"
#include "tests/support/ServiceFixture.h"
#include "winhost/wlan/WlanMemory.h"

class WiFiFixture : public ServiceFixture {
  protected:
    static constexpr char kGuid[] = "{70A9067B-708F-443C-84BA-BC391FDBF72B}";
    static constexpr char kOpenNetwork[] = "Detected an unsecured Wi-Fi network.It is not supported.";
    static constexpr char kExtractionError[] = "Wi-Fi profile extraction error";

    void Describe(winhost::PcDescription& description) override {
        ServiceFixture::Describe(description);
        description.wlanInterfaces = {{kGuid, "Wi-Fi", 1, "office"}};
        description.wlanNetworks = {Network("office", "WPA2PSK")};
    }
    void SetUp() override {
        ServiceFixture::SetUp();
        OpenMailbox();
        service->m_vorkVersion = 50;
    }
    void TearDown() override {
        const size_t memory = winhost::WlanMemoryInUse();
        ServiceFixture::TearDown();
        EXPECT_EQ(memory, 0u) << "memory of the WLAN service that was not freed";
    }

    static winhost::WlanNetwork Network(const std::string& name, const std::string& authentication) {
        winhost::WlanNetwork network;
        network.name = network.ssid = name;
        network.authentication = authentication;
        return network;
    }
    // The network that the laptop is connected to.
    static void ChangeNetwork(const std::function<void(winhost::WlanNetwork&)>& change) {
        Pc().Change([&](auto& pc) { change(pc.wlanNetworks.front()); });
    }
    static void UseProfile(const std::string& xml) {
        ChangeNetwork([&](auto& network) { network.profile = xml; });
    }
    static void Connect(const winhost::WlanNetwork& network) {
        Pc().Change([&](auto& pc) {
            pc.wlanNetworks = {network};
            pc.wlanInterfaces = {{kGuid, "Wi-Fi", 1, network.name}};
        });
    }
    static void Disconnect() {
        Pc().Change([](auto& pc) { pc.wlanInterfaces.front().state = 4; });
    }

    // What a changed network or a WLAN event does. Returns whether the PC is connected over WLAN.
    bool Check(bool verbose = true) { return service->m_networkMonitor.CheckWlanAndSyncProfile(verbose); }
    std::vector<WiFiSyncInfo> Sent() {
        std::vector<WiFiSyncInfo> records;
        for (const mpm::Request& request : firmware.Requests("WriteWiFiSyncInfo"))
            records.push_back(request.As<WiFiSyncInfo>());
        return records;
    }
    WiFiSyncInfo CheckAndTakeRecord() {
        firmware.Clear();
        EXPECT_TRUE(Check());
        const std::vector<WiFiSyncInfo> sent = Sent();
        EXPECT_EQ(sent.size(), 1u);
        return sent.empty() ? WiFiSyncInfo{} : sent.front();
    }
};
