// Stand-in for the logon program of a user's session, for which this process stays as long as its input is
// open.
//
//     session     the session that it is in
#include "tests/windows/programs/LineServer.h"

namespace {

Answer Session(const Words&) {
    DWORD session = 0;
    const BOOL good = ProcessIdToSessionId(GetCurrentProcessId(), &session);
    return Answer().Number("error", good ? ERROR_SUCCESS : GetLastError()).Number("session", session);
}

}  // namespace

int main() {
    return ServeLines({{"session", Session}});
}
