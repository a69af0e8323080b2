#include "base/ExecutableFolder.h"

#include <winsock2.h>
#include <windows.h>

#include "base/Log.h"

std::string ExecutableFolder(const char* complaint) {
    char path[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, path, sizeof path);
    path[sizeof path - 1] = '\0';
    std::string folder = path;
    const size_t separator = folder.rfind('\\');
    if (separator == std::string::npos) {
        if (complaint) LogInfo("%s", complaint);
        return {};
    }
    folder.resize(separator);
    return folder;
}
