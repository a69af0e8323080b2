// A program that is started on a PC is on that PC. The program `winhost_onpc` lies beside this one.
#include <json/writer.h>

#include <cstdio>

#include "winhost/pc/DescriptionJson.h"
#include "winhost/tests/LaunchFixture.h"
#include "winhost/tests/Shell.h"

namespace {

class SamePc : public LaunchFixture {
  protected:
    static std::filesystem::path Program() {
        return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "winhost_onpc";
    }
    void Install(const std::string& name) const {
        std::filesystem::create_directories(OnC(name).parent_path());
        std::filesystem::create_symlink(Program(), OnC(name));
    }
    std::string DescriptionFile() const { return (m_root / "pc.json").string(); }
    void Describe(const winhost::PcDescription& description) const {
        std::ofstream(DescriptionFile()) << winhost::DescriptionToJson(description);
    }
    // Lets another process of this description start a command line, and waits for that process's end. The id
    // of what was started.
    DWORD StartFromAnother(const winhost::PcDescription& description, const std::string& command) const {
        Describe(description);
        const std::string line =
            "WINHOST_PC='" + DescriptionFile() + "' '" + Program().string() + "' start '" + command + "'";
        FILE* const pipe = popen(line.c_str(), "re");
        unsigned id = 0;
        EXPECT_EQ(1, std::fscanf(pipe, "%u", &id));
        EXPECT_EQ(0, pclose(pipe));
        return id;
    }
};

TEST_F(SamePc, ItsPathItsEnvironmentAndItsSessionAreItsOwn) {
    StartPc([](auto& pc) {
        pc.modulePath = R"(C:\bin\service.exe)";
        pc.environment = {{"PROGRAMDATA", R"(C:\ProgramData)"}};
    });
    Install("bin/app.exe");
    Run(R"("C:\bin\app.exe" report C:\report)");
    EXPECT_EQ("module=C:\\bin\\app.exe\nPROGRAMDATA=C:\\ProgramData\nPATH=\nsession=1\ncomputer=WINHOST-PC\n",
              ReadFromC("report"));
}

TEST_F(SamePc, ADescribedPcIsReadByItsProgramsToo) {
    winhost::PcDescription description;
    description.root = m_root.string();
    description.computerName = "LAB-7";
    description.environment = {{"PROGRAMDATA", R"(D:\Data)"}};
    Install("app.exe");
    StartFromAnother(description, R"("C:\app.exe" report C:\report)");
    EXPECT_TRUE(
        Eventually([this] { return ReadFromC("report").find("computer=LAB-7\n") != std::string::npos; }));
    EXPECT_NE(std::string::npos, ReadFromC("report").find("PROGRAMDATA=D:\\Data\n"));
}

TEST_F(SamePc, TheControlSocketStaysThatOfTheFirst) {
    const std::string socket = (m_root / "control.sock").string();
    StartPc([&](auto& pc) { pc.controlSocket = socket; });
    Describe(Description());
    struct stat first {
    }, now{};
    ASSERT_EQ(0, stat(socket.c_str(), &first));
    const std::string marks =
        "WINHOST_ROOT='" + m_root.string() + "' WINHOST_PC='" + DescriptionFile() + "' ";
    ASSERT_EQ(0, RunInShell(marks + Program().string() + R"( report 'C:\report')"));
    ASSERT_EQ(0, stat(socket.c_str(), &now)) << "taken away with the program's end";
    EXPECT_EQ(first.st_ino, now.st_ino);
    StartPc([](auto&) {});
}

TEST_F(SamePc, AProgramWhosePcIsGoneCreatesNone) {
    const std::string root = (m_root / "none").string();
    const std::string line =
        "WINHOST_ROOT='" + root + "' " + Program().string() + R"( report 'C:\report' 2>&1)";
    FILE* const pipe = popen(line.c_str(), "re");
    char text[512] = "";
    EXPECT_TRUE(std::fgets(text, sizeof text, pipe));
    EXPECT_EQ("winhost: no PC is in " + root + "; WINHOST_ROOT names the root of the one to join\n", text);
    EXPECT_EQ(2, WEXITSTATUS(pclose(pipe)));
    EXPECT_FALSE(std::filesystem::exists(root));
}

TEST_F(SamePc, AProgramOutlivesWhoStartedItAndIsSeenByTheNext) {
    winhost::PcDescription description;
    description.root = m_root.string();
    WriteSleeper("app.exe");
    const DWORD id = StartFromAnother(description, R"("C:\app.exe" 1000)");
    EXPECT_EQ(std::vector<DWORD>{id}, IdsOf("app.exe"));
    const HANDLE process = Keep(OpenProcess(PROCESS_ALL_ACCESS, FALSE, id));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(process, 0));
    EXPECT_EQ(1u, SessionOf(id));
    End(process);
    EXPECT_TRUE(IdsOf("app.exe").empty());
}

}  // namespace
