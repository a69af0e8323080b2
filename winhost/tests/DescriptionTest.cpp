// The PC's description as a JSON file, and the paths that hang on it.
#include "winhost/pc/DescriptionJson.h"

#include <json/reader.h>

#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <sstream>

#include "winhost/tests/PcFixture.h"

namespace {

Json::Value Parse(const std::string& text) {
    Json::Value json;
    std::istringstream(text) >> json;
    return json;
}

// The line with which a description is refused.
std::string Refusal(const std::string& text) {
    try {
        winhost::DescriptionFromJson(Parse(text));
    } catch (const winhost::DescriptionError& error) {
        return error.what();
    }
    return "not refused";
}

TEST(Description, AKeyThatIsLeftOutKeepsItsDefault) {
    const auto pc = winhost::DescriptionFromJson(Parse("{}"));
    EXPECT_EQ("SYSTEM", pc.userName);
    EXPECT_TRUE(pc.startedByScm);
    EXPECT_TRUE(pc.ports.empty());
}

TEST(Description, EachKindOfValueIsRead) {
    const auto pc = winhost::DescriptionFromJson(Parse(R"({
        "environment": {"PROGRAMDATA": "C:\\ProgramData"},
        "registry": {"HKEY_LOCAL_MACHINE\\SOFTWARE\\X": {"Name": "text"}},
        "timeZoneBiasMinutes": -330, "startedByScm": false, "ports": {"664": 40664},
        "adapters": [{"name": "{A}", "mac": "00:11:22:33:44:55", "address": "10.0.0.2", "speed": 10000000000}]})"));
    EXPECT_EQ("C:\\ProgramData", pc.environment.at("PROGRAMDATA"));
    EXPECT_EQ("text", pc.registry.at("HKEY_LOCAL_MACHINE\\SOFTWARE\\X").at("Name"));
    EXPECT_EQ(-330, pc.timeZoneBiasMinutes);
    EXPECT_FALSE(pc.startedByScm);
    EXPECT_EQ(40664, pc.ports.at(664));
}

TEST(Description, WhatNoPcCanHaveIsRefusedWithItsPlace) {
    const std::string longName(32, 'x'), longText(128, 'x'), longPath(260, 'x');
    std::string manyEngines = "1";
    for (int i = 0; i < 64; ++i)
        manyEngines += ", 1";
    const std::pair<std::string, std::string> refusals[] = {
        // Keys.
        {"prots: unknown key", R"({"prots": {}})"},
        {"adapters[1].adress: unknown key",
         R"({"adapters": [{"name": "{A}"}, {"name": "{B}", "adress": "10.0.0.1"}]})"},
        {"a?b?c: unknown key", R"({"a\u0000b\nc": 1})"},
        // Types.
        {"description: expected an object", "[]"},
        {"userName: expected a text", R"({"userName": 5})"},
        {"startedByScm: expected true or false", R"({"startedByScm": 1})"},
        {"environment.A: expected a text", R"({"environment": {"A": 5}})"},
        {"ports.664: expected a port number", R"({"ports": {"664": 70000}})"},
        {"ports.http: expected a port number as the key", R"({"ports": {"http": 80}})"},
        {"adapters: expected a list", R"({"adapters": "all"})"},
        {"adapters[0].index: expected a whole number from 0 to 4294967295",
         R"({"adapters": [{"name": "{A}", "index": -1}]})"},
        // The network.
        {R"(adapters[0].mac: "00-11-22-33-44-55" is not six pairs of hexadecimal digits with colons between)",
         R"({"adapters": [{"name": "{A}", "mac": "00-11-22-33-44-55"}]})"},
        {R"(adapters[0].moreAddresses[0].mask: "" is not an IPv4 address)",
         R"({"adapters": [{"name": "{A}", "moreAddresses": [{"address": "10.0.0.3"}]}]})"},
        {"adapters[1].index: another adapter has it",
         R"({"adapters": [{"name": "{A}", "index": 3}, {"name": "{B}", "index": 3}]})"},
        {"wlanInterfaces[0].guid: \"{A}\" is not a GUID", R"({"wlanInterfaces": [{"guid": "{A}"}]})"},
        {"wlanInterfaces[0].state: expected 0 to 7",
         R"({"wlanInterfaces": [{"guid": "{70A9067B-708F-443C-84BA-BC391FDBF72B}", "state": 8}]})"},
        // The system.
        {"mailbox: expected unix:<path> or tcp:127.0.0.1:<port>", R"({"mailbox": "/tmp/x"})"},
        {"cleanBoot: expected 0, 1 or 2", R"({"cleanBoot": 3})"},
        {"clockRate: expected 1 to 1000", R"({"clockRate": 0})"},
        {"timerPeriod: expected 1 to 1000", R"({"timerPeriod": 0})"},
        {"registry.SOFTWARE\\X: expected a key below HKEY_LOCAL_MACHINE",
         R"({"registry": {"SOFTWARE\\X": {}}})"},
        {"wmiConnectError: expected 0 or an HRESULT of a failure", R"({"wmiConnectError": 1})"},
        {R"(privileges[0]: "SeFlyPrivilege" is not a privilege)", R"({"privileges": ["SeFlyPrivilege"]})"},
        // Sessions, processes and services.
        {"consoleSession: session 0 is that of the services", R"({"consoleSession": 0})"},
        {"screen.height: expected 1 to 32767", R"({"screen": {"height": 0}})"},
        {"processes[0].name: a process has a name", R"({"processes": [{"pid": 8}]})"},
        {"processes[0].pid: 0 is none", R"({"processes": [{"name": "a.exe"}]})"},
        {"processes[1].pid: another process has it",
         R"({"processes": [{"name": "a.exe", "pid": 8}, {"name": "b.exe", "pid": 8}]})"},
        {"services[0].startType: expected 0 to 4", R"({"services": [{"name": "a", "startType": 5}]})"},
        {"services[0].state: expected 1 to 7", R"({"services": [{"name": "a", "state": 0}]})"},
        {"services[1].name: another service has it", R"({"services": [{"name": "ab"}, {"name": "AB"}]})"},
        {"services[0].name: a service has a name", R"({"services": [{"name": ""}]})"},
        {"services[0].name: a service's name has no separator", R"({"services": [{"name": "a\\b"}]})"},
        // Graphics adapters.
        {"graphicsAdapters[0].luid: 0 is none", R"({"graphicsAdapters": [{"luid": 0}]})"},
        {"graphicsAdapters[1].luid: another adapter has it", R"({"graphicsAdapters": [{}, {}]})"},
        {"graphicsAdapters[0].outputs[0]: expected 1 to 31 bytes",
         R"({"graphicsAdapters": [{"outputs": [""]}]})"},
        {"graphicsAdapters[0].outputs[1]: expected 1 to 31 bytes",
         R"({"graphicsAdapters": [{"outputs": ["x", ")" + longName + "\"]}]}"},
        {"graphicsAdapters[0].description: too long",
         R"({"graphicsAdapters": [{"description": ")" + longText + "\"}]}"},
        {"graphicsAdapters[0].driverPath: too long",
         R"({"graphicsAdapters": [{"driverPath": ")" + longPath + "\"}]}"},
        {"graphicsAdapters[0].engines[1]: expected 0 to 255",
         R"({"graphicsAdapters": [{"engines": [1, 256]}]})"},
        {"graphicsAdapters[0].engines: 64 at most",
         R"({"graphicsAdapters": [{"engines": [)" + manyEngines + "]}]}"},
        {"graphicsAdapters[0].featureLevel: expected 100, 101, 110 or 111",
         R"({"graphicsAdapters": [{"featureLevel": 120}]})"},
    };
    for (const auto& [problem, json] : refusals)
        EXPECT_EQ(problem, Refusal(json)) << json;
}

