#include "winhost/process/ProcFs.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "testbed/Numbers.h"

namespace winhost {
namespace {

std::string ReadFile(const std::string& path) {
    // An iterator would throw where the process ends during the read.
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::string PathOf(pid_t id, const char* file) {
    return "/proc/" + std::to_string(id) + "/" + file;
}

}  // namespace

std::optional<ProcessStat> ReadProcessStat(pid_t id) {
    const std::string text = ReadFile(PathOf(id, "stat"));
    // The name is in brackets, and may hold some itself.
    const size_t open = text.find('('), close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos) return std::nullopt;
    ProcessStat stat;
    stat.name = text.substr(open + 1, close - open - 1);
    char state = 0;
    unsigned long long startTime = 0;
    const int found = std::sscanf(text.c_str() + close + 1,
                                  " %c %d %*d %d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %u %*d "
                                  "%llu",
                                  &state, &stat.parent, &stat.session, &stat.threads, &startTime);
    if (found != 5) return std::nullopt;
    stat.startTime = startTime;
    stat.ended = state == 'Z' || state == 'X' || state == 'x';
    return stat;
}

std::string ReadProcessFile(pid_t id, const char* file) {
    return ReadFile(PathOf(id, file));
}

testbed::Descriptor OpenPidfd(pid_t id) {
    return testbed::Descriptor(static_cast<int>(syscall(SYS_pidfd_open, id, 0)));
}

std::vector<pid_t> ReadProcessIds() {
    std::vector<pid_t> ids;
    std::error_code ignored;
    const uid_t user = geteuid();
    for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
        const auto id = testbed::ParseNumber<pid_t>(entry.path().filename().string());
        if (!id) continue;
        struct stat status;
        if (user != 0 && (stat(entry.path().c_str(), &status) != 0 || status.st_uid != user)) continue;
        ids.push_back(*id);
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

}  // namespace winhost
