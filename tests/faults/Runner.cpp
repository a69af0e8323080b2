#include "tests/faults/Runner.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/faults/FailureTable.h"
#include "tests/faults/Stacks.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kHung = 90;  // exit code of a run that was asked for its stacks
constexpr auto kPatienceWithStacks = std::chrono::seconds(20);

Account* NewAccount() {
    void* const memory =
        mmap(nullptr, sizeof(Account), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    return static_cast<Account*>(memory);
}

std::string NewFolder() {
    std::string name = (fs::temp_directory_path() / "zelservice-faults-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    return name;
}

bool EndsProcess(const Account& account) {
    const FailureEntry* const entry = FindFailure(account.call);
    return entry && entry->effect == FailureEntry::Effect::EndsProcess;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

struct Runner::Run {
    pid_t process = 0;
    Account* account = nullptr;
    std::string folder;  // its temporary files, and its output
    Report report;
    Clock::time_point deadline;
    bool wasAsked = false;

    std::string OutputFile() const { return folder + "/output"; }
};

Runner::Runner(size_t width, std::chrono::seconds patience) : m_width(width), m_patience(patience) {}

Runner::~Runner() {
    for (const auto& run : m_runs)
        kill(-run->process, SIGKILL);
}

void Runner::Start(Body body, Report report) {
    while (m_runs.size() >= m_width)
        ReapOne();
    auto run = std::make_unique<Run>();
    if (m_spareAccounts.empty()) m_spareAccounts.push_back(NewAccount());
    run->account = new (m_spareAccounts.back()) Account;
    m_spareAccounts.pop_back();
    run->folder = NewFolder();
    run->report = std::move(report);
    run->deadline = Clock::now() + m_patience;
    std::fflush(nullptr);
    run->process = fork();
    if (run->process < 0) throw std::runtime_error("no process for a run");
    if (run->process == 0) {
        // Its own programs end with it.
        setpgid(0, 0);
        const int output = open(run->OutputFile().c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        setenv("TMPDIR", run->folder.c_str(), 1);
        PrintStacksOnSignal(kHung);
        body(*run->account);
        _exit(1);
    }
    setpgid(run->process, run->process);
    m_runs.push_back(std::move(run));
}

void Runner::Finish() {
    while (!m_runs.empty())
        ReapOne();
}

// Asks a run that hangs for its stacks, and ends it when it does not answer.
void Runner::Watch(Run& run) {
    if (Clock::now() < run.deadline) return;
    kill(run.process, run.wasAsked ? SIGKILL : SIGUSR1);
    run.wasAsked = true;
    run.deadline = Clock::now() + kPatienceWithStacks;
}

bool Runner::ReapOne() {
    for (auto& run : m_runs) {
        int status = 0;
        if (waitpid(run->process, &status, WNOHANG) != run->process) {
            Watch(*run);
            continue;
        }
        kill(-run->process, SIGKILL);
        const std::unique_ptr<Run> over = std::move(run);
        m_runs.erase(std::find(m_runs.begin(), m_runs.end(), nullptr));
        over->report(*over->account, Judge(*over, status));
        std::error_code ignored;
        fs::remove_all(over->folder, ignored);
        m_spareAccounts.push_back(over->account);
        return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return false;
}

Outcome Runner::Judge(const Run& run, int status) const {
    const Account& account = *run.account;
    Outcome outcome{account.end, account.finding, ReadFile(run.OutputFile())};
    const bool exited = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (exited && account.end == Account::End::None && EndsProcess(account)) {
        outcome.end = Account::End::AsSpecified;
    } else if (run.wasAsked) {
        outcome.end = Account::End::Failed;
        outcome.finding += "  the run hangs\n";
    } else if (!exited || account.end == Account::End::None) {
        outcome.end = Account::End::Failed;
        outcome.finding +=
            WIFSIGNALED(status)
                ? "  the process ended by signal " + std::to_string(WTERMSIG(status)) + "\n"
                : "  the process ended with exit code " + std::to_string(WEXITSTATUS(status)) + "\n";
    }
    return outcome;
}
