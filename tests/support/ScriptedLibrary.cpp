#include "tests/support/scripted/Library.h"

#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>
#include <string>

std::string ScriptedLibrary::Folder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "scripted";
}

ScriptedLibrary::ScriptedLibrary(const wchar_t* name) {
    const std::filesystem::path file = std::filesystem::path(name).replace_extension(".so");
    m_object = dlopen((std::filesystem::path(Folder()) / file).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m_object) throw std::runtime_error(dlerror());
    m_script = reinterpret_cast<ScriptOfRuntime_Fn>(dlsym(m_object, "ScriptOfRuntime"))();
}

ScriptedLibrary::~ScriptedLibrary() {
    dlclose(m_object);
}
