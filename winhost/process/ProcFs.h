// What Linux reports of a process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "testbed/Descriptor.h"

namespace winhost {

struct ProcessStat {
    pid_t parent = 0;
    pid_t session = 0;
    uint32_t threads = 0;
    uint64_t startTime = 0;  // with the id it names one process and no later one
    std::string name;        // at most 15 bytes of the file's name by which it was started
    bool ended = false;      // a zombie: all that is left is its exit code
};

// Nothing when there is no such process.
std::optional<ProcessStat> ReadProcessStat(pid_t id);
// "cmdline" or "environ": texts, each with its NUL. Empty when it may not be read, or the process has ended.
std::string ReadProcessFile(pid_t id, const char* file);
// A descriptor that reports the process's end; none, with errno, when there is no such process or no room.
testbed::Descriptor OpenPidfd(pid_t id);
// The ids of all processes that the calling user may look into.
std::vector<pid_t> ReadProcessIds();

}  // namespace winhost
