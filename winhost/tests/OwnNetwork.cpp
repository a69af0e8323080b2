#include "winhost/tests/OwnNetwork.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "winhost/tests/Shell.h"

namespace {

constexpr const char* kTool = "PATH=$PATH:/usr/sbin:/sbin ip ";

void Write(const char* file, const std::string& text) {
    std::ofstream(file) << text;
}

// The caller's process must have one thread.
bool EnterOwnNetwork() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user == 0) return unshare(CLONE_NEWNET) == 0;
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    Write("/proc/self/setgroups", "deny");
    Write("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    Write("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    return true;
}

}  // namespace

std::string WhyNoOwnNetwork() {
    if (RunInShell(std::string(kTool) + "-V >/dev/null 2>&1") != 0) return "iproute2 is not installed";
    const pid_t child = fork();
    if (child == 0) {
        const bool made =
            EnterOwnNetwork() &&
            RunInShell(std::string(kTool) + "link add v0 type veth peer name v1 2>/dev/null") == 0;
        _exit(made ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? "" : "network namespaces with virtual interfaces may not be made here";
}

void RunInOwnNetwork(const std::function<void()>& body) {
    EXPECT_TRUE(EnterOwnNetwork());
    if (!testing::Test::HasFailure()) body();
    // The parent shows what stands on the error stream.
    const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < result.total_part_count(); ++i) {
        const testing::TestPartResult& part = result.GetTestPartResult(i);
        if (part.failed()) std::fprintf(stderr, "line %d: %s\n", part.line_number(), part.message());
    }
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

void Ip(const std::string& words) {
    EXPECT_EQ(0, RunInShell(kTool + words)) << words;
}