TEST(Description, AddressesAndVersionsHaveTheirForm) {
    for (const std::string address :
         {"10.0.0", "10.0.0.256", "10.0.0.1 ", " 10.0.0.1", "a.b.c.d", "1.2.3.-4"})
        EXPECT_EQ("dnsServers[0]: \"" + address + "\" is not an IPv4 address",
                  Refusal("{\"dnsServers\": [\"" + address + "\"]}"));
    for (const std::string version : {"10.0", "10.0.19045.1", "ten", "", "10.0.", "-1.0.0"})
        EXPECT_EQ("osVersion: \"" + version + "\" is not <major>.<minor>.<build>",
                  Refusal("{\"osVersion\": \"" + version + "\"}"));
}

TEST(Description, WhatIsLeftToThisMachineSaysSo) {
    for (const char* text :
         {"{}", R"({"adapters": "real", "dnsServers": "real", "connectedFlags": "real"})"}) {
        const auto pc = winhost::DescriptionFromJson(Parse(text));
        EXPECT_FALSE(pc.adapters || pc.dnsServers || pc.connectedFlags) << text;
        EXPECT_EQ("real", winhost::DescriptionToJson(pc)["adapters"].asString());
    }
    const auto none = winhost::DescriptionFromJson(Parse(R"({"adapters": [], "connectedFlags": 0})"));
    EXPECT_TRUE(none.adapters && none.adapters->empty());
    EXPECT_EQ(0u, none.connectedFlags);
}

