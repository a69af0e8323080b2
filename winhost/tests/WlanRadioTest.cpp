// The PC's radio joins, leaves and roams, with the notifications of each step.
#include <wlanapi.h>

#include <string>
#include <utility>
#include <vector>

#include "testbed/Json.h"
#include "winhost/control/Commands.h"
#include "winhost/tests/PcFixture.h"

namespace {

using Codes = std::vector<std::pair<DWORD, DWORD>>;  // source and code
constexpr DWORD kAcm = WLAN_NOTIFICATION_SOURCE_ACM, kMsm = WLAN_NOTIFICATION_SOURCE_MSM;

class WlanRadio : public PcFixture {
  protected:
    void SetUp() override {
        StartPc([](winhost::PcDescription& pc) {
            pc.wlanInterfaces = {{"{70A9067B-708F-443C-84BA-BC391FDBF72B}", "Wireless Adapter", 4}};
            winhost::WlanNetwork home, office;
            office.name = office.ssid = "office";
            pc.wlanNetworks = {home, office};
        });
        DWORD negotiated = 0;
        ASSERT_EQ(DWORD{ERROR_SUCCESS}, WlanOpenHandle(2, nullptr, &negotiated, &m_client));
        ASSERT_EQ(DWORD{ERROR_SUCCESS}, WlanRegisterNotification(m_client, WLAN_NOTIFICATION_SOURCE_ALL, TRUE,
                                                                 Listen, this, nullptr, nullptr));
    }
    void TearDown() override { WlanCloseHandle(m_client, nullptr); }

    static void WINAPI Listen(PWLAN_NOTIFICATION_DATA data, PVOID context) {
        auto* const test = static_cast<WlanRadio*>(context);
        test->m_codes.emplace_back(data->NotificationSource, data->NotificationCode);
        if (data->dwDataSize < sizeof(WLAN_CONNECTION_NOTIFICATION_DATA)) return;
        test->m_profile = static_cast<const WLAN_CONNECTION_NOTIFICATION_DATA*>(data->pData)->strProfileName;
    }
    Json::Value Answer(const std::string& line) { return winhost::Answer(testbed::ParseObject(line)); }
    // The interface after the command.
    Json::Value Do(const std::string& line) {
        m_codes.clear();
        const Json::Value answer = Answer(line);
        EXPECT_TRUE(answer["ok"].asBool()) << answer.toStyledString();
        return answer["result"]["interfaces"][0];
    }
    std::string Error(const std::string& line) { return Answer(line)["error"].asString(); }

    HANDLE m_client = nullptr;
    Codes m_codes;
    std::wstring m_profile;
};

TEST_F(WlanRadio, JoinsANetwork) {
    const Json::Value wlan = Do(R"({"command": "wlan", "action": "join", "network": "office"})");
    EXPECT_EQ("connected", wlan["state"].asString());
    EXPECT_EQ("office", wlan["network"].asString());
    EXPECT_EQ((Codes{{kAcm, 9}, {kMsm, 1}, {kMsm, 2}, {kMsm, 3}, {kMsm, 4}, {kAcm, 10}}), m_codes);
    EXPECT_EQ(L"office", m_profile);
}

TEST_F(WlanRadio, LeavesTheNetworkBeforeItJoinsAnotherOne) {
    Do(R"({"command": "wlan", "action": "join", "network": "office"})");
    const Json::Value wlan = Do(R"({"command": "wlan", "action": "join", "network": "Home"})");
    EXPECT_EQ("Home", wlan["network"].asString());
    ASSERT_EQ(9u, m_codes.size());
    EXPECT_EQ((Codes{{kAcm, 20}, {kMsm, 10}, {kAcm, 21}, {kAcm, 9}}),
              Codes(m_codes.begin(), m_codes.begin() + 4));
}

TEST_F(WlanRadio, LeavesItsNetwork) {
    Do(R"({"command": "wlan", "action": "join", "network": "office"})");
    const Json::Value wlan = Do(R"({"command": "wlan", "action": "leave"})");
    EXPECT_EQ("disconnected", wlan["state"].asString());
    EXPECT_FALSE(wlan.isMember("network"));
    EXPECT_EQ((Codes{{kAcm, 20}, {kMsm, 10}, {kAcm, 21}}), m_codes);
}

TEST_F(WlanRadio, RoamsWithinItsNetwork) {
    Do(R"({"command": "wlan", "action": "join", "network": "office"})");
    for (const int channel : {1, 100}) {
        const Json::Value wlan =
            Do(R"({"command": "wlan", "action": "roam", "channel": )" + std::to_string(channel) + "}");
        EXPECT_EQ(channel, wlan["channel"].asInt());
        EXPECT_EQ("connected", wlan["state"].asString());
        EXPECT_EQ((Codes{{kAcm, 7}, {kMsm, 5}, {kMsm, 6}, {kAcm, 26}}), m_codes);
    }
}

TEST_F(WlanRadio, GetsAnotherKey) {
    Do(R"({"command": "wlan", "action": "key", "network": "office", "key": "another"})");
    EXPECT_EQ("another", winhost::Pc::Instance().Description().wlanNetworks[1].key);
    EXPECT_EQ((Codes{{kAcm, 15}}), m_codes);
}

TEST_F(WlanRadio, WhatItCannotDoIsRefused) {
    EXPECT_EQ("the PC has no network \"none\"",
              Error(R"({"command": "wlan", "action": "join", "network": "none"})"));
    EXPECT_EQ("the PC has no WLAN interface 1",
              Error(R"({"command": "wlan", "action": "join", "network": "office", "interface": 1})"));
    EXPECT_EQ("the interface is not connected", Error(R"({"command": "wlan", "action": "leave"})"));
    EXPECT_EQ("the interface is not connected",
              Error(R"({"command": "wlan", "action": "roam", "channel": 1})"));
    EXPECT_EQ("the PC has no network \"none\"",
              Error(R"({"command": "wlan", "action": "key", "network": "none", "key": "x"})"));
}

}  // namespace
