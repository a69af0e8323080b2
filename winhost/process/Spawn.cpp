#include "winhost/process/Spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <system_error>
#include <thread>
#include <utility>

#include <winerror.h>

#include "winhost/files/FileErrors.h"
#include "winhost/pc/Marks.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/CommandLine.h"
#include "winhost/process/ProcFs.h"
#include "winhost/process/ProcessWatcher.h"

namespace winhost {
namespace {

constexpr int kFirstInherited = 3;

// No descriptor but three to nowhere, a session of its own, and all signals as they are at first.
class SpawnSettings {
  public:
    SpawnSettings() {
        posix_spawn_file_actions_init(&m_actions);
        for (int standard = 0; standard < kFirstInherited; ++standard)
            posix_spawn_file_actions_addopen(&m_actions, standard, "/dev/null", O_RDWR, 0);
        posix_spawn_file_actions_addclosefrom_np(&m_actions, kFirstInherited);
        posix_spawnattr_init(&m_attributes);
        posix_spawnattr_setflags(&m_attributes,
                                 POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&m_attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&m_attributes, &signals);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&m_actions);
        posix_spawnattr_destroy(&m_attributes);
    }
    // 0 or the error.
    int Start(const SpawnRequest& request, pid_t& id) const;

  private:
    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
};

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

int SpawnSettings::Start(const SpawnRequest& request, pid_t& id) const {
    return posix_spawn(&id, request.program.c_str(), &m_actions, &m_attributes,
                       Pointers(request.arguments).data(), Pointers(request.environment).data());
}

DWORD ErrorOf(int error, const SpawnRequest& request) {
    std::error_code ignored;
    const bool isFile = std::filesystem::is_regular_file(request.program, ignored);
    switch (error) {
        case ENOEXEC:
            return ERROR_BAD_EXE_FORMAT;
        case EACCES:
        case ENOENT:
            // The file is there: it isn't marked as a program, or what would run it is missing.
            return isFile ? ERROR_BAD_EXE_FORMAT : FileErrorOf(error, request.program);
        case EAGAIN:
            return ERROR_NO_SYSTEM_RESOURCES;
        case E2BIG:
            return ERROR_FILENAME_EXCED_RANGE;
        default:
            return FileErrorOf(error, request.program);
    }
}

// posix_spawn returns when the child has left the caller's memory, and that is a moment before others can
// read its marks there; those of a program that may not be read they never can. The start of the process,
// which can't be gone: nothing reaps it yet.
uint64_t AwaitProgram(pid_t id) {
    constexpr std::chrono::microseconds kPause(50);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    auto stat = ReadProcessStat(id);
    while (stat && !stat->ended && ReadProcessFile(id, "environ").empty() &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(kPause);
        stat = ReadProcessStat(id);
    }
    return stat ? stat->startTime : 0;
}

void Reap(pid_t id) {
    while (waitpid(id, nullptr, 0) < 0 && errno == EINTR) {
    }
}

// False when nothing would notice its end.
bool ReapAtItsEnd(ProcessWatcher& watcher, pid_t id) {
    testbed::Descriptor pidfd = OpenPidfd(id);
    if (!pidfd) return false;
    try {
        watcher.Watch(std::move(pidfd), [id] { Reap(id); });
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

std::atomic<size_t> g_waitsForPrograms{0};

class WaitForProgram {
  public:
    WaitForProgram() { ++g_waitsForPrograms; }
    ~WaitForProgram() { --g_waitsForPrograms; }
    WaitForProgram(const WaitForProgram&) = delete;
    WaitForProgram& operator=(const WaitForProgram&) = delete;
};

}  // namespace

size_t WaitsForPrograms() {
    return g_waitsForPrograms;
}

SpawnRequest RequestFor(const std::string& program, const std::string& commandLine,
                        std::vector<std::string> variables, DWORD session) {
    const Pc& pc = Pc::Instance();
    std::erase_if(variables, IsMark);
    for (const std::string& mark :
         ToVariables({RootMark(pc.Description()), session, program, pc.DescriptionFile()}))
        variables.push_back(mark);
    return {std::filesystem::absolute(pc.HostPath(program)).string(), SplitArguments(commandLine),
            std::move(variables)};
}

DWORD Spawn(const SpawnRequest& request, ProcessEntry& entry) {
    ProcessWatcher* watcher = nullptr;
    try {
        watcher = &ProcessWatcher::Instance();
    } catch (const std::system_error&) {
        return ERROR_NO_SYSTEM_RESOURCES;
    }
    pid_t id = 0;
    if (const int error = SpawnSettings().Start(request, id)) return ErrorOf(error, request);
    entry.id = static_cast<DWORD>(id);
    entry.startTime = AwaitProgram(id);
    if (ReapAtItsEnd(*watcher, id)) return ERROR_SUCCESS;
    kill(id, SIGKILL);
    Reap(id);
    return ERROR_TOO_MANY_OPEN_FILES;
}

DWORD RunToEnd(const SpawnRequest& request, int& exitCode) {
    const WaitForProgram wait;
    pid_t id = 0;
    if (const int error = SpawnSettings().Start(request, id)) return ErrorOf(error, request);
    int status = 0;
    while (waitpid(id, &status, 0) < 0) {
        if (errno != EINTR) return ERROR_GEN_FAILURE;
    }
    constexpr int kSignalled = 128;
    exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
    return ERROR_SUCCESS;
}

}  // namespace winhost
