// winhostctl as a person types it. The program lies beside this one.
#include <sys/wait.h>

#include <array>
#include <cstdio>

#include "winhost/tests/PcFixture.h"
#include "winhost/tests/PosixPeer.h"

namespace {

struct Outcome {
    std::string output;  // of both streams
    int exitCode;
};

class Winhostctl : public PcFixture {
  protected:
    Winhostctl() {
        StartPc([this](auto& pc) { pc.controlSocket = Path(); });
    }
    std::string Path() const { return (m_root / "control.sock").string(); }

    // The path of a socket whose process has ended.
    std::string StalePath() const {
        const std::string path = (m_root / "stale.sock").string();
        PosixPeer::LeaveUnixSocketBehind(path);
        return path;
    }

    static Outcome RunOn(const std::string& socket, const std::string& words) {
        const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "winhostctl";
        const std::string command = program.string() + " " + socket + " " + words + " 2>&1 </dev/null";
        Outcome outcome;
        FILE* pipe = popen(command.c_str(), "r");
        std::array<char, 4096> block;
        for (size_t size; (size = fread(block.data(), 1, block.size(), pipe)) > 0;)
            outcome.output.append(block.data(), size);
        outcome.exitCode = WEXITSTATUS(pclose(pipe));
        return outcome;
    }
    Outcome Run(const std::string& words) const { return RunOn(Path(), words); }
};

TEST_F(Winhostctl, PrintsOneFactALine) {
    const Outcome status = Run("status");
    EXPECT_EQ(0, status.exitCode) << status.output;
    EXPECT_NE(std::string::npos, status.output.find("state: 0\nstateName: none\n")) << status.output;
}

TEST_F(Winhostctl, PrintsOneEntryALine) {
    winhost::Pc::Instance().Record(winhost::EventLogEntry{"First", 1, 7, {"a", "b"}});
    winhost::Pc::Instance().Record(winhost::EventLogEntry{"Second", 4, 8, {}});
    EXPECT_EQ(
        "eventId 7, source First, strings [\"a\",\"b\"], type 1\neventId 8, source Second, strings [], type "
        "4\n",
        Run("event-log").output);
}

TEST_F(Winhostctl, PrintsJsonWhenAsked) {
    EXPECT_EQ("[]\n", Run("reports --json").output);
    EXPECT_EQ("[]\n", Run("--json reports").output);
}

TEST_F(Winhostctl, NobodyAtTheSocketEndsWithTwo) {
    const Outcome status = RunOn("/nowhere/control.sock", "status");
    EXPECT_EQ(2, status.exitCode);
    EXPECT_EQ(
        "winhostctl: no PC listens at /nowhere/control.sock (No such file or directory); a PC listens while "
        "its "
        "service runs, at the controlSocket of its description\n",
        status.output);
    const Outcome stale = RunOn(StalePath(), "status");
    EXPECT_EQ(2, stale.exitCode);
    EXPECT_NE(std::string::npos, stale.output.find(" (Connection refused); ")) << stale.output;
}

TEST_F(Winhostctl, SaysWhatIsWrong) {
    const struct {
        int exitCode;
        const char* words;
        const char* problem;
    } kCases[] = {
        // Words that are wrong.
        {2, "", "a socket and a command are needed"},
        {2, "fly", "unknown command \"fly\"; there are change, clock advance,"},
        {2, "stats", "unknown command \"stats\"; did you mean \"status\"? there are change, clock advance,"},
        {2, "Clock read", "unknown command \"Clock\"; did you mean \"clock\"? there are"},
        {2, "fail SetEvent 1 5", "unknown command \"fail\"; did you mean \"gate fail\"? there are"},
        {2, "clock advanced 5",
         "clock: unknown action \"advanced\"; did you mean \"advance\"? there are advance,"},
        {2, "clock", "clock: an action is missing; there are advance, manual,"},
        {2, "clock stop", "clock: unknown action \"stop\"; there are advance,"},
        {2, "clock advance", "milliseconds is missing; the usage is clock advance <milliseconds>"},
        {2, "clock advance soon", "milliseconds cannot be \"soon\" (not a number)"},
        {2, "clock advance 1 2", "\"2\" is one argument too many"},
        {2, "control stop --now", "unknown option \"--now\"; the usage is control <code> [event] [--force]"},
        {2, "change '{'", "patch cannot be \"{\""},
        // What the PC refuses.
        {1, "gate count NoSuchCall", "unknown call \"NoSuchCall\"\n"},
        {1, "gate fail NoSuchCall 1 5", "unknown call \"NoSuchCall\"\n"},
        {1, "gate fail RegCloseKy 1 5", "unknown call \"RegCloseKy\"; did you mean \"RegCloseKey\"?\n"},
        {1, "gate fail regclosekey 1 5", "unknown call \"regclosekey\"; did you mean \"RegCloseKey\"?\n"},
        {1, "gate delay CreateEvent 5", "unknown call \"CreateEvent\"; did you mean \"CreateEventA\"?\n"},
        {1, "gate delay '' 5", "\"call\" has to name a call\n"},
        {1, "control stop", "error 1062: no service runs\n"},
        {1, "change '{\"computerNam\": \"x\"}'", "computerNam: unknown key\n"},
    };
    for (const auto& [exitCode, words, problem] : kCases) {
        const Outcome outcome = Run(words);
        EXPECT_EQ(exitCode, outcome.exitCode) << words;
        const std::string expected = std::string("winhostctl: ") + problem;
        EXPECT_TRUE(exitCode == 1 ? outcome.output == expected : outcome.output.starts_with(expected))
            << outcome.output;
    }
}

TEST_F(Winhostctl, AnOptionAheadOfTheSocketThatIsNoneEndsWithTwo) {
    const Outcome outcome = RunOn("--jsn", Path() + " status");
    EXPECT_EQ(2, outcome.exitCode);
    EXPECT_TRUE(outcome.output.starts_with("winhostctl: unknown option \"--jsn\"\nusage: winhostctl "))
        << outcome.output;
}

TEST_F(Winhostctl, HelpIsThatOfThePc) {
    const Outcome help = Run("help gate");
    EXPECT_EQ(0, help.exitCode);
    EXPECT_TRUE(help.output.starts_with("gate count [call]\n    counts the calls")) << help.output;
    EXPECT_NE(std::string::npos, help.output.find("gate fail <call> <n> <error> [--for-ever]\n"))
        << help.output;
    EXPECT_EQ(2, Run("help fly").exitCode);
}

TEST_F(Winhostctl, MovesTheClock) {
    ASSERT_EQ(0, Run("clock manual").exitCode);
    const auto before = Clock().Steady();
    const auto wallBefore = Clock().FileTime();
    EXPECT_EQ(0, Run("clock advance 5000").exitCode);
    EXPECT_EQ(std::chrono::seconds(5), Clock().Steady() - before);
    EXPECT_EQ(0, Run("clock wall-offset -3600000").exitCode);
    EXPECT_LT(Clock().FileTime(), wallBefore);
    EXPECT_EQ(0, Run("clock running").exitCode);
}

TEST_F(Winhostctl, ChangesThePc) {
    EXPECT_EQ(0, Run(R"(change '{"connectedFlags": 0, "computerName": "LAB-7"}')").exitCode);
    EXPECT_EQ("LAB-7", Description().computerName);
}

TEST_F(Winhostctl, LocksTheDesktopAndBringsAnotherSessionToTheConsole) {
    EXPECT_EQ("console: 1\ndesktopLocked: true\n", Run("lock").output);
    EXPECT_TRUE(Description().desktopLocked);
    EXPECT_EQ("console: 1\ndesktopLocked: false\n", Run("unlock").output);
    EXPECT_EQ("console: 3\ndesktopLocked: false\n", Run("session 3").output);
    EXPECT_EQ(3u, Description().consoleSession);
    EXPECT_EQ("console: none\ndesktopLocked: false\n", Run("session none").output);
    EXPECT_EQ(winhost::PcDescription::kNoSession, Description().consoleSession);
    EXPECT_EQ(1, Run("session 0").exitCode);
    EXPECT_EQ(1, Run("session somebody").exitCode);
}

TEST_F(Winhostctl, ListsTheProcesses) {
    Change([](auto& pc) {
        pc.modulePath = R"(C:\bin\service.exe)";
        pc.processes = {{"winlogon.exe", 5000000, 1}};
    });
    EXPECT_EQ(
        "described true, name winlogon.exe, pid 5000000, session 1\ndescribed false, name service.exe, pid " +
            std::to_string(getpid()) + ", session 0\n",
        Run("processes").output);
}

TEST_F(Winhostctl, ListsWhatWasStarted) {
    EXPECT_EQ("", Run("launches").output);
    winhost::Pc::Instance().Record(
        winhost::ProcessLaunch{R"("C:\app.exe" -E 1)", R"(Winsta0\Default)", 1, 0x408, true, 77});
    EXPECT_EQ(
        "commandLine \"C:\\app.exe\" -E 1, desktop Winsta0\\Default, environment true, flags 1032, pid 77, "
        "session 1\n",
        Run("launches").output);
}

TEST_F(Winhostctl, ListsTheCommands) {
    winhost::Pc::Instance().Record(winhost::SystemCommand{R"(schtasks /query /tn "T" > nul 2>&1)"});
    EXPECT_EQ("command schtasks /query /tn \"T\" > nul 2>&1\n", Run("commands").output);
}

TEST_F(Winhostctl, ArmsTheGate) {
    EXPECT_EQ(0, Run("gate fail RegCloseKey 2 5 --for-ever").exitCode);
    EXPECT_EQ(0, Run("gate delay RegCloseKey 0").exitCode);
    EXPECT_EQ("calls: 0\nfailures: 0\n", Run("gate count RegCloseKey").output);
    EXPECT_EQ(0, Run("gate reset").exitCode);
}

}  // namespace
