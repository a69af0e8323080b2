// Settings as JSON, as texts, and their mistakes.
#include "firmware/Settings.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <unistd.h>

#include <fstream>

#include "firmware/Report.h"

namespace mpm::test {
namespace {

Json::Value Parse(const std::string& text) {
    Json::Value value;
    std::istringstream(text) >> value;
    return value;
}

TEST(SettingsTest, AreReadFromJson) {
    const Settings settings = Settings::FromJson(Parse(R"({
        "MPMVersion": "4.0", "uVORKVersion": 45, "statusfollowshost": false, "MPMStatus": 0, "DomainSize": 1281,
        "Dash": "bridge:127.0.0.1:8443", "Kvm": "echo", "Cloud": {"Hostname": "c", "Port": "443"}})"));
    EXPECT_EQ(settings.MPMVersion, "4.0");
    EXPECT_EQ(settings.uVORKVersion, 45u);
    EXPECT_FALSE(settings.StatusFollowsHost);
    EXPECT_EQ(settings.MPMStatus, 0);
    EXPECT_EQ(settings.DomainSize, 1281u);
    EXPECT_EQ(settings.Dash, Peer::Bridge);
    EXPECT_EQ(settings.DashServer, "127.0.0.1:8443");
    EXPECT_EQ(settings.Kvm, Peer::Echo);
    EXPECT_EQ(settings.Cloud.Port, 443u);
    EXPECT_EQ(settings.ProvisionStatus, 2u);
}

TEST(SettingsTest, ComeBackFromTheirOwnJson) {
    Settings settings;
    settings.Dash = Peer::Bridge;
    settings.DashServer = "localhost:1";
    settings.Domains = "a\\b";
    settings.Cloud.vCloudCertSize = 9;
    Json::Value json = settings.ToJson();
    json["Cloud"].removeMember("vCloudKey");
    EXPECT_EQ(Settings::FromJson(json).ToJson(), settings.ToJson());
}

TEST(SettingsTest, NeverShowTheCloudKey) {
    Settings settings;
    settings.Cloud.vCloudKey = "PRIVATE";
    EXPECT_EQ(Compact(settings.ToJson()).find("PRIVATE"), std::string::npos);
}

TEST(SettingsTest, HoldUsersWithoutShowingTheirPasswords) {
    Settings settings = Settings::FromJson(Parse(R"({"Users": {"administrator": "pass.word", "é": 12345}})"));
    EXPECT_EQ(settings.Users["administrator"], "pass.word");
    EXPECT_EQ(settings.Users["é"], "12345");
    settings.Set("users.second.user", "p=:");
    EXPECT_EQ(settings.Users["second.user"], "p=:");
    EXPECT_EQ(settings.ToJson()["Users"].getMemberNames(),
              (std::vector<std::string>{"administrator", "second.user", "é"}));
    const std::string shown = Compact(settings.ToJson());
    for (const char* password : {"pass.word", "12345", "p=:"})
        EXPECT_EQ(shown.find(password), std::string::npos) << shown;
    settings.Set("Users.administrator", "");
    EXPECT_EQ(settings.Users.size(), 2u);
    for (const auto& [key, password] : {std::pair{"Users.", "secret"},
                                        {"Users.a:b", "secret"},
                                        {"Users.a", "secret\n"},
                                        {"Users.a\n", "secret"}}) {
        try {
            settings.Set(key, password);
            ADD_FAILURE() << key;
        } catch (const std::invalid_argument& refusal) {
            EXPECT_EQ(std::string(refusal.what()).find("secret"), std::string::npos) << refusal.what();
        }
    }
}

TEST(SettingsTest, ListTheChallengesInOrder) {
    Settings settings;
    EXPECT_EQ(settings.ToJson()["Challenges"], "MD5,SHA-256,Basic");
    settings.Set("Challenges", "sha-256,basic");
    EXPECT_EQ(settings.ToJson()["Challenges"], "SHA-256,Basic");
    for (const char* wrong : {"", "MD5,MD5", "NTLM", "MD5, Basic"})
        EXPECT_THROW(settings.Set("Challenges", wrong), std::invalid_argument) << wrong;
}

TEST(SettingsTest, RefuseWhatTheyCannotBe) {
    for (const char* text :
         {R"([])", R"("x")", R"({"Unknown": 1})", R"({"Cloud": 1})", R"({"uVORKVersion": "abc"})",
          R"({"uVORKVersion": -1})", R"({"uVORKVersion": 4294967296})", R"({"uVORKVersion": 1.5})",
          R"({"uVORKVersion": ""})", R"({"uVORKVersion": "0x"})", R"({"MPMStatus": 256})",
          R"({"MPMVersion": []})", R"({"StatusFollowsHost": "perhaps"})", R"({"Dash": "loud"})",
          R"({"Dash": "bridge:"})", R"({"Dash": "bridge:host"})", R"({"Dash": "bridge::1"})",
          R"({"Dash": "bridge:host:99999"})", R"({"Kvm": "identify"})"})
        EXPECT_THROW(Settings::FromJson(Parse(text)), std::invalid_argument) << text;
    EXPECT_THROW(Settings().Set("MPMVersion", std::string(64, 'v')), std::invalid_argument);
    EXPECT_THROW(Settings().Set("Domains", std::string(1281, 'd')), std::invalid_argument);
}

TEST(SettingsTest, NameTheFileThatIsMissingOrBroken) {
    EXPECT_THROW(Settings::FromFile("/nonexistent.json"), std::invalid_argument);
    const std::string path = testing::TempDir() + "mpm-settings-" + std::to_string(getpid()) + ".json";
    std::ofstream(path) << "{\"uVORKVersion\": 45} tail";
    EXPECT_THROW(Settings::FromFile(path), std::invalid_argument);
    std::ofstream(path) << "{\"uVORKVersion\": 45}";
    EXPECT_EQ(Settings::FromFile(path).uVORKVersion, 45u);
    std::remove(path.c_str());
}

}  // namespace
}  // namespace mpm::test
