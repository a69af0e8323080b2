#include "winhost/kernel/Libraries.h"

#include <dlfcn.h>
#include <link.h>
#include <strings.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>
#include <vector>

#include <winbase.h>

#include "winhost/core/Results.h"
#include "winhost/core/Singleton.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/ProcessList.h"
#include "winhost/process/ProgramSearch.h"

namespace winhost {
namespace {

struct Library {
    std::string name;        // "luxrt64.dll"
    void* object = nullptr;  // of dlopen
    unsigned holds = 0;
};

// By handle. No handle is given twice, so that a stale one meets nothing.
struct Libraries {
    std::recursive_mutex mutex;  // a library may load others as it is loaded
    std::map<HMODULE, Library> loaded;
    uintptr_t next = kFirst;

    // As the images of Windows, a library begins at a multiple of 64 KB.
    static constexpr uintptr_t kFirst = 0x180000000, kStep = 0x10000;
};

// The folder of a Windows path, or of a Linux one.
std::string FolderOf(const std::string& path) {
    const size_t end = path.find_last_of("\\/");
    return end == std::string::npos ? "." : path.substr(0, end);
}

std::vector<std::string> SearchedFolders() {
    const PcDescription pc = Pc::Instance().Description();
    std::vector<std::string> folders = {FolderOf(OwnPath())};
    folders.insert(folders.end(), pc.libraryFolders.begin(), pc.libraryFolders.end());
    folders.insert(folders.end(), {"C:\\Windows\\System32", "C:\\Windows", "."});
    const std::vector<std::string> path = SearchPath();
    folders.insert(folders.end(), path.begin(), path.end());
    return folders;
}

// The file that stands for the library in this folder; empty when there is none.
std::filesystem::path FileIn(const std::filesystem::path& folder, const std::string& name) {
    const std::string stem = name.substr(0, name.find_last_of('.'));
    for (const std::string& candidate : {name, stem + ".so", "lib" + stem + ".so"}) {
        std::error_code error;
        auto file = std::filesystem::canonical(folder / candidate, error);
        if (!error && !std::filesystem::is_directory(file, error)) return file;
    }
    return {};
}

std::filesystem::path FileOf(const std::string& name) {
    for (const std::string& folder : SearchedFolders()) {
        auto file = FileIn(Pc::Instance().HostPath(folder), name);
        if (!file.empty()) return file;
    }
    return {};
}

// The dynamic linker has no numbers for its errors, only texts.
DWORD ErrorOfLoading(const std::filesystem::path& file) {
    if (access(file.c_str(), R_OK) != 0) return ERROR_ACCESS_DENIED;
    const char* text = dlerror();
    const std::string_view message = text ? text : "";
    if (message.find("undefined symbol") != std::string_view::npos) return ERROR_PROC_NOT_FOUND;
    const bool lacksLibrary = message.find("cannot open shared object file") != std::string_view::npos;
    return lacksLibrary ? ERROR_MOD_NOT_FOUND : ERROR_BAD_EXE_FORMAT;
}

// The caller holds the mutex.
HMODULE FindLoaded(const Libraries& libraries, const std::string& name) {
    for (const auto& [handle, library] : libraries.loaded)
        if (strcasecmp(library.name.c_str(), name.c_str()) == 0) return handle;
    return nullptr;
}

const link_map* MapOf(void* object) {
    link_map* map = nullptr;
    return dlinfo(object, RTLD_DI_LINKMAP, &map) == 0 ? map : nullptr;
}

}  // namespace

HMODULE LoadSharedObject(const std::string& name) {
    Libraries& libraries = Singleton<Libraries>();
    // Held while the library's constructors run, as on Windows.
    std::lock_guard lock(libraries.mutex);
    HMODULE handle = FindLoaded(libraries, name);
    if (!handle) {
        const auto file = FileOf(name);
        if (file.empty()) return Fail(ERROR_MOD_NOT_FOUND, nullptr);
        void* object = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!object) return Fail(ErrorOfLoading(file), nullptr);
        handle = reinterpret_cast<HMODULE>(libraries.next);
        libraries.next += Libraries::kStep;
        libraries.loaded[handle] = {name, object, 0};
    }
    ++libraries.loaded[handle].holds;
    return handle;
}

HMODULE FindSharedObject(const std::string& name) {
    Libraries& libraries = Singleton<Libraries>();
    std::lock_guard lock(libraries.mutex);
    return FindLoaded(libraries, name);
}

bool IsSharedObject(HMODULE module) {
    Libraries& libraries = Singleton<Libraries>();
    std::lock_guard lock(libraries.mutex);
    return libraries.loaded.count(module) != 0;
}

bool FreeSharedObject(HMODULE module) {
    Libraries& libraries = Singleton<Libraries>();
    std::lock_guard lock(libraries.mutex);
    const auto found = libraries.loaded.find(module);
    if (found == libraries.loaded.end()) return false;
    if (--found->second.holds != 0) return true;
    dlclose(found->second.object);
    libraries.loaded.erase(found);
    return true;
}

FARPROC FindFunction(HMODULE module, const char* name) {
    Libraries& libraries = Singleton<Libraries>();
    std::lock_guard lock(libraries.mutex);
    const auto found = libraries.loaded.find(module);
    if (found == libraries.loaded.end()) return nullptr;
    void* address = dlsym(found->second.object, name);
    Dl_info info{};
    link_map* map = nullptr;
    // dlsym also finds what the library's own libraries have.
    if (!address || dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0 ||
        map != MapOf(found->second.object)) {
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(address));
}

size_t LoadedSharedObjects() {
    Libraries& libraries = Singleton<Libraries>();
    std::lock_guard lock(libraries.mutex);
    return libraries.loaded.size();
}

}  // namespace winhost
