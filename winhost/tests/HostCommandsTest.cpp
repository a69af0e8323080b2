// What the control socket can say of the PC's radio and power.
#include <powrprof.h>
#include <wlanapi.h>

#include <string>
#include <vector>

#include "testbed/Json.h"
#include "winhost/control/Commands.h"
#include "winhost/power/Privileges.h"
#include "winhost/tests/PcFixture.h"

namespace {

class HostCommands : public PcFixture {
  protected:
    HostCommands() {
        StartPc([](winhost::PcDescription& pc) {
            pc.wlanInterfaces = {{"{70A9067B-708F-443C-84BA-BC391FDBF72B}", "Wireless Adapter", 4}};
        });
    }

    static Json::Value Result(const std::string& line) {
        const Json::Value answer = winhost::Answer(testbed::ParseObject(line));
        EXPECT_TRUE(answer["ok"].asBool()) << answer.toStyledString();
        return answer["result"];
    }
    static std::string Error(const std::string& line) {
        const Json::Value answer = winhost::Answer(testbed::ParseObject(line));
        EXPECT_FALSE(answer["ok"].asBool()) << answer.toStyledString();
        return answer["error"].asString();
    }

    // As a client of the WLAN service for all its notifications.
    void Listen() {
        const auto note = [](PWLAN_NOTIFICATION_DATA data, PVOID test) {
            static_cast<HostCommands*>(test)->heard = {data->NotificationSource, data->NotificationCode};
        };
        DWORD negotiated = 0;
        ASSERT_EQ(DWORD{ERROR_SUCCESS}, WlanOpenHandle(2, nullptr, &negotiated, &client));
        ASSERT_EQ(DWORD{ERROR_SUCCESS}, WlanRegisterNotification(client, WLAN_NOTIFICATION_SOURCE_ALL, TRUE,
                                                                 note, this, nullptr, nullptr));
    }

    HANDLE client = nullptr;
    std::vector<DWORD> heard;  // source and code of the last notification
};

TEST_F(HostCommands, ANotificationHasBeenHeardWhenTheAnswerComes) {
    Listen();
    EXPECT_EQ(1, Result(R"({"command": "wlan", "action": "notify", "code": 21})")["listeners"].asInt());
    EXPECT_EQ((std::vector<DWORD>{WLAN_NOTIFICATION_SOURCE_ACM, 21}), heard);
    Result(R"({"command": "wlan", "action": "notify", "code": 4, "source": 16})");
    EXPECT_EQ((std::vector<DWORD>{WLAN_NOTIFICATION_SOURCE_MSM, 4}), heard);
    WlanCloseHandle(client, nullptr);
}

TEST_F(HostCommands, TheWlanServiceRestartsWithoutItsListeners) {
    Listen();
    EXPECT_EQ(0, Result(R"({"command": "wlan", "action": "restart"})")["listeners"].asInt());
    EXPECT_TRUE(winhost::Pc::Instance().Description().wlanService);
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, WlanCloseHandle(client, nullptr));
}

TEST_F(HostCommands, AnInterfaceChangesItsState) {
    EXPECT_EQ(
        "connected",
        Result(R"({"command": "wlan", "action": "state", "state": "connected"})")["interfaces"][0]["state"]
            .asString());
    EXPECT_EQ(1u, winhost::Pc::Instance().Description().wlanInterfaces[0].state);
    Result(R"({"command": "wlan", "action": "state", "state": 5, "interface": 0})");
    EXPECT_EQ("associating",
              Result(R"({"command": "wlan", "action": "read"})")["interfaces"][0]["state"].asString());
}

TEST_F(HostCommands, WhatTheRadioCannotDoIsRefused) {
    EXPECT_EQ("unknown state \"flying\"",
              Error(R"({"command": "wlan", "action": "state", "state": "flying"})"));
    EXPECT_EQ("\"state\" has to be a whole number from 0 to 7",
              Error(R"({"command": "wlan", "action": "state", "state": 8})"));
    EXPECT_EQ("the PC has no WLAN interface 1",
              Error(R"({"command": "wlan", "action": "state", "state": 1, "interface": 1})"));
    EXPECT_EQ("unknown action \"fly\"", Error(R"({"command": "wlan", "action": "fly"})"));
    EXPECT_EQ("\"code\" has to be a whole number from 0 to 4294967295",
              Error(R"({"command": "wlan", "action": "notify"})"));
}

TEST_F(HostCommands, ThePowerActionsAreListed) {
    EXPECT_EQ(Json::Value(Json::arrayValue), Result(R"({"command": "power-actions"})"));
    winhost::EnablePrivilege(winhost::PrivilegeByName("SeShutdownPrivilege"), true);
    ASSERT_TRUE(SetSuspendState(TRUE, TRUE, FALSE));
    const Json::Value list = Result(R"({"command": "power-actions"})");
    ASSERT_EQ(1u, list.size());
    EXPECT_EQ("hibernate", list[0]["action"].asString());
    EXPECT_EQ("SetSuspendState(1, 1, 0)", list[0]["call"].asString());
}

}  // namespace
