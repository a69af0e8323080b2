// Stand-in for the KVM agent. It accepts the service's command line and exits when the service requests it.
// It transfers no input and no images. docs/companions.md describes how to control it.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "companions/ZELKVMApp/Arguments.h"
#include "companions/ZELKVMApp/Files.h"

namespace {

constexpr DWORD kPeriod = 100;  // milliseconds
constexpr int kNoWorkingFolder = 1;
constexpr int kUnknownBehaviour = 2;

enum class Behaviour { Obey, Stay, Crash, Unknown };

// Reads the behaviour that a file beside the executable selects for tests.
Behaviour ReadBehaviour() {
    const std::string word = FirstWord(OwnFolder() + "ZELKVMApp.behaviour");
    if (word.empty()) return Behaviour::Obey;
    if (word == "crash") return Behaviour::Crash;
    if (word == "ignore-terminate") return Behaviour::Stay;
    return Behaviour::Unknown;
}

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
    const Behaviour behaviour = ReadBehaviour();
    if (behaviour == Behaviour::Crash) std::abort();
    if (behaviour == Behaviour::Unknown) {
        std::fputs("ZELKVMApp: ZELKVMApp.behaviour wants neither crash nor ignore-terminate\n", stderr);
        return kUnknownBehaviour;
    }
    const std::string folder = WorkingFolder();
    if (folder.empty()) {
        std::fputs("ZELKVMApp: PROGRAMDATA is not set\n", stderr);
        return kNoWorkingFolder;
    }
    const std::string log = folder + "\\DisplayMgr.log";
    AppendLine(log, Describe(arguments));
    AwaitTerminateFile(folder);
    if (behaviour == Behaviour::Stay) {
        AppendLine(log, "asked to leave, and stays");
        Sleep(INFINITE);
    }
    AppendLine(log, "asked to leave");
    return 0;
}
