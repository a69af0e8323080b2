// Programs started in the console's session: which, with what, and what stays of them.
#include <userenv.h>

#include "winhost/tests/LaunchFixture.h"

namespace {

class CreateProcessTest : public LaunchFixture {
  protected:
    // That of a program, a variable a line.
    std::string EnvironmentOf(DWORD flags = kFlags, void* block = nullptr) const {
        WriteScript("bin/env.exe", R"(tr '\0' '\n' < /proc/$$/environ > C:/environment)");
        Run(R"("C:\bin\env.exe")", flags, block);
        return ReadFromC("environment");
    }
};

// ---- which program ----

TEST_F(CreateProcessTest, AQuotedPathIsRunWithTheRestOfTheLineAsArguments) {
    WriteScript("Program Files/bin/app.exe", R"(printf '%s\n' "$@" > C:/arguments)");
    Run(R"("C:\Program Files\bin\app.exe" -X 1920 -Y 1080 "two words" \\x\" end)");
    EXPECT_EQ("-X\n1920\n-Y\n1080\ntwo words\n\\\\x\"\nend\n", ReadFromC("arguments"));
}

TEST_F(CreateProcessTest, WhatIsNoProgramIsRefused) {
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOfStart(R"("C:\app.exe" -X 1)"));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, ErrorOfStart(R"("C:\nowhere\app.exe")"));
    Write("text.exe", "not a program");
    EXPECT_EQ(ERROR_BAD_EXE_FORMAT, ErrorOfStart(R"("C:\text.exe")")) << "not marked as one";
    std::filesystem::permissions(OnC("text.exe"), std::filesystem::perms::owner_all);
    EXPECT_EQ(ERROR_BAD_EXE_FORMAT, ErrorOfStart(R"("C:\text.exe")")) << "marked, yet none";
    Write("orphan.exe", "#!/nowhere/interpreter\n");
    std::filesystem::permissions(OnC("orphan.exe"), std::filesystem::perms::owner_all);
    EXPECT_EQ(ERROR_BAD_EXE_FORMAT, ErrorOfStart(R"("C:\orphan.exe")"));
    std::filesystem::create_directories(OnC("folder.exe"));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfStart(R"("C:\folder.exe")"));
}

// ---- who may ----

TEST_F(CreateProcessTest, TheTokenNeedsItsRights) {
    WriteScript("app.exe", "true");
    const HANDLE token = LogonToken(TOKEN_QUERY | TOKEN_DUPLICATE);
    EXPECT_EQ(ERROR_ACCESS_DENIED, StartWith(token, R"("C:\app.exe")").error);
    CloseHandle(token);
    EXPECT_EQ(ERROR_INVALID_HANDLE, StartWith(token, R"("C:\app.exe")").error);
}

TEST_F(CreateProcessTest, BothPrivilegesHaveToBeHeldThoughNotEnabled) {
    WriteScript("app.exe", "true");
    for (const char* lacking : {SE_INCREASE_QUOTA_NAME, SE_ASSIGNPRIMARYTOKEN_NAME}) {
        StartPc([&](auto& pc) { std::erase(pc.privileges, lacking); });
        EXPECT_EQ(ERROR_PRIVILEGE_NOT_HELD, ErrorOfStart(R"("C:\app.exe")")) << lacking;
    }
    StartPc([](auto&) {});
    Run(R"("C:\app.exe")");
}

TEST_F(CreateProcessTest, WhatItCannotDoIsRefused) {
    WriteScript("app.exe", "true");
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOfStart(R"("C:\app.exe")", CREATE_NEW_CONSOLE));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOfStart(R"("C:\app.exe")", DETACHED_PROCESS | CREATE_SUSPENDED));
    for (const char* line : {R"(C:\app.exe)", R"("C:\app")", R"("app.exe")", R"("")", R"("C:\app.exe)"})
        EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOfStart(line)) << "only a whole path in quotes";
    char narrow[] = "C=3\0";
    EXPECT_EQ(ERROR_NOT_SUPPORTED, Start(R"("C:\app.exe")", DETACHED_PROCESS, narrow).error);
    EXPECT_TRUE(IdsOf("app.exe").empty());
}

// ---- what it gets ----

TEST_F(CreateProcessTest, TheEnvironmentIsThePcsAndNotTheCallers) {
    setenv("SERVICES_OWN", "1", 1);
    StartPc([](auto& pc) { pc.environment = {{"PROGRAMDATA", R"(C:\ProgramData)"}, {"ÄGYPTEN", "Größe"}}; });
    for (const DWORD flags : {DWORD{kFlags}, DWORD{DETACHED_PROCESS}}) {
        const std::string environment = EnvironmentOf(flags);
        EXPECT_NE(std::string::npos, environment.find("PROGRAMDATA=C:\\ProgramData\n")) << environment;
        EXPECT_NE(std::string::npos, environment.find("ÄGYPTEN=Größe\n")) << environment;
        EXPECT_EQ(std::string::npos, environment.find("SERVICES_OWN")) << environment;
    }
    unsetenv("SERVICES_OWN");
}

TEST_F(CreateProcessTest, ABlockIsTheWholeEnvironmentButForTheMarksOfThePc) {
    StartPc([](auto& pc) { pc.environment = {{"OF_THE_PC", "1"}}; });
    wchar_t wide[] = L"A=ä\0B=2\0";
    const std::string environment = EnvironmentOf(kFlags, wide);
    const std::string root = std::filesystem::canonical(m_root).string();
    for (const std::string& line :
         {std::string("A=ä"), std::string("B=2"), "WINHOST_ROOT=" + root, std::string("WINHOST_SESSION=1"),
          std::string(R"(WINHOST_MODULE=C:\bin\env.exe)")})
        EXPECT_NE(std::string::npos, environment.find(line + "\n")) << line << " in " << environment;
    EXPECT_EQ(std::string::npos, environment.find("OF_THE_PC"));
}

