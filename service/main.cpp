#include "service/ZELService.h"

namespace {

constexpr DWORD kEndMilliseconds = 3000;

ZELService service("");

}  // namespace

int main(int argc, char** argv) {
    const int exitCode = service.Main(argc, argv);
    // A thread that hangs in the driver must not meet the destruction of what it uses.
    if (!service.EndThreads(kEndMilliseconds)) ExitProcess(exitCode);
    return exitCode;
}
