// Who may connect to a named pipe, and its two ends in two processes.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "winhost/tests/PipeFixture.h"

namespace {

class PipeAccessTest : public PipeFixture {
  protected:
    static void SetUser(const char* name) {
        Change([&](auto& pc) { pc.userName = name; });
    }
    // Of another user that opens a pipe made with a security descriptor, with a null DACL or without any.
    long ErrorOfAnother(bool withDacl) {
        SECURITY_DESCRIPTOR descriptor;
        EXPECT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
        EXPECT_TRUE(!withDacl || SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE));
        SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
        SetUser("SYSTEM");
        Create({.attributes = &attributes});
        SetUser("alice");
        return OpenError();
    }
};

TEST_F(PipeAccessTest, AUserMayNotConnectToThePipeOfAnother) {
    SetUser("SYSTEM");
    Create();
    SetUser("alice");
    EXPECT_EQ(ERROR_ACCESS_DENIED, OpenError());
}

TEST_F(PipeAccessTest, ANullDaclLetsEveryUserConnect) {
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfAnother(true));
}

TEST_F(PipeAccessTest, ADescriptorWithoutADaclLeavesTheDefault) {
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfAnother(false));
}

TEST_F(PipeAccessTest, TheSystemMayConnectToEveryPipe) {
    SetUser("alice");
    Create();
    SetUser("SYSTEM");
    EXPECT_EQ(ERROR_SUCCESS, OpenError());
}

TEST_F(PipeAccessTest, DescriptorsHaveTheRevisionOfToday) {
    SECURITY_DESCRIPTOR descriptor{};
    EXPECT_EQ(ERROR_UNKNOWN_REVISION, ErrorOf(InitializeSecurityDescriptor(&descriptor, 2)));
    EXPECT_EQ(ERROR_UNKNOWN_REVISION, ErrorOf(SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)));
}

// The other process is this program again, with the same test in the other part.
class TwoProcessTest : public PipeFixture {
  protected:
    static constexpr const char* kPart = "PIPE_TEST_PEER_ROOT";

    TwoProcessTest() {
        if (IsPeer()) StartPc([](auto& pc) { pc.root = getenv(kPart); });
    }
    ~TwoProcessTest() override {
        if (m_peer > 0) kill(m_peer, SIGKILL);
        ExitOfPeer();
    }
    static bool IsPeer() { return getenv(kPart) != nullptr; }
    // Until somebody kills the process.
    static void Stay() { Sleep(INFINITE); }

    void StartPeer() {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        const std::string filter =
            std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
        const std::string part = std::string(kPart) + "=" + m_root.string();
        // What a killed peer leaves there goes with the root.
        const std::string temporary = "TMPDIR=" + m_root.string();
        const char* const environment[] = {part.c_str(), temporary.c_str(), nullptr};
        m_peer = fork();
        ASSERT_GE(m_peer, 0);
        if (m_peer > 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execle("/proc/self/exe", "peer", filter.c_str(), nullptr, environment);
        _exit(127);
    }
    int ExitOfPeer() {
        int status = 0;
        if (m_peer > 0) waitpid(m_peer, &status, 0);
        m_peer = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    void KillPeer() { kill(m_peer, SIGKILL); }

    pid_t m_peer = 0;
};

TEST_F(TwoProcessTest, AClientInAnotherProcessIsTalkedWith) {
    if (IsPeer()) {
        const HANDLE client = Open();
        EXPECT_EQ((PipeRead{0, "question"}), Read(client));
        EXPECT_EQ(ERROR_SUCCESS, Write(client, "answer"));
        return;
    }
    const HANDLE server = Create({.room = 0});
    StartPeer();
    const long connected = Connect(server);
    EXPECT_TRUE(connected == ERROR_SUCCESS || connected == ERROR_PIPE_CONNECTED) << connected;
    EXPECT_EQ(ERROR_SUCCESS, Write(server, "question"));
    EXPECT_EQ((PipeRead{0, "answer"}), Read(server));
    EXPECT_EQ(0, ExitOfPeer());
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), Read(server));
}

TEST_F(TwoProcessTest, AClientThatIsKilledHasClosedItsEnd) {
    if (IsPeer()) {
        Write(Open(), "here");
        Stay();
    }
    const HANDLE server = Create();
    StartPeer();
    Connect(server);
    EXPECT_EQ((PipeRead{0, "here"}), Read(server));
    auto read = ReadLater(server);
    KillPeer();
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), read.get());
    ExitOfPeer();
}

TEST_F(TwoProcessTest, AServerThatIsKilledLeavesNoPipe) {
    if (IsPeer()) {
        const HANDLE server = Create({.maxInstances = 1});
        Connect(server);
        Write(server, "here");
        Stay();
    }
    StartPeer();
    HANDLE client;
    while ((client = Open()) == INVALID_HANDLE_VALUE)
        ASSERT_EQ(ERROR_FILE_NOT_FOUND, GetLastError());
    EXPECT_EQ((PipeRead{0, "here"}), Read(client));
    EXPECT_EQ(ERROR_PIPE_BUSY, OpenError());
    KillPeer();
    ExitOfPeer();
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), Read(client));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, OpenError());
    EXPECT_EQ(ERROR_SUCCESS, CreateError({.maxInstances = 2}));
}

}  // namespace
