// The PC's radio, as the control socket moves it, and the notifications of each step.
#include "testbed/Json.h"
#include "winhost/control/Commands.h"
#include "winhost/tests/WlanFixture.h"

namespace {

using Codes = std::vector<std::pair<DWORD, DWORD>>;  // source and code
constexpr DWORD kAcm = WLAN_NOTIFICATION_SOURCE_ACM, kMsm = WLAN_NOTIFICATION_SOURCE_MSM;

class WlanRadio : public WlanFixture {
  protected:
    void SetUp() override {
        StartPc([](auto& pc) {
            pc.wlanInterfaces = {{kGuid, "Wireless Adapter", 4}};
            winhost::WlanNetwork home, office;
            office.name = office.ssid = "office";
            pc.wlanNetworks = {home, office};
        });
        OpenClient();
        ASSERT_EQ(ERROR_SUCCESS, WlanRegisterNotification(m_client, WLAN_NOTIFICATION_SOURCE_ALL, TRUE,
                                                          Listen, this, nullptr, nullptr));
    }

    static void WINAPI Listen(PWLAN_NOTIFICATION_DATA data, PVOID context) {
        auto* const test = static_cast<WlanRadio*>(context);
        test->m_codes.emplace_back(data->NotificationSource, data->NotificationCode);
        if (data->dwDataSize < sizeof(WLAN_CONNECTION_NOTIFICATION_DATA)) return;
        test->m_profile = static_cast<const WLAN_CONNECTION_NOTIFICATION_DATA*>(data->pData)->strProfileName;
    }
    // The arguments of the command as JSON.
    static Json::Value Answer(const std::string& action, const std::string& arguments) {
        return winhost::Answer(testbed::ParseObject(R"({"command": "wlan", "action": ")" + action + "\"" +
                                                    (arguments.empty() ? "}" : ", " + arguments + "}")));
    }
    Json::Value Result(const std::string& action, const std::string& arguments = "") {
        m_codes.clear();
        const Json::Value answer = Answer(action, arguments);
        EXPECT_TRUE(answer["ok"].asBool()) << answer.toStyledString();
        return answer["result"];
    }
    // The interface after the command.
    Json::Value Do(const std::string& action, const std::string& arguments = "") {
        return Result(action, arguments)["interfaces"][0];
    }

    Codes m_codes;
    std::wstring m_profile;
};

TEST_F(WlanRadio, JoinsANetwork) {
    const Json::Value wlan = Do("join", R"("network": "office")");
    EXPECT_EQ("connected", wlan["state"].asString());
    EXPECT_EQ("office", wlan["network"].asString());
    EXPECT_EQ((Codes{{kAcm, 9}, {kMsm, 1}, {kMsm, 2}, {kMsm, 3}, {kMsm, 4}, {kAcm, 10}}), m_codes);
    EXPECT_EQ(L"office", m_profile);
}

TEST_F(WlanRadio, LeavesTheNetworkBeforeItJoinsAnotherOne) {
    Do("join", R"("network": "office")");
    const Json::Value wlan = Do("join", R"("network": "Home")");
    EXPECT_EQ("Home", wlan["network"].asString());
    ASSERT_EQ(9u, m_codes.size());
    EXPECT_EQ((Codes{{kAcm, 20}, {kMsm, 10}, {kAcm, 21}, {kAcm, 9}}),
              Codes(m_codes.begin(), m_codes.begin() + 4));
}

TEST_F(WlanRadio, LeavesItsNetwork) {
    Do("join", R"("network": "office")");
    const Json::Value wlan = Do("leave");
    EXPECT_EQ("disconnected", wlan["state"].asString());
    EXPECT_FALSE(wlan.isMember("network"));
    EXPECT_EQ((Codes{{kAcm, 20}, {kMsm, 10}, {kAcm, 21}}), m_codes);
}

TEST_F(WlanRadio, RoamsWithinItsNetwork) {
    Do("join", R"("network": "office")");
    for (const int channel : {1, 100}) {
        const Json::Value wlan = Do("roam", "\"channel\": " + std::to_string(channel));
        EXPECT_EQ(channel, wlan["channel"].asInt());
        EXPECT_EQ("connected", wlan["state"].asString());
        EXPECT_EQ((Codes{{kAcm, 7}, {kMsm, 5}, {kMsm, 6}, {kAcm, 26}}), m_codes);
    }
}

TEST_F(WlanRadio, GetsAnotherKey) {
    Do("key", R"("network": "office", "key": "another")");
    EXPECT_EQ("another", Description().wlanNetworks[1].key);
    EXPECT_EQ((Codes{{kAcm, 15}}), m_codes);
}

TEST_F(WlanRadio, ANotificationHasArrivedWhenTheAnswerComes) {
    EXPECT_EQ(1, Result("notify", R"("code": 21)")["listeners"].asInt());
    EXPECT_EQ((Codes{{kAcm, 21}}), m_codes);
    Result("notify", R"("code": 4, "source": 16)");
    EXPECT_EQ((Codes{{kMsm, 4}}), m_codes);
}

TEST_F(WlanRadio, TheServiceRestartsWithoutItsListeners) {
    EXPECT_EQ(0, Result("restart")["listeners"].asInt());
    EXPECT_TRUE(Description().wlanService);
    EXPECT_EQ(ERROR_INVALID_HANDLE, WlanCloseHandle(std::exchange(m_client, nullptr), nullptr));
}

TEST_F(WlanRadio, AnInterfaceChangesItsState) {
    EXPECT_EQ("connected", Do("state", R"("state": "connected")")["state"].asString());
    EXPECT_EQ(1u, Description().wlanInterfaces[0].state);
    Do("state", R"("state": 5, "interface": 0)");
    EXPECT_EQ("associating", Do("read")["state"].asString());
}

TEST_F(WlanRadio, WhatItCannotDoIsRefused) {
    const struct {
        const char *action, *arguments, *error;
    } kRefused[] = {
        {"join", R"("network": "none")", "the PC has no network \"none\""},
        {"join", R"("network": "office", "interface": 1)", "the PC has no WLAN interface 1"},
        {"leave", "", "the interface is not connected"},
        {"roam", R"("channel": 1)", "the interface is not connected"},
        {"key", R"("network": "none", "key": "x")", "the PC has no network \"none\""},
        {"state", R"("state": "flying")", "unknown state \"flying\""},
        {"state", R"("state": 8)", "\"state\" has to be a whole number from 0 to 7"},
        {"state", R"("state": 1, "interface": 1)", "the PC has no WLAN interface 1"},
        {"fly", "", "unknown action \"fly\""},
        {"notify", "", "\"code\" has to be a whole number from 0 to 4294967295"},
        {"notify", R"("code": 4, "source": 0)", "\"source\" has to be a whole number from 1 to 4294967295"},
    };
    for (const auto& [action, arguments, error] : kRefused) {
        const Json::Value answer = Answer(action, arguments);
        EXPECT_FALSE(answer["ok"].asBool()) << action << arguments;
        EXPECT_EQ(error, answer["error"].asString()) << action << arguments;
    }
}

}  // namespace
