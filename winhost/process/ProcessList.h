// The processes of this PC.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <minwindef.h>

namespace winhost {

struct ProcessEntry {
    DWORD id = 0, parent = 0, threads = 1, session = 0;
    std::string name;        // the file name by which it was started
    bool described = false;  // else a Linux process
    uint64_t startTime = 0;  // of a Linux process, as ProcessStat has it
};

// The calling process, the described ones, and the Linux processes that carry this PC's mark.
std::vector<ProcessEntry> ListProcesses();
std::optional<ProcessEntry> FindProcess(DWORD id);
// The path of the calling process's executable: that of the description, or where it lies on Linux.
std::string OwnPath();
// The session of the calling process.
DWORD OwnSession();

}  // namespace winhost
