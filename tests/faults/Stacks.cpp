#include "tests/faults/Stacks.h"

#include <cxxabi.h>
#include <dirent.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace {

constexpr int kMostFrames = 64;
constexpr long kPatienceOfOne = 300'000'000;  // ns, for one thread to print its stack

sem_t g_printed;
int g_exitCode = 1;

std::string NameOf(void* address) {
    Dl_info info{};
    if (!dladdr(static_cast<char*>(address) - 1, &info) || !info.dli_sname) return "?";
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, nullptr), &std::free);
    return name ? name.get() : info.dli_sname;
}

// A process that prints its stacks is a finding already: what this does in a signal handler may fail.
void PrintOwnStack(int) {
    std::fprintf(stderr, "  thread %ld\n", syscall(SYS_gettid));
    void* frames[kMostFrames];
    const int count = backtrace(frames, kMostFrames);
    for (int i = 2; i < count; ++i)
        std::fprintf(stderr, "    %s\n", NameOf(frames[i]).c_str());
    sem_post(&g_printed);
}

void PrintAndExit(int) {
    PrintStacks();
    _exit(g_exitCode);
}

void Handle(int number, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(number, &action, nullptr);
}

}  // namespace

std::vector<std::string> FunctionsOfThisThread() {
    void* frames[kMostFrames];
    const int count = backtrace(frames, kMostFrames);
    std::vector<std::string> names;
    for (int i = 1; i < count; ++i) {
        const std::string name = NameOf(frames[i]);
        names.push_back(name.substr(0, name.find('(')));
    }
    return names;
}

void PrintStacks() {
    sem_init(&g_printed, 0, 0);
    Handle(SIGUSR2, PrintOwnStack);
    DIR* const tasks = opendir("/proc/self/task");
    while (const dirent* task = tasks ? readdir(tasks) : nullptr) {
        const long thread = std::atol(task->d_name);
        if (thread == 0) continue;
        syscall(SYS_tgkill, getpid(), thread, SIGUSR2);
        timespec until{};
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_nsec += kPatienceOfOne;
        until.tv_sec += until.tv_nsec / 1'000'000'000;
        until.tv_nsec %= 1'000'000'000;
        sem_timedwait(&g_printed, &until);
    }
    if (tasks) closedir(tasks);
}

void PrintStacksOnSignal(int exitCode) {
    g_exitCode = exitCode;
    Handle(SIGUSR1, PrintAndExit);
}
