#include "winhost/process/ProcFs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>

namespace winhost {
namespace {

constexpr size_t kLargestFile = 4 << 20;

std::string ReadFile(const std::string& path) {
    std::string text;
    const testbed::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char block[4096];
    while (file && text.size() < kLargestFile) {
        const ssize_t size = read(file.Get(), block, sizeof block);
        if (size < 0 && errno == EINTR) continue;
        if (size <= 0) break;
        text.append(block, static_cast<size_t>(size));
    }
    return text;
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
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc"), closedir);
    if (!folder) return ids;
    const uid_t user = geteuid();
    while (const dirent* entry = readdir(folder.get())) {
        pid_t id = 0;
        const char* const end = entry->d_name + std::strlen(entry->d_name);
        const auto parsed = std::from_chars(entry->d_name, end, id);
        if (parsed.ec != std::errc() || parsed.ptr != end) continue;
        struct stat status;
        if (user != 0 &&
            (fstatat(dirfd(folder.get()), entry->d_name, &status, 0) != 0 || status.st_uid != user))
            continue;
        ids.push_back(id);
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

}  // namespace winhost
