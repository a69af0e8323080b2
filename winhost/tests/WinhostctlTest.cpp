// winhostctl as a person types it. The program lies beside this one.
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
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
        StartPc([this](winhost::PcDescription& pc) { pc.controlSocket = Path(); });
    }
    ~Winhostctl() override {
        StartPc([](winhost::PcDescription&) {});
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

TEST_F(Winhostctl, AnErrorAnswerIsPrintedAndEndsWithOne) {
    const Outcome stop = Run("control stop");
    EXPECT_EQ(1, stop.exitCode);
    EXPECT_EQ("winhostctl: error 1062: no service runs\n", stop.output);
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

TEST_F(Winhostctl, WrongWordsEndWithTwoAndSayWhatIsWrong) {
    const struct {
        const char* words;
        const char* problem;
    } kCases[] = {
        {"", "a socket and a command are needed"},
        {"fly", "unknown command \"fly\"; there are change, clock advance,"},
        {"stats", "unknown command \"stats\"; did you mean \"status\"? there are change, clock advance,"},
        {"Clock read", "unknown command \"Clock\"; did you mean \"clock\"? there are"},
        {"fail SetEvent 1 5", "unknown command \"fail\"; did you mean \"gate fail\"? there are"},
        {"clock advanced 5",
         "clock: unknown action \"advanced\"; did you mean \"advance\"? there are advance,"},
        {"clock", "clock: an action is missing; there are advance, manual,"},
        {"clock stop", "clock: unknown action \"stop\"; there are advance,"},
        {"clock advance", "milliseconds is missing; the usage is clock advance <milliseconds>"},
        {"clock advance soon", "milliseconds cannot be \"soon\" (not a number)"},
        {"clock advance 1 2", "\"2\" is one argument too many"},
        {"control stop --now", "unknown option \"--now\"; the usage is control <code> [event] [--force]"},
        {"change '{'", "patch cannot be \"{\""},
    };
    for (const auto& [words, problem] : kCases) {
        const Outcome outcome = Run(words);
        EXPECT_EQ(2, outcome.exitCode) << words;
        EXPECT_TRUE(outcome.output.starts_with(std::string("winhostctl: ") + problem)) << outcome.output;
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
    const auto before = winhost::Clock::Instance().Steady();
    const auto wallBefore = winhost::Clock::Instance().FileTime();
    EXPECT_EQ(0, Run("clock advance 5000").exitCode);
    EXPECT_EQ(std::chrono::seconds(5), winhost::Clock::Instance().Steady() - before);
    EXPECT_EQ(0, Run("clock wall-offset -3600000").exitCode);
    EXPECT_LT(winhost::Clock::Instance().FileTime(), wallBefore);
    EXPECT_EQ(0, Run("clock running").exitCode);
}

TEST_F(Winhostctl, ChangesThePc) {
    EXPECT_EQ(0, Run(R"(change '{"connectedFlags": 0, "computerName": "LAB-7"}')").exitCode);
    EXPECT_EQ("LAB-7", winhost::Pc::Instance().Description().computerName);
    const Outcome refused = Run(R"(change '{"computerNam": "x"}')");
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_EQ("winhostctl: computerNam: unknown key\n", refused.output);
}

TEST_F(Winhostctl, LocksTheDesktopAndBringsAnotherSessionToTheConsole) {
    EXPECT_EQ("console: 1\ndesktopLocked: true\n", Run("lock").output);
    EXPECT_TRUE(winhost::Pc::Instance().Description().desktopLocked);
    EXPECT_EQ("console: 1\ndesktopLocked: false\n", Run("unlock").output);
    EXPECT_EQ("console: 3\ndesktopLocked: false\n", Run("session 3").output);
    EXPECT_EQ(3u, winhost::Pc::Instance().Description().consoleSession);
    EXPECT_EQ("console: none\ndesktopLocked: false\n", Run("session none").output);
    EXPECT_EQ(winhost::PcDescription::kNoSession, winhost::Pc::Instance().Description().consoleSession);
    EXPECT_EQ(1, Run("session 0").exitCode);
    EXPECT_EQ(1, Run("session somebody").exitCode);
}

TEST_F(Winhostctl, ListsTheProcesses) {
    winhost::Pc::Instance().Change([](winhost::PcDescription& pc) {
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

TEST_F(Winhostctl, RefusesAnUnknownCallAndNamesTheNearest) {
    const struct {
        const char* words;
        const char* problem;
    } kCases[] = {
        {"gate count NoSuchCall", "unknown call \"NoSuchCall\""},
        {"gate fail NoSuchCall 1 5", "unknown call \"NoSuchCall\""},
        {"gate fail RegCloseKy 1 5", "unknown call \"RegCloseKy\"; did you mean \"RegCloseKey\"?"},
        {"gate fail regclosekey 1 5", "unknown call \"regclosekey\"; did you mean \"RegCloseKey\"?"},
        {"gate delay CreateEvent 5", "unknown call \"CreateEvent\"; did you mean \"CreateEventA\"?"},
        {"gate delay '' 5", "\"call\" has to name a call"},
    };
    for (const auto& [words, problem] : kCases) {
        const Outcome refused = Run(words);
        EXPECT_EQ(1, refused.exitCode) << words;
        EXPECT_EQ("winhostctl: " + std::string(problem) + "\n", refused.output);
    }
}

}  // namespace
