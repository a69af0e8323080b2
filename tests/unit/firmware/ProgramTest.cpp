// mpmsim as people use it: started in a shell, commanded from another.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "mailbox/FirmwareLevels.h"
#include "mailbox/MailboxTables.h"
#include "tests/unit/firmware/LinkHost.h"
#include "tests/unit/firmware/TlsClient.h"

extern char** environ;

namespace mpm::test {
namespace {

const std::filesystem::path kProgram =
    std::filesystem::read_symlink("/proc/self/exe").parent_path() / "mpmsim";

struct Result {
    int code;
    std::string output;  // both streams
};

Result Shell(const std::string& arguments) {
    Result result{-1, {}};
    FILE* pipe = popen((kProgram.string() + " " + arguments + " 2>&1 </dev/null").c_str(), "r");
    char block[4096];
    for (size_t count; (count = fread(block, 1, sizeof block, pipe)) > 0;)
        result.output.append(block, count);
    result.code = WEXITSTATUS(pclose(pipe));
    return result;
}

std::string Content(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class ProgramTest : public testing::Test {
  protected:
    ProgramTest() {
        std::string folder = testing::TempDir() + "mpmsim-XXXXXX";
        m_folder = mkdtemp(folder.data());
    }
    ~ProgramTest() override {
        if (m_process > 0) End(SIGKILL);
        std::filesystem::remove_all(m_folder);
    }

    void Run(std::vector<std::string> more = {}) {
        std::vector<std::string> words = {kProgram,       "run",           "--listen", "tcp:127.0.0.1:0",
                                          "--control",    Path("control"), "--record", Path("record"),
                                          "--ready-file", Path("ready")};
        words.insert(words.end(), more.begin(), more.end());
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, Path("output").c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        ASSERT_EQ(posix_spawn(&m_process, kProgram.c_str(), &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        ASSERT_TRUE(Eventually([this] { return std::filesystem::exists(Path("ready")); }))
            << Content(Path("output"));
        m_address = Content(Path("ready"));
        m_address.pop_back();
    }
    int End(int signal) {
        kill(m_process, signal);
        int status = -1;
        waitpid(m_process, &status, 0);
        m_process = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    Result Control(const std::string& verb, const std::string& words = "") {
        return Shell(verb + " --control " + Path("control") + " " + words);
    }
    static bool Eventually(const std::function<bool()>& happened) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (!happened()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }
    std::string Path(const char* name) const { return (m_folder / name).string(); }

    std::filesystem::path m_folder;
    pid_t m_process = 0;
    std::string m_address;
};

TEST_F(ProgramTest, EndsWithZeroOnBothSignals) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Run();
        EXPECT_EQ(End(signal), 0);
        std::filesystem::remove(Path("ready"));
    }
}

TEST_F(ProgramTest, RefusesWhatAnotherFirmwareUses) {
    Run({"--certificate", Path("certificate")});
    const std::string certificate = Content(Path("certificate"));
    const std::string more = " --certificate " + Path("certificate");
    const Result control = Shell("run --listen tcp:127.0.0.1:0 --control " + Path("control") + more);
    EXPECT_EQ(control.code, 1);
    EXPECT_EQ(control.output,
              "mpmsim: control socket " + Path("control") + ": another process listens there\n");
    const Result listen = Shell("run --listen " + m_address + more);
    EXPECT_EQ(listen.code, 1);
    EXPECT_EQ(listen.output, "mpmsim: cannot listen on \"" + m_address + "\": it is in use\n");
    EXPECT_EQ(Content(Path("certificate")), certificate);
    EXPECT_EQ(Control("show").code, 0);
    EXPECT_EQ(End(SIGTERM), 0);
}

TEST_F(ProgramTest, TakesThePlaceOfAFirmwareThatWasKilled) {
    Run();
    EXPECT_EQ(End(SIGKILL), -1);
    EXPECT_TRUE(std::filesystem::exists(Path("control")));
    std::filesystem::remove(Path("ready"));
    Run();
    EXPECT_EQ(Control("show").code, 0);
    EXPECT_EQ(End(SIGTERM), 0);
}

TEST_F(ProgramTest, RecordsAndPrintsWhatTheHostReports) {
    Run();
    LinkHost host(m_address);
    host.Ask(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{1}));
    EXPECT_EQ(End(SIGTERM), 0);
    Json::Value line;
    std::istringstream(Content(Path("record"))) >> line;
    EXPECT_EQ(line["name"], "WriteZELStatus");
    EXPECT_EQ(line["kind"], "request");
    EXPECT_EQ(line["bytes"], 4);
    EXPECT_EQ(line["code"], "0x9C41A410");
    EXPECT_EQ(line["fields"]["state"], 1);
    EXPECT_NE(Content(Path("output")).find(" host > WriteZELStatus 4 bytes state=1\n"), std::string::npos);
}

TEST_F(ProgramTest, PrintsNothingWhenQuiet) {
    Run({"--quiet"});
    EXPECT_EQ(End(SIGTERM), 0);
    EXPECT_EQ(Content(Path("output")), "");
}

TEST_F(ProgramTest, SendsAnyCommandAndAnyMessage) {
    Run();
    LinkHost host(m_address);
    host.Listen();
    host.Ask(MailboxCode::GetMPMStatus, {}, 1);
    EXPECT_EQ(Control("send", "webui_close_socket").code, 0);
    EXPECT_EQ(host.AwaitMessage(), (std::vector<uint8_t>{41, 0}));
    EXPECT_EQ(Control("send", "8 --text abc --trailer 7").code, 0);
    EXPECT_EQ(host.AwaitMessage(), (std::vector<uint8_t>{'a', 'b', 'c', 8, 7}));
    EXPECT_EQ(Control("send", "MPM_ZEL_CMD_KVM_DATA --hex '01 fF:2a'").code, 0);
    EXPECT_EQ(host.AwaitMessage(), (std::vector<uint8_t>{1, 255, 42, 9, 0}));
    std::ofstream(Path("payload")) << "from a file";
    EXPECT_EQ(Control("send", "12 --file " + Path("payload")).code, 0);
    EXPECT_EQ(PayloadOf(host.AwaitMessage(), 12), "from a file");
    for (const size_t size : {0u, 1u, 2u, 0x20001u}) {
        EXPECT_EQ(Control("send", "--raw --size " + std::to_string(size)).code, 0);
        EXPECT_EQ(host.AwaitMessage()->size(), size);
    }
}

TEST_F(ProgramTest, TakesItsSettingsFromFileAndShell) {
    std::ofstream(Path("settings")) << R"({"uVORKVersion": 30})";
    Run({"--settings", Path("settings")});
    LinkHost host(m_address);
    const auto version = [&] { return host.Ask(MailboxCode::GetZELVersion, {}, 80).output.at(72); };
    EXPECT_EQ(version(), 30);
    EXPECT_EQ(Control("set", "uvorkversion=45 Dash=none").code, 0);
    EXPECT_EQ(version(), 45);
}

TEST_F(ProgramTest, ChangesNothingWhenOneOfTheSettingsIsWrong) {
    Run();
    const Result result = Control("set", "uVORKVersion=1 Wrong=2");
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.output, "mpmsim: there is no setting \"Wrong\"\n");
    EXPECT_EQ(LinkHost(m_address).Ask(MailboxCode::GetZELVersion, {}, 80).output.at(72), 50);
}

TEST_F(ProgramTest, MakesFaults) {
    Run();
    LinkHost host(m_address);
    const auto ask = [&] { return host.Ask(MailboxCode::GetMPMStatus, {}, 1); };
    EXPECT_EQ(Control("fault", "refuse GetMPMStatus 1450 1").code, 0);
    EXPECT_EQ(ask().error, 1450u);
    EXPECT_EQ(ask().error, 0u);
    EXPECT_EQ(Control("fault", "refuse 0x9C416458 5").code, 0);
    EXPECT_EQ(ask().error, 5u);
    EXPECT_EQ(Control("fault", "clear").code, 0);
    EXPECT_EQ(Control("fault", "answer-size GetMPMStatus 3").code, 0);
    EXPECT_EQ(ask().output.size(), 3u);
    EXPECT_EQ(Control("fault", "delay GetMPMStatus 10").code, 0);
    EXPECT_EQ(ask().error, 0u);
    EXPECT_EQ(Control("fault", "hold GetMPMStatus").code, 0);
    const uint32_t held = host.Post(MailboxCode::GetMPMStatus, {}, 1);
    EXPECT_EQ(Control("fault", "release GetMPMStatus").code, 0);
    EXPECT_TRUE(host.AwaitResponse(held));
    EXPECT_EQ(Control("fault", "vanish").code, 0);
    EXPECT_TRUE(host.AwaitClosed());
    EXPECT_EQ(Control("fault", "come-back").code, 0);
    EXPECT_EQ(LinkHost(m_address).Ask(MailboxCode::GetMPMStatus, {}, 1).error, 0u);
}

TEST_F(ProgramTest, ShowsWhatItKnowsOfTheHost) {
    Run();
    LinkHost(m_address).Ask(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{1}));
    EXPECT_TRUE(Eventually([this] {
        return Control("show").output.find("WriteZELStatus\n  state                     1\n") !=
               std::string::npos;
    })) << Control("show").output;
    LinkHost(m_address).Ask(MailboxCode::WriteADInfo, Bytes::Of(ADInfo{-19800, {}}));
    EXPECT_TRUE(Eventually([this] {
        return Control("show").output.find("time zone                   UTC-05:30\n") != std::string::npos;
    })) << Control("show").output;
    EXPECT_NE(Control("requests").output.find("WriteZELStatus 4 bytes state=1"), std::string::npos);
    Json::Value line;
    std::istringstream(Control("requests", "--json").output) >> line;
    EXPECT_EQ(line["fields"]["state"], 1);
}

TEST_F(ProgramTest, ShowsWhatItsLevelTurnsOn) {
    Run({"--set", "uVORKVersion=44"});
    const std::string shown = Control("show").output;
    EXPECT_NE(shown.find("firmware level 44\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("  on    40  the consent question"), std::string::npos) << shown;
    EXPECT_NE(shown.find("  off   45  the time zone"), std::string::npos) << shown;
}

TEST_F(ProgramTest, ListsItsTables) {
    const std::string text = Shell("catalogue").output;
    for (const FirmwareCommand& command : kFirmwareCommands)
        EXPECT_NE(text.find(command.name), std::string::npos) << command.name;
    for (const MailboxRequest& request : kMailboxRequests)
        EXPECT_NE(text.find(request.name), std::string::npos) << request.name;
    for (const FirmwareLevelRow& level : kFirmwareLevels)
        EXPECT_NE(text.find(level.effect), std::string::npos) << level.name;
    EXPECT_NE(text.find("  39          MPM_ZEL_CMD_KVM_IP_PORT_INFO            KvmPeer, 8 bytes\n"),
              std::string::npos)
        << text;
}

TEST_F(ProgramTest, ListsItsTablesForPrograms) {
    Json::Value tables;
    std::istringstream(Shell("catalogue --json").output) >> tables;
    EXPECT_EQ(tables["commands"].size(), std::size(kFirmwareCommands));
    EXPECT_EQ(tables["requests"].size(), std::size(kMailboxRequests));
    EXPECT_EQ(tables["levels"].size(), std::size(kFirmwareLevels));
    const Json::Value inventory = tables["requests"][8];
    EXPECT_EQ(inventory["name"], "WriteMultiNwInfo");
    EXPECT_EQ(inventory["input"]["maxSize"], 2008);
    EXPECT_EQ(inventory["input"]["fields"][2]["element"]["fields"][1]["name"], "Speed");
}

TEST_F(ProgramTest, EndsWithTwoAndOneLineOnBadArguments) {
    Run();
    const std::string control = "--control " + Path("control") + " ";
    for (const char* arguments : {"",
                                  "walk",
                                  "run",
                                  "run --listen udp:1",
                                  "run --listen unix:/x --dash loud",
                                  "run --listen unix:/x --set nonsense",
                                  "run --listen unix:/x --settings /nonexistent",
                                  "show",
                                  "send @",
                                  "send @ no_such_command",
                                  "send @ 8 --hex 123",
                                  "send @ 8 --raw",
                                  "send @ 8 --text a --hex 00",
                                  "send @ 8 --trailer 256",
                                  "send @ --raw --size 1048577",
                                  "send @ 8 --size 1048576",
                                  "set @ x",
                                  "fault @ explode",
                                  "fault @ refuse GetMPMStatus",
                                  "fault @ refuse GetMPMStatus five",
                                  "fault @ hold Nothing"}) {
        std::string words = arguments;
        if (const size_t at = words.find('@'); at != words.npos) words.replace(at, 1, control);
        const Result result = Shell(words);
        EXPECT_EQ(result.code, 2) << words << ": " << result.output;
        EXPECT_TRUE(result.output.starts_with("mpmsim: ")) << words << ": " << result.output;
        EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1)
            << words << ": " << result.output;
    }
}

TEST_F(ProgramTest, EndsWithOneWhenNoSimulatorRuns) {
    const Result result = Shell("show --control " + Path("control"));
    EXPECT_EQ(result.code, 1);
    EXPECT_TRUE(result.output.starts_with("mpmsim: control socket ")) << result.output;
}

TEST_F(ProgramTest, EndsWithOneWhenTheAddressIsTaken) {
    Run();
    EXPECT_EQ(Shell("run --listen " + m_address).code, 1);
}

TEST_F(ProgramTest, LeavesAnOrdinaryFileInTheWayOfItsSocketAlone) {
    std::ofstream(Path("precious")) << "data";
    EXPECT_EQ(Shell("run --listen unix:" + Path("precious")).code, 1);
    EXPECT_EQ(Content(Path("precious")), "data");
}

TEST_F(ProgramTest, SavesTheCertificateThatItUses) {
    Run({"--certificate", Path("certificate")});
    LinkHost host(m_address);
    host.Listen();
    TlsClient client(Content(Path("certificate")));
    client.Connect();
    host.Ask(MailboxCode::WriteDASHPacket, client.TakeWire());
    client.GiveWire(PayloadOf(host.AwaitMessage(), MPM_ZEL_CMD_DASH_DATA));
    EXPECT_TRUE(client.Connect()) << client.VerifyResult();
}

}  // namespace
}  // namespace mpm::test
