// Stand-in for the program that reads the Wi-Fi profile and the boot mode for a packaged service, and writes
// one of them to the service's pipe. docs/companions.md describes how to control it.
#include <winsock2.h>
#include <windows.h>

#include <cstdio>
#include <string>

#include "base/Handles.h"
#include "base/ZELLogger.h"
#include "companions/WiFiSyncDataReader/Behaviour.h"
#include "companions/WiFiSyncDataReader/Records.h"
#include "companions/ZELKVMApp/Files.h"
#include "wifi/ReaderPipes.h"

namespace {

constexpr int kDone = 0;
constexpr int kNotDelivered = 1;
constexpr int kWrongUse = 2;

int Fail(const char* what) {
    std::fprintf(stderr, "WiFiSyncDataReader: %s (error %lu)\n", what,
                 static_cast<unsigned long>(GetLastError()));
    return kNotDelivered;
}

// The pipe exists: the service creates it before it starts this program.
int Deliver(const char* name, std::string record, const Behaviour& behaviour) {
    const UniqueFileHandle pipe(CreateFileA(name, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!pipe) return Fail("the service's pipe can't be opened");
    if (behaviour.isSilent) Sleep(INFINITE);
    if (behaviour.length) record.resize(*behaviour.length);
    DWORD written = 0;
    if (!WriteFile(pipe.Get(), record.data(), static_cast<DWORD>(record.size()), &written, nullptr))
        return Fail("the record can't be written");
    // A client that leaves before the service looks for it counts as none.
    if (!FlushFileBuffers(pipe.Get())) return Fail("the service has not read the record");
    return kDone;
}

}  // namespace

int main(int argc, char** argv) {
    // The extraction logs. Without a file it writes nothing, but the logger must exist.
    ZELLogger::Instance();
    const bool wantsBootMode = argc == 2 && std::string(argv[1]) == kBootModeArgument;
    const auto behaviour = ParseBehaviour(FirstWord(OwnFolder() + "WiFiSyncDataReader.behaviour"));
    if ((argc != 1 && !wantsBootMode) || !behaviour) {
        std::fputs(behaviour ? "WiFiSyncDataReader: the only argument is GetBootMode\n"
                             : "WiFiSyncDataReader: WiFiSyncDataReader.behaviour has an unknown word\n",
                   stderr);
        return kWrongUse;
    }
    if (behaviour->exitsFirst) return kNotDelivered;
    if (behaviour->neverConnects) Sleep(INFINITE);
    Sleep(behaviour->delay);
    return wantsBootMode ? Deliver(kBootModePipeName, BootModeRecord(), *behaviour)
                         : Deliver(kWiFiPipeName, WiFiRecord(), *behaviour);
}