TEST(Description, AnAdapterMayHaveFurtherAddresses) {
    const auto pc = winhost::DescriptionFromJson(Parse(R"({"adapters": [{"name": "{A}", "address": "10.0.0.2",
        "moreAddresses": [{"address": "10.0.0.3", "mask": "255.0.0.0", "dhcp": true}]}]})"));
    ASSERT_EQ(1u, pc.adapters->front().moreAddresses.size());
    EXPECT_TRUE(pc.adapters->front().moreAddresses[0].dhcp);
}

TEST(Description, ServicesAreRead) {
    const auto pc = winhost::DescriptionFromJson(
        Parse(R"({"services": [{"name": "KelmarMnf", "startType": 4, "stopMs": 7000}]})"));
    EXPECT_EQ("KelmarMnf", pc.services.at(0).name);
    EXPECT_EQ(4u, pc.services[0].startType);
    EXPECT_EQ(7000u, pc.services[0].stopMs);
}

TEST(Description, SessionsAndProcessesAreThoseOfOnePerson) {
    const auto pc = winhost::DescriptionFromJson(Parse(R"({"consoleSession": 2, "desktopLocked": true,
        "screen": {"width": 800}, "processes": [{"name": "winlogon.exe", "pid": 5000000, "session": 2}]})"));
    EXPECT_EQ(2u, pc.consoleSession);
    EXPECT_TRUE(pc.desktopLocked);
    EXPECT_EQ(800u, pc.screen.width);
    EXPECT_EQ(1080u, pc.screen.height);
    ASSERT_EQ(1u, pc.processes.size());
    EXPECT_EQ(5000000u, pc.processes[0].pid);
    const auto nobody = winhost::DescriptionFromJson(Parse(R"({"consoleSession": 4294967295})"));
    EXPECT_EQ(winhost::PcDescription::kNoSession, nobody.consoleSession);
}

TEST(Description, GraphicsAdaptersAreRead) {
    EXPECT_EQ(1u, winhost::DescriptionFromJson(Parse("{}")).graphicsAdapters.size());
    EXPECT_TRUE(winhost::DescriptionFromJson(Parse(R"({"graphicsAdapters": []})")).graphicsAdapters.empty());
    const auto pc =
        winhost::DescriptionFromJson(Parse(R"({"graphicsAdapters": [{"vendor": 4660, "outputs": [],
        "luid": 4294967297, "engines": [41, 48], "escapes": [{"code": 33554432, "numbers": [12, 1, 1]}]}],
        "softwareDirect3d": true, "timerPeriod": 5})"));
    const auto& adapter = pc.graphicsAdapters.front();
    EXPECT_EQ(4660u, adapter.vendor);
    EXPECT_EQ(4294967297u, adapter.luid);
    EXPECT_EQ((std::vector<uint32_t>{41, 48}), adapter.engines);
    EXPECT_EQ((std::vector<uint32_t>{12, 1, 1}), adapter.escapes.front().numbers);
    EXPECT_TRUE(pc.softwareDirect3d);
    EXPECT_EQ(5u, pc.timerPeriod);
}

