#include "base/ZELLogger.h"
#include "service/ZELService.h"

namespace {

constexpr DWORD kEndMilliseconds = 3000;

ZELService service("");

}  // namespace

int main(int argc, char** argv) {
    const int exitCode = service.Main(argc, argv);
    // A thread that hangs in the driver must not use destroyed objects.
    if (!service.EndThreads(kEndMilliseconds)) ExitProcess(exitCode);
    // A stop has closed the log; every other end of the process has not.
    if (ZELLogger* const logger = ZELLogger::Instance()) logger->CloseLog();
    return exitCode;
}
