#include "tests/faults/Watch.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/faults/Injector.h"
#include "winhost/process/Spawn.h"

namespace {

// "1234 (name) S ...": the letter behind the name.
char StateOf(int thread) {
    char path[64], text[256];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/stat", thread);
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    const ssize_t size = file < 0 ? -1 : read(file, text, sizeof text - 1);
    if (file >= 0) close(file);
    if (size <= 0) return 'X';
    text[size] = '\0';
    const char* const end = std::strrchr(text, ')');
    return end ? end[2] : 'X';
}

bool AnyThreadWorks() {
    DIR* const tasks = opendir("/proc/self/task");
    bool works = false;
    while (const dirent* task = tasks && !works ? readdir(tasks) : nullptr) {
        const int thread = std::atoi(task->d_name);
        if (thread == 0 || thread == gettid()) continue;
        const char state = StateOf(thread);
        works = (state == 'R' || state == 'D') && !Injector::Instance().Polls(thread);
    }
    if (tasks) closedir(tasks);
    return works;
}

}  // namespace

int Watch::Look() {
    const uint64_t activity = Injector::Instance().Activity();
    const bool works = winhost::WaitsForPrograms() != 0 || AnyThreadWorks();
    m_quiet = activity == m_activity && !works ? m_quiet + 1 : 0;
    m_activity = activity;
    return m_quiet;
}