TEST_F(CreateProcessTest, NoDescriptorIsInherited) {
    const int inheritable = open("/dev/null", O_RDONLY);
    ASSERT_LE(0, inheritable);
    // One is that of the listing itself.
    WriteScript("app.exe", "ls /proc/self/fd > C:/descriptors");
    Run(R"("C:\app.exe")");
    EXPECT_EQ("0\n1\n2\n3\n", ReadFromC("descriptors"));
    close(inheritable);
}

TEST_F(CreateProcessTest, ItLeadsASessionOfItsOwn) {
    WriteScript("app.exe", R"(read -r id name state parent group session rest < /proc/self/stat
        echo "$id $$ $session" > C:/session)");
    const Started started = Start(R"("C:\app.exe")");
    WaitForSingleObject(started.information.hProcess, INFINITE);
    const std::string id = std::to_string(started.Id());
    EXPECT_EQ(id + " " + id + " " + id + "\n", ReadFromC("session"));
}

TEST_F(CreateProcessTest, BlockedAndIgnoredSignalsAreNotPassedOn) {
    const auto formerly = signal(SIGPIPE, SIG_IGN);
    sigset_t signals, former;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, &former);
    WriteScript("app.exe", "grep -E 'Sig(Blk|Ign)' /proc/self/status > C:/signals");
    Run(R"("C:\app.exe")");
    unsigned long long blocked = 0, ignored = 0;
    ASSERT_EQ(2, std::sscanf(ReadFromC("signals").c_str(), "SigBlk: %llx SigIgn: %llx", &blocked, &ignored));
    EXPECT_EQ(0u, blocked);
    EXPECT_EQ(0u, ignored >> (SIGPIPE - 1) & 1);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    signal(SIGPIPE, formerly);
}

TEST_F(CreateProcessTest, ItsFolderIsTheCallers) {
    WriteScript("app.exe", R"(pwd >> "$WINHOST_ROOT/C:/folders")");
    Run(R"("C:\app.exe")");
    EXPECT_EQ(std::filesystem::canonical(m_root).string() + "\n", ReadFromC("folders"));
}

// ---- what stays ----

TEST_F(CreateProcessTest, NoZombieStays) {
    WriteScript("app.exe", "exit 3");
    WriteSleeper("sleep.exe");
    const Started ended = Start(R"("C:\app.exe")"), killed = Start(R"("C:\sleep.exe" 1000)");
    ASSERT_TRUE(ended.result);
    kill(static_cast<pid_t>(killed.Id()), SIGKILL);
    EXPECT_TRUE(AwaitReaped(ended.Id())) << "though both handles are open";
    EXPECT_TRUE(AwaitReaped(killed.Id()));
}

TEST_F(CreateProcessTest, OpenHandlesOfAnEndedProgramCostNothingElse) {
    WriteScript("app.exe", "true");
    const Started first = Start(R"("C:\app.exe")");
    EXPECT_TRUE(AwaitReaped(first.Id()));
    const size_t descriptors = OpenDescriptors(), threads = Threads();
    std::vector<Started> leaked;
    for (int i = 0; i < 20; ++i) {
        leaked.push_back(Start(R"("C:\app.exe")"));
        ASSERT_TRUE(leaked.back().result);
    }
    for (const Started& started : leaked)
        EXPECT_TRUE(AwaitReaped(started.Id()));
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(threads, Threads());
}

TEST_F(CreateProcessTest, AProgramThatCouldNotBeReapedIsNotStarted) {
    WriteScript("app.exe", "true");
    // What watches for ends is there from the first program on, and has let go of it.
    const Started first = Start(R"("C:\app.exe")");
    EXPECT_TRUE(AwaitReaped(first.Id()));
    const HANDLE token = Keep(LogonToken());
    // The next free descriptor is beyond what the process may have.
    const int next = dup(0);
    close(next);
    rlimit limit{}, former{};
    getrlimit(RLIMIT_NOFILE, &former);
    limit = {static_cast<rlim_t>(next), former.rlim_max};
    setrlimit(RLIMIT_NOFILE, &limit);
    const Started started = StartWith(token, R"("C:\app.exe")");
    setrlimit(RLIMIT_NOFILE, &former);
    EXPECT_FALSE(started.result);
    EXPECT_EQ(ERROR_TOO_MANY_OPEN_FILES, started.error);
    siginfo_t info{};
    EXPECT_EQ(-1, waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT)) << "a child is left";
}

TEST_F(CreateProcessTest, ManyThreadsStartProgramsAtOnce) {
    WriteScript("app.exe", "echo $1 >> C:/ran");
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([] {
            for (int i = 0; i < 5; ++i)
                Run(R"("C:\app.exe" x)");
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(40u, ReadFromC("ran").size());
}

TEST_F(CreateProcessTest, WhatWasStartedIsRecorded) {
    WriteScript("app.exe", "true");
    Run(R"("C:\app.exe" -E 1)");
    const auto launches = Records<winhost::ProcessLaunch>();
    ASSERT_EQ(1u, launches.size());
    EXPECT_EQ(R"("C:\app.exe" -E 1)", launches[0].commandLine);
    EXPECT_EQ("Winsta0\\Default", launches[0].desktop);
    EXPECT_EQ(1u, launches[0].session);
    EXPECT_EQ(0x408u, launches[0].flags);
    EXPECT_FALSE(launches[0].environment);
}

}  // namespace
