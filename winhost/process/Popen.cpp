// Commands with a pipe to them.
#include <stdio.h>

#include <cerrno>
#include <string>

#include <strings.h>

#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/pc/Pc.h"

namespace {

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text)
        c == '\'' ? quoted += R"('\'')" : quoted += c;
    return quoted + "'";
}

// As the command processor does: an empty line, then that of the system.
std::string PrintVersion() {
    return R"(printf '\n%s\n' )" + Quoted(winhost::Pc::Instance().Description().osVersionLine);
}

}  // namespace

FILE* _popen(const char* command, const char* mode) {
    WINHOST_GATE("_popen", nullptr);
    if (!command || !mode || mode[0] != 'r') {
        errno = EINVAL;
        return nullptr;
    }
    const bool isVersion = strcasecmp(command, "ver") == 0;
    return popen(isVersion ? PrintVersion().c_str() : command, "re");
}

int _pclose(FILE* stream) {
    WINHOST_GATE("_pclose", -1);
    const int status = pclose(stream);
    return status > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : status;
}
