// Commands for the command processor of the PC.
#include <stdlib.h>

#include <cerrno>
#include <future>

#include "winhost/tests/LaunchFixture.h"

namespace {

using namespace std::chrono_literals;

constexpr char kPowerShell[] = "Windows/System32/WindowsPowerShell/v1.0/powershell.exe";

class SystemCommand : public LaunchFixture {
  protected:
    void WritePowerShell(const std::string& lines) const { WriteScript(kPowerShell, lines); }
    static std::vector<std::string> Commands() {
        std::vector<std::string> commands;
        for (const auto& record : Records<winhost::SystemCommand>())
            commands.push_back(record.command);
        return commands;
    }
    std::vector<std::string> FilesOfTheRoot() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_root))
            if (!entry.is_directory()) names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(SystemCommand, ItsProgramGetsTheArgumentsAsTheRuntimeOfWindowsSplitsThem) {
    WritePowerShell(R"(printf '%s\n' "$@" > C:/arguments)");
    EXPECT_EQ(0, system(R"(PowerShell -NoProfile -Command "&'C:\a b\x.ps1' 'y' 'Z'" -TaskName "T")"));
    EXPECT_EQ("-NoProfile\n-Command\n&'C:\\a b\\x.ps1' 'y' 'Z'\n-TaskName\nT\n", ReadFromC("arguments"));
}

TEST_F(SystemCommand, ItsResultIsTheExitCodeAndSaysWhenASignalEndsTheProgram) {
    WritePowerShell("exit $1");
    EXPECT_EQ(7, system("powershell 7"));
    WritePowerShell("kill -9 $$");
    EXPECT_EQ(137, system("powershell"));
}

TEST_F(SystemCommand, BlocksUntilTheProgramEnds) {
    WritePowerShell("until [ -e C:/go ]; do sleep 0.01; done; exit 3");
    auto result = std::async(std::launch::async, [] { return system("powershell"); });
    ASSERT_TRUE(Eventually([] { return IdOf("powershell.exe") != 0; }));
    EXPECT_EQ(std::future_status::timeout, result.wait_for(50ms));
    Write("go", "");
    EXPECT_EQ(3, result.get());
    EXPECT_EQ(0u, IdOf("powershell.exe"));
}

TEST_F(SystemCommand, ItsProgramIsAProcessOfThePcInSession0) {
    StartPc([](auto& pc) { pc.environment["PROGRAMDATA"] = "C:\\ProgramData"; });
    WritePowerShell(R"(printf '%s\n' "$WINHOST_SESSION" "$WINHOST_MODULE" "$PROGRAMDATA" > C:/environment)");
    EXPECT_EQ(0, system("powershell"));
    EXPECT_EQ("0\nC:\\Windows\\System32\\WindowsPowerShell\\v1.0\\powershell.exe\nC:\\ProgramData\n",
              ReadFromC("environment"));
}

TEST_F(SystemCommand, WhatIsNoProgramGivesOne) {
    Write("Windows/System32/schtasks.exe", "MZ");
    WriteScript("Windows/System32/app", "exit 5");
    EXPECT_EQ(1, system("PowerShell -NoProfile"));
    EXPECT_EQ(1, system(R"(C:\none\app.exe -x)"));
    EXPECT_EQ(1, system("/usr/bin/gettext.sh")) << "a program of Linux is none of the PC's";
    EXPECT_EQ(1, system(R"(C:\..\..\..\..\usr\bin\gettext.sh)"));
    EXPECT_EQ(1, system("schtasks /query")) << "Linux cannot run it";
    EXPECT_EQ(1, system("app")) << "it has no ending";
}

TEST_F(SystemCommand, ARedirectionToNulIsNoArgumentAndMakesNoFile) {
    WriteScript("Windows/System32/schtasks.exe", R"(printf '%s\n' "$@" > C:/arguments; echo text)");
    for (const char* end : {" > nul 2>&1", " >nul", " > NUL", " 2> nul", " >nul 2>nul", " >>nul"}) {
        EXPECT_EQ(0, system((R"(schtasks /query /tn "My Task")" + std::string(end)).c_str())) << end;
        EXPECT_EQ("/query\n/tn\nMy Task\n", ReadFromC("arguments")) << end;
    }
    EXPECT_EQ((std::vector<std::string>{"arguments", "schtasks.exe"}), FilesOfTheRoot());
}

TEST_F(SystemCommand, ASignOfTheCommandProcessorInQuotesIsText) {
    WritePowerShell(R"(printf '%s\n' "$@" > C:/arguments)");
    EXPECT_EQ(0, system("powershell -Command \"a > b & c | d (e)\""));
    EXPECT_EQ("-Command\na > b & c | d (e)\n", ReadFromC("arguments"));
}

TEST_F(SystemCommand, WhatItLacksIsRefusedAndNotRun) {
    WritePowerShell("touch C:/ran");
    for (const char* command :
         {"powershell & powershell", "powershell | powershell", "powershell > C:\\x.txt", "powershell < nul",
          "powershell %PATH%", "powershell ^x", "powershell\npowershell", "\"powershell\" x", "(powershell)",
          "", "  "}) {
        errno = 0;
        EXPECT_EQ(-1, system(command)) << command;
        EXPECT_EQ(EINVAL, errno) << command;
    }
    EXPECT_FALSE(std::filesystem::exists(OnC("ran")));
}

TEST_F(SystemCommand, TheVariablePathNamesTheFoldersInTheirOrder) {
    StartPc([](auto& pc) { pc.environment["Path"] = "C:\\first\\;;C:\\second"; });
    WriteScript("second/app.cmd", "exit 2");
    WritePowerShell("exit 9");
    EXPECT_EQ(2, system("app"));
    WriteScript("first/app.EXE", "exit 1");
    WriteScript("first/App.cmd", "exit 3");
    EXPECT_EQ(1, system("APP x"));
    EXPECT_EQ(3, system("app.cmd"));
    EXPECT_EQ(1, system("powershell")) << "not in these folders";
}

TEST_F(SystemCommand, AProgramIsFoundByItsWholePath) {
    WriteScript("tools/app.exe", "exit 4");
    EXPECT_EQ(4, system(R"(C:\tools\app.exe)"));
    EXPECT_EQ(4, system(R"(C:\tools\app)"));
}

TEST_F(SystemCommand, ThereIsACommandProcessor) {
    EXPECT_NE(0, system(nullptr));
}

TEST_F(SystemCommand, IsRecordedToTheLetter) {
    const std::string command = R"(schtasks /query /tn "StartZEL_Service" > nul 2>&1)";
    system(command.c_str());
    EXPECT_EQ(std::vector<std::string>{command}, Commands());
}

}  // namespace
