// Commands with a pipe to them.
#include <stdio.h>

#include <algorithm>
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
    if (!command || !mode) {
        errno = EINVAL;
        return nullptr;
    }
    // Text and binary are the same here.
    std::string direction = mode;
    std::erase_if(direction, [](char c) { return c == 't' || c == 'b'; });
    direction += 'e';
    const bool isVersion = strcasecmp(command, "ver") == 0;
    return popen(isVersion ? PrintVersion().c_str() : command, direction.c_str());
}

int _pclose(FILE* stream) {
    WINHOST_GATE("_pclose", -1);
    const int status = pclose(stream);
    return status > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : status;
}
