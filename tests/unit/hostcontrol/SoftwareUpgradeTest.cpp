// What the upgrade command of the firmware starts, to the letter.
#include "hostcontrol/SoftwareUpgrade.h"

#include <fstream>
#include <sstream>

#include "mailbox/FirmwareCommands.h"
#include "service/CommandDispatch.h"
#include "tests/support/LinkedFixture.h"
#include "winhost/core/HandleTable.h"

namespace {

class SoftwareUpgrade : public LinkedFixture {
  protected:
    static constexpr char kProgram[] = "ZELSWUpgrade.exe";
    static constexpr char kAttempt[] = "Attempting Software Upgrade. Send size: ";
    static constexpr char kCommandLine[] = "Command line Parameters passed to CreateProcess() API ";
    static constexpr char kLaunched[] = "ZELSWUpgrade executable launched successfully";

    // A program that keeps its arguments, one on each line.
    static void InstallUpgrade() {
        WriteProgram(kProgram, R"(printf '%s\n' "$#" "$@" > C:/got; mv C:/got C:/arguments)");
    }
    static void Upgrade(const std::string& text) { StartSoftwareUpgrade(text.data(), text.size()); }
    // What the program got: the number of its arguments, and the arguments.
    static std::string Arguments() {
        EXPECT_TRUE(Eventually([] { return std::filesystem::exists(HostPath("C:\\arguments")); }));
        std::ostringstream text;
        text << std::ifstream(HostPath("C:\\arguments")).rdbuf();
        return text.str();
    }
    static std::vector<winhost::ProcessLaunch> Launches() { return Pc().Records<winhost::ProcessLaunch>(); }
    // Of the last start.
    static std::string CommandLine() { return Launches().empty() ? "" : Launches().back().commandLine; }
    void Process(const std::string& payload) {
        std::vector<uint8_t> message(payload.begin(), payload.end());
        message.push_back(MPM_ZEL_CMD_SOFTWARE_UPGRADE);
        message.push_back(0);
        ProcessRead(service.get(), static_cast<uint32_t>(message.size()), message.data());
    }

    // The path has no quotes, so that a program splits it at its blank like anything else.
    static constexpr char kRestOfPath[] = "Files\\Tarvix\\Service\\bin\\ZELSWUpgrade.exe\n";
    const std::string m_path = std::string(kBin) + kProgram;
};

}  // namespace

TEST_F(SoftwareUpgrade, TheCommandStartsTheProgramWithTheText) {
    InstallUpgrade();
    Process("package 7 --now");
    EXPECT_EQ(CommandLine(), m_path + R"( "package 7 --now")");
    ExpectLogInOrder({"ProcessRead: Software upgrade command received: MPM_ZEL_CMD_SOFTWARE_UPGRADE",
                      std::string(kAttempt) + "15", kCommandLine + m_path + R"( "package 7 --now")",
                      kLaunched});
    for (const std::string& line : {std::string(kAttempt) + "15", std::string(kLaunched)})
        EXPECT_TRUE(HasLine("INFO", line)) << line;
    EXPECT_TRUE(HasLine("INFO", kCommandLine + m_path + R"( "package 7 --now")"));
}

TEST_F(SoftwareUpgrade, AnEmptyCommandEndsAtItsLine) {
    InstallUpgrade();
    Process("");
    EXPECT_EQ(Messages().back(),
              "ProcessRead: Software upgrade command received: MPM_ZEL_CMD_SOFTWARE_UPGRADE");
    EXPECT_TRUE(Launches().empty());
}

TEST_F(SoftwareUpgrade, TheProgramBelongsToTheDesktopAndIsDetached) {
    InstallUpgrade();
    Upgrade("x");
    ASSERT_EQ(Launches().size(), 1u);
    EXPECT_EQ(Launches()[0].desktop, "Winsta0\\Default");
    EXPECT_EQ(Launches()[0].flags, 8u);
    EXPECT_EQ(Launches()[0].session, 0u);
    EXPECT_FALSE(Launches()[0].environment);
    EXPECT_EQ(ArgumentsOf("CreateProcessA", "bInheritHandles"), std::vector<uint32_t>{1});
    EXPECT_EQ(ArgumentsOf("CreateProcessA", "wShowWindow"), std::vector<uint32_t>{5});
}

TEST_F(SoftwareUpgrade, ATextOf1022BytesPassesWhole) {
    InstallUpgrade();
    const std::string text(1022, 'u');
    Upgrade(text);
    EXPECT_EQ(CommandLine(), m_path + " \"" + text + "\"");
    EXPECT_EQ(Arguments(), "2\n" + std::string(kRestOfPath) + text + "\n");
}

TEST_F(SoftwareUpgrade, ALongerTextIsRefusedWhole) {
    InstallUpgrade();
    for (const size_t length : {size_t{1023}, size_t{1024}, size_t{131070}}) {
        Upgrade(std::string(length, 'u'));
        EXPECT_EQ(CommandLine(), m_path + R"( "")") << length;
        EXPECT_TRUE(HasLine("INFO", kAttempt + std::to_string(length)));
    }
    EXPECT_EQ(Arguments(), "2\n" + std::string(kRestOfPath) + "\n");
}

TEST_F(SoftwareUpgrade, TheTextEndsAtItsFirstZero) {
    InstallUpgrade();
    Upgrade(std::string("first\0second", 12));
    EXPECT_EQ(CommandLine(), m_path + R"( "first")");
    EXPECT_TRUE(HasLine("INFO", std::string(kAttempt) + "12"));
    // The zero counts before the length does.
    Upgrade("short" + std::string(2000, '\0'));
    EXPECT_EQ(CommandLine(), m_path + R"( "short")");
    Upgrade(std::string(1, '\0'));
    EXPECT_EQ(CommandLine(), m_path + R"( "")");
}

TEST_F(SoftwareUpgrade, AQuoteInTheTextEndsTheQuotedPart) {
    InstallUpgrade();
    Upgrade(R"(one" two "three)");
    EXPECT_EQ(CommandLine(), m_path + R"( "one" two "three")");
    EXPECT_EQ(Arguments(), "4\n" + std::string(kRestOfPath) + "one\ntwo\nthree\n");
}

// The path has no quotes, so that Windows looks for its beginnings first.
TEST_F(SoftwareUpgrade, ABlankInThePathIsResolvedAsWindowsDoes) {
    InstallUpgrade();
    Upgrade("x");
    EXPECT_EQ(Arguments(), "2\n" + std::string(kRestOfPath) + "x\n");
    const auto shorter = HostPath("C:\\Program.exe");
    std::ofstream(shorter) << "#!/bin/sh\necho other > C:/other\n";
    std::filesystem::permissions(shorter, std::filesystem::perms::owner_all);
    Upgrade("x");
    EXPECT_TRUE(Eventually([] { return std::filesystem::exists(HostPath("C:\\other")); }));
}

TEST_F(SoftwareUpgrade, APackageHasTheProgramInItsOwnFolder) {
    service->m_packageContext.m_packagePath = "C:\\Program Files\\WindowsApps\\Tarvix.ZEL_1.0.0.0_x64";
    service->m_packageContext.m_bIsPackage = 1;
    ExpectError("CreateProcess() API failed with error : 2");
    Upgrade("x");
    EXPECT_TRUE(HasLine("INFO", kCommandLine + service->m_packageContext.m_packagePath +
                                    "\\ZELSWUpgrade\\ZELSWUpgrade.exe \"x\""));
}

TEST_F(SoftwareUpgrade, WithoutAFolderNothingIsStarted) {
    Pc().Change([](winhost::PcDescription& pc) { pc.modulePath = "ZELService.exe"; });
    ExpectError("Error fetching API path");
    Upgrade("x");
    EXPECT_EQ(Messages().back(), "Error fetching API path");
    EXPECT_TRUE(HasLine("ERROR", "Error fetching API path"));
    EXPECT_EQ(Messages()[Messages().size() - 2], std::string(kAttempt) + "1");
    EXPECT_EQ(Gate().Count("CreateProcessA"), 0u);
}

TEST_F(SoftwareUpgrade, AProgramThatCannotBeStartedIsLogged) {
    ExpectError("CreateProcess() API failed with error : 2");
    std::filesystem::create_directories(HostPath(kBin));
    Upgrade("x");
    EXPECT_EQ(Messages().back(), "CreateProcess() API failed with error : 2");
    EXPECT_EQ(LogCount(kLaunched), 0u);
}

TEST_F(SoftwareUpgrade, NoHandleOfTheProgramStaysOpen) {
    InstallUpgrade();
    const size_t before = OpenHandles();
    for (int i = 0; i < 3; ++i)
        Upgrade("x");
    EXPECT_EQ(OpenHandles(), before);
}

TEST_F(SoftwareUpgrade, TheReadThreadDoesNotWaitForTheProgram) {
    WriteProgram(kProgram, kStubborn);
    Start(50);
    firmware.Send(MPM_ZEL_CMD_SOFTWARE_UPGRADE, {'x'});
    AwaitHandled();
    EXPECT_EQ(LogCount(kLaunched), 1u);
    EXPECT_EQ(IdsOf(kProgram).size(), 1u);
}
