#include "companions/ZELKVMApp/Files.h"

#include <windows.h>
#include <share.h>
#include <stdio.h>
#include <stdlib.h>

#include <memory>
#include <sstream>

namespace {

constexpr size_t kLongestHead = 128;  // number of bytes read from a file

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

UniqueFile Open(const std::string& path, const char* mode) {
    return UniqueFile(_fsopen(path.c_str(), mode, _SH_DENYNO));
}

}  // namespace

std::string WorkingFolder() {
    char value[MAX_PATH] = "";
    size_t size = 0;
    if (getenv_s(&size, value, sizeof value, "PROGRAMDATA") != 0 || size == 0) return {};
    return std::string(value) + "\\Tarvix\\Manageability";
}

std::string OwnFolder() {
    char path[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, path, sizeof path);
    const std::string own = path;
    return own.substr(0, own.find_last_of("\\/") + 1);
}

std::string FirstWord(const std::string& path) {
    char head[kLongestHead];
    const UniqueFile file = Open(path, "rb");
    if (!file) return {};
    std::istringstream text(std::string(head, fread(head, 1, sizeof head, file.get())));
    std::string word;
    text >> word;
    return word;
}

void AppendLine(const std::string& path, const std::string& text) {
    const UniqueFile file = Open(path, "a");
    if (!file) return;
    SYSTEMTIME now;
    GetLocalTime(&now);
    fprintf(file.get(), "%04u-%02u-%02u %02u:%02u:%02u.%03u [%lu] %s\n", now.wYear, now.wMonth, now.wDay,
            now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
            static_cast<unsigned long>(GetCurrentProcessId()), text.c_str());
}
