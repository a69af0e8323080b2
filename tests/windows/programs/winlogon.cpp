// Stand-in for the logon program of a user's session, for which this process stays as long as its input is
// open.
//
//     session     the session that it is in
//     desktop     the size of the session's screen, which Wine connects to the X server for its first window
#include "tests/windows/programs/LineServer.h"

namespace {

Answer Session(const Words&) {
    DWORD session = 0;
    const BOOL good = ProcessIdToSessionId(GetCurrentProcessId(), &session);
    return Answer().Number("error", good ? ERROR_SUCCESS : GetLastError()).Number("session", session);
}

Answer Desktop(const Words&) {
    const BOOL exists = GetDesktopWindow() != nullptr;
    return Answer()
        .Number("error", exists ? ERROR_SUCCESS : GetLastError())
        .Number("width", static_cast<DWORD>(GetSystemMetrics(SM_CXSCREEN)))
        .Number("height", static_cast<DWORD>(GetSystemMetrics(SM_CYSCREEN)));
}

}  // namespace

int main() {
    return ServeLines({{"session", Session}, {"desktop", Desktop}});
}
