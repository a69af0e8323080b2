#include "installer/setup/Firewall.h"

#include <winsock2.h>
#include <windows.h>

#include "base/Handles.h"

namespace {

struct Rule {
    const char* name;
    const char* port;
};

constexpr Rule kRules[] = {{"Tarvix Manageability Service (DASH)", "664"},
                           {"Tarvix Manageability Service (KVM)", "22"}};
constexpr DWORD kPatience = 60'000;  // milliseconds

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

// netsh.exe is found in the system's folder only. True when it ends with 0.
bool Netsh(const std::string& arguments) {
    char folder[MAX_PATH];
    const UINT length = GetSystemDirectoryA(folder, sizeof folder);
    if (length == 0 || length >= sizeof folder) return false;
    const std::string program = std::string(folder) + "\\netsh.exe";
    std::string command = Quoted(program) + " advfirewall firewall " + arguments;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    if (!CreateProcessA(program.c_str(), command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                        nullptr, &startup, &started))
        return false;
    const UniqueHandle process(started.hProcess);
    const UniqueHandle thread(started.hThread);
    DWORD code = 0;
    return WaitForSingleObject(process.Get(), kPatience) == WAIT_OBJECT_0 &&
           GetExitCodeProcess(process.Get(), &code) && code == 0;
}

}  // namespace

bool OpenFirewall(const std::string& program) {
    CloseFirewall();
    bool isDone = true;
    for (const Rule& rule : kRules)
        isDone = Netsh("add rule name=" + Quoted(rule.name) +
                       " dir=in action=allow enable=yes profile=any protocol=TCP" +
                       " localport=" + rule.port + " program=" + Quoted(program)) &&
                 isDone;
    return isDone;
}

void CloseFirewall() {
    for (const Rule& rule : kRules)
        Netsh("delete rule name=" + Quoted(rule.name));
}
