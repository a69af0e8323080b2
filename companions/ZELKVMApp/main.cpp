// Stand-in for the KVM agent. It accepts the service's command line, reports the display when the service
// asks for it, and exits when the service requests it. It transfers no input and no images.
// docs/companions.md describes how to control it.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "companions/ZELKVMApp/Arguments.h"
#include "companions/ZELKVMApp/Behaviour.h"
#include "companions/ZELKVMApp/Files.h"

namespace {

constexpr DWORD kPeriod = 100;  // milliseconds
constexpr int kNoWorkingFolder = 1;
constexpr int kUnknownBehaviour = 2;

std::string Describe(const Arguments& arguments) {
    return "started with -X " + std::to_string(arguments.width) + " -Y " + std::to_string(arguments.height) +
           " -V " + std::to_string(arguments.firmwareLevel) + " -E " + std::to_string(arguments.displayMode);
}

void AwaitTerminateFile(const std::string& folder) {
    while (FirstWord(folder + "\\terminate.txt") != "terminate")
        Sleep(kPeriod);
}

}  // namespace

int main(int argc, char** argv) {
    const Arguments arguments = ParseArguments(argc, argv);
    const std::optional<Behaviour> behaviour = ParseBehaviour(FirstWord(OwnFolder() + "ZELKVMApp.behaviour"));
    if (!behaviour) {
        std::fputs("ZELKVMApp: ZELKVMApp.behaviour has an unknown word\n", stderr);
        return kUnknownBehaviour;
    }
    if (behaviour->crashes) std::abort();
    const std::string folder = WorkingFolder();
    if (folder.empty()) {
        std::fputs("ZELKVMApp: PROGRAMDATA is not set\n", stderr);
        return kNoWorkingFolder;
    }
    const std::string log = folder + "\\DisplayMgr.log";
    AppendLine(log, Describe(arguments));
    // The thread may block in the pipe for ever; the end of the process ends it.
    if (arguments.displayMode && behaviour->connects)
        std::thread([=] {
            ReportDisplay(behaviour->report, arguments.width, arguments.height, log);
        }).detach();
    AwaitTerminateFile(folder);
    if (behaviour->ignoresTerminate) {
        AppendLine(log, "asked to leave, and stays");
        Sleep(INFINITE);
    }
    AppendLine(log, "asked to leave");
    ExitProcess(0);
}
