// How a process that was started on a PC knows that PC again, and others know it as one of the PC's: by these
// variables of its Linux environment.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "winhost/pc/Pc.h"

namespace winhost {

struct Marks {
    std::string root;                 // WINHOST_ROOT, the PC's root without symbolic links
    std::optional<uint32_t> session;  // WINHOST_SESSION
    std::string module;               // WINHOST_MODULE, the Windows path of the program
    std::string descriptionFile;      // WINHOST_PC
};

// From texts "NAME=value", each with its NUL, as /proc shows an environment.
Marks ParseMarks(const std::string& environment);
// Those of the calling process, as it was started.
const Marks& OwnMarks();
// As texts "NAME=value".
std::vector<std::string> ToVariables(const Marks& marks);
// True for a text "NAME=value" that is one of this library's own.
bool IsMark(const std::string& variable);

// The PC's root as its processes are marked with it.
std::string RootMark(const PcDescription& pc);

// The description for a process with these marks: it has its own path and environment, no service control
// manager started it, and the control socket is that of the process that described the PC.
void Join(const Marks& marks, PcDescription& description);

}  // namespace winhost
