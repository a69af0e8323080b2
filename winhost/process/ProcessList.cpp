#include "winhost/process/ProcessList.h"

#include <unistd.h>

#include <filesystem>

#include "winhost/pc/Marks.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/ProcFs.h"

namespace winhost {
namespace {

constexpr size_t kLongestShortName = 15;

std::string FileNameOf(const std::string& path) {
    const size_t separator = path.find_last_of("\\/");
    return separator == std::string::npos ? path : path.substr(separator + 1);
}

// A script runs as its interpreter with the script's path as an argument, yet Linux names it by the script.
std::string NameByCommandLine(pid_t id, const std::string& shortName) {
    const std::string commandLine = ReadProcessFile(id, "cmdline");
    const std::string program = FileNameOf(commandLine.c_str());
    const size_t second = commandLine.find('\0') + 1;
    if (second != 0 && second < commandLine.size()) {
        const std::string script = FileNameOf(commandLine.c_str() + second);
        if (script.substr(0, kLongestShortName) == shortName) return script;
    }
    return program.empty() ? shortName : program;
}

std::string OwnPath(const PcDescription& pc) {
    std::error_code ignored;
    return pc.modulePath.empty() ? std::filesystem::read_symlink("/proc/self/exe", ignored).string()
                                 : pc.modulePath;
}

DWORD OwnSession(const PcDescription& pc) {
    if (OwnMarks().session) return *OwnMarks().session;
    return pc.startedByScm || pc.consoleSession == PcDescription::kNoSession ? 0 : pc.consoleSession;
}

ProcessEntry FromStat(pid_t id, const ProcessStat& stat) {
    ProcessEntry entry;
    entry.id = static_cast<DWORD>(id);
    entry.parent = static_cast<DWORD>(stat.parent);
    entry.threads = stat.threads;
    entry.startTime = stat.startTime;
    return entry;
}

std::optional<ProcessEntry> OwnProcess(const PcDescription& pc) {
    const pid_t id = getpid();
    const auto stat = ReadProcessStat(id);
    if (!stat) return std::nullopt;
    ProcessEntry entry = FromStat(id, *stat);
    entry.session = OwnSession(pc);
    entry.name = FileNameOf(OwnPath(pc));
    return entry;
}

// Nothing for one that has ended, or that is none of the PC's.
std::optional<ProcessEntry> LinuxProcess(pid_t id, const std::string& root) {
    const Marks marks = ParseMarks(ReadProcessFile(id, "environ"));
    if (marks.root != root) return std::nullopt;
    const auto stat = ReadProcessStat(id);
    if (!stat || stat->ended) return std::nullopt;
    ProcessEntry entry = FromStat(id, *stat);
    entry.session = marks.session.value_or(0);
    // The program itself leads its Linux session; what it starts keeps the mark, but is another program.
    entry.name = stat->session == id && !marks.module.empty() ? FileNameOf(marks.module)
                                                              : NameByCommandLine(id, stat->name);
    return entry;
}

ProcessEntry FromDescription(const DescribedProcess& process) {
    ProcessEntry entry;
    entry.id = process.pid;
    entry.session = process.session;
    entry.name = process.name;
    entry.described = true;
    return entry;
}

}  // namespace

std::vector<ProcessEntry> ListProcesses() {
    const PcDescription pc = Pc::Instance().Description();
    std::vector<ProcessEntry> entries;
    for (const DescribedProcess& process : pc.processes)
        entries.push_back(FromDescription(process));
    if (auto own = OwnProcess(pc)) entries.push_back(*own);
    const std::string root = RootMark(pc);
    for (const pid_t id : ReadProcessIds()) {
        if (id == getpid()) continue;
        if (auto entry = LinuxProcess(id, root)) entries.push_back(*entry);
    }
    return entries;
}

std::optional<ProcessEntry> FindProcess(DWORD id) {
    const PcDescription pc = Pc::Instance().Description();
    const pid_t linuxId = static_cast<pid_t>(id);
    if (linuxId == getpid()) return OwnProcess(pc);
    for (const DescribedProcess& process : pc.processes)
        if (process.pid == id) return FromDescription(process);
    if (linuxId <= 0) return std::nullopt;
    return LinuxProcess(linuxId, RootMark(pc));
}

std::string OwnPath() {
    return OwnPath(Pc::Instance().Description());
}

DWORD OwnSession() {
    return OwnSession(Pc::Instance().Description());
}

}  // namespace winhost
