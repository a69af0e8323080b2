// A program on a simulated PC, for the tests: reports what it sees, or starts another as a service
// does and leaves it behind.
//
//     onpc report <file>        writes what it sees to that file (a Windows path), as "key=value" lines
//     onpc start <command>      starts the command line in the console's session and prints its process id
#include <windows.h>
#include <tlhelp32.h>
#include <stdlib.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "winhost/pc/Pc.h"

namespace {

std::string Variable(const char* name) {
    size_t needed = 0;
    char value[256] = "";
    getenv_s(&needed, value, sizeof value, name);
    return value;
}

int Report(const char* path) {
    char module[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, module, sizeof module);
    DWORD session = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &session);
    FILE* const file = std::fopen(winhost::Pc::Instance().HostPath(path).c_str(), "w");
    if (!file) return 1;
    std::fprintf(file, "module=%s\nPROGRAMDATA=%s\nPATH=%s\nsession=%u\ncomputer=%s\n", module,
                 Variable("PROGRAMDATA").c_str(), Variable("PATH").c_str(), session,
                 winhost::Pc::Instance().Description().computerName.c_str());
    return std::fclose(file) == 0 ? 0 : 1;
}

DWORD LogonProgram() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    BOOL more = Process32First(snapshot, &entry);
    while (more && std::strcmp(entry.szExeFile, "winlogon.exe") != 0)
        more = Process32Next(snapshot, &entry);
    CloseHandle(snapshot);
    return more ? entry.th32ProcessID : 0;
}

int Start(std::string command) {
    HANDLE own = nullptr, token = nullptr;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    const bool started =
        OpenProcessToken(OpenProcess(PROCESS_ALL_ACCESS, FALSE, LogonProgram()), TOKEN_ALL_ACCESS, &own) &&
        DuplicateTokenEx(own, TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation, TokenPrimary, &token) &&
        CreateProcessAsUserA(token, nullptr, command.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS,
                             nullptr, nullptr, &startup, &information);
    if (!started) {
        std::fprintf(stderr, "onpc: error %u\n", GetLastError());
        return 1;
    }
    std::printf("%u\n", information.dwProcessId);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string action = argc == 3 ? argv[1] : "";
    if (action == "report") return Report(argv[2]);
    if (action == "start") return Start(argv[2]);
    std::fprintf(stderr, "usage: onpc report <file> | onpc start <command>\n");
    return 2;
}
