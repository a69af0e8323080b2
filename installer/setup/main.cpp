// zelsetup.exe: the steps of an installation that no table of an MSI can describe. The MSI carries it and
// runs it as SYSTEM; install.cmd and remove.cmd run it as an administrator. It is not installed.
//
//     stop                   stops the service and waits for the end of its process
//     configure PROGRAM      sets the service's command line, its restart after a failure, and how long a
//                            shutdown of Windows waits for it
//     open-firewall PROGRAM  adds the firewall's rules for the service's program
//     close-firewall         removes them
//     remove-data            deletes what the service has stored, but not its logs
//
// The exit code is 0 for success, 1 for a failure and 2 for wrong arguments.
#include <winsock2.h>
#include <windows.h>
#include <shlobj.h>

#include <cstdio>
#include <string_view>

#include "installer/setup/Firewall.h"
#include "installer/setup/RemoveData.h"
#include "installer/setup/ServiceSettings.h"
#include "installer/setup/StopService.h"

namespace {

// The environment of the process, which its starter controls, does not count.
bool RemoveDataOfThisPc() {
    char folder[MAX_PATH];
    return SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder) == S_OK &&
           RemoveData(folder);
}

int Report(std::string_view command, bool isDone) {
    if (isDone) return 0;
    std::fprintf(stderr, "zelsetup: %s failed, error %lu\n", command.data(), GetLastError());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (argc == 3) {
        if (command == "configure") return Report(command, ConfigureService(argv[2]));
        if (command == "open-firewall") return Report(command, OpenFirewall(argv[2]));
    }
    if (argc == 2) {
        if (command == "stop") return Report(command, StopService());
        if (command == "remove-data") return Report(command, RemoveDataOfThisPc());
        if (command == "close-firewall") {
            CloseFirewall();
            return 0;
        }
    }
    std::fputs(
        "usage: zelsetup stop | configure PROGRAM | open-firewall PROGRAM | close-firewall | remove-data\n",
        stderr);
    return 2;
}
