// Stands in for the program of a software upgrade. Beside it, upgrade.calls gets its command line; it then
// runs for as long as there is upgrade.running, and upgrade.ends gets the command line when it ends.
#include <winsock2.h>
#include <windows.h>

#include "tests/windows/support/FilesBeside.h"

int main() {
    constexpr DWORD kPollMilliseconds = 20;
    const std::string command = GetCommandLineA();
    AppendLineBeside("upgrade.calls", command);
    while (ReadBeside("upgrade.running"))
        Sleep(kPollMilliseconds);
    AppendLineBeside("upgrade.ends", command);
    return 0;
}