TEST(Description, WhatIsWrittenReadsBackTheSame) {
    const Json::Value before = Parse(R"({"computerName": "LAB-7", "ports": {"22": 2222}, "cleanBoot": 1,
        "adapters": [{"name": "{A}", "index": 4, "address": "10.0.0.2", "dhcp": false}]})");
    const Json::Value written = winhost::DescriptionToJson(winhost::DescriptionFromJson(before));
    EXPECT_EQ("LAB-7", written["computerName"].asString());
    EXPECT_EQ(2222, written["ports"]["22"].asInt());
    EXPECT_FALSE(written["adapters"][0]["dhcp"].asBool());
    EXPECT_EQ(written, winhost::DescriptionToJson(winhost::DescriptionFromJson(written)));
}

// Each statement runs in a process of its own, in which it is the first to use the PC.
[[noreturn]] void UseAPcOf(const std::string& text) {
    // A file that goes with the process.
    const int file = memfd_create("pc.json", 0);
    if (write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) abort();
    setenv("WINHOST_PC", ("/proc/self/fd/" + std::to_string(file)).c_str(), 1);
    winhost::Pc::Instance();
    _exit(0);
}

TEST(DescriptionDeathTest, ABrokenFileEndsTheProcessWithOneLineAndCode2) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(UseAPcOf(R"({"userName": 5})"), testing::ExitedWithCode(2),
                "^winhost: /proc/self/fd/[0-9]+: userName: expected a text\n$");
    EXPECT_EXIT(UseAPcOf("{"), testing::ExitedWithCode(2), "^winhost: /proc/self/fd/[0-9]+: [^\n]+\n$");
    EXPECT_EXIT(UseAPcOf("{\"userName\": \"A\", \"userName\": \"B\"}"), testing::ExitedWithCode(2),
                "Duplicate key");
    EXPECT_EXIT(UseAPcOf(std::string(2000, '[')), testing::ExitedWithCode(2),
                "^winhost: /proc/self/fd/[0-9]+: [^\n]+\n$");
}

TEST(DescriptionDeathTest, AFileThatIsNotThereEndsTheProcessToo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("WINHOST_PC", "/nowhere/pc.json", 1);
            winhost::Pc::Instance();
        },
        testing::ExitedWithCode(2), "^winhost: /nowhere/pc.json: cannot be read\n$");
}

using PcTest = PcFixture;

TEST_F(PcTest, DrivesLieInTheRootFolder) {
    const winhost::Pc& pc = winhost::Pc::Instance();
    EXPECT_EQ(m_root.string() + "/C:/Program Files/x.txt", pc.HostPath("C:\\Program Files\\x.txt"));
    EXPECT_EQ(m_root.string() + "/C:/x", pc.HostPath("c:/x"));
    EXPECT_EQ("a/b", pc.HostPath("a\\b"));
    EXPECT_EQ("", pc.HostPath(""));
}

TEST_F(PcTest, TheDriveExistsAndTheRootIsTheCurrentFolder) {
    EXPECT_TRUE(std::filesystem::is_directory(m_root / "C:"));
    EXPECT_TRUE(std::filesystem::equivalent(m_root, std::filesystem::current_path()));
}

TEST_F(PcTest, AResetForgetsWhatWasRecordedAndDisarmsTheGate) {
    winhost::Pc& pc = winhost::Pc::Instance();
    pc.Record(winhost::ServiceReport{});
    pc.Record(winhost::EventLogEntry{});
    pc.Record(winhost::DebugText{"text"});
    Fail("", 5);
    StartPc([](winhost::PcDescription& description) { description.userName = "someone"; });
    EXPECT_TRUE(pc.Records<winhost::ServiceReport>().empty());
    EXPECT_TRUE(pc.Records<winhost::EventLogEntry>().empty());
    EXPECT_TRUE(pc.Records<winhost::DebugText>().empty());
    EXPECT_EQ("someone", pc.Description().userName);
}

TEST_F(PcTest, TheJournalKeepsTheLastRecordsOfAKind) {
    winhost::Pc& pc = winhost::Pc::Instance();
    for (size_t i = 0; i <= winhost::Journal::kMostOfAKind; ++i)
        pc.Record(winhost::DebugText{std::to_string(i)});
    const auto texts = pc.Records<winhost::DebugText>();
    ASSERT_EQ(winhost::Journal::kMostOfAKind, texts.size());
    EXPECT_EQ("1", texts.front().text);
}

TEST_F(PcTest, AChangeIsSeenAtOnce) {
    SetUser("someone");
    EXPECT_EQ("someone", Description().userName);
}

}  // namespace
