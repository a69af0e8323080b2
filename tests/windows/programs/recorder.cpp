// Takes the place of a program that Wine does not really have: adds its command line to the file NAME.calls
// beside it. A file NAME.fails makes it end with 1.
#include <winsock2.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <string>

int main() {
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, sizeof path);
    const std::string self = path;
    std::ofstream(self + ".calls", std::ios::app) << GetCommandLineA() << std::endl;
    return std::filesystem::exists(self + ".fails") ? 1 : 0;
}
