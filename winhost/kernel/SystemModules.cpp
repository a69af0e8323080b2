#include "winhost/kernel/SystemModules.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

#include "winhost/graphics/Adapters.h"

namespace winhost {
namespace {

struct SystemModule {
    std::string name;
    std::vector<Export> exports;
    // What the handle points to.
    HINSTANCE__ image{};
};

std::vector<SystemModule>& Modules() {
    static std::vector<SystemModule>& modules = *new std::vector<SystemModule>{
        {"ntdll", NtdllExports()},
        {"dxgi", DxgiExports()},
        {"d3d11", Direct3DExports()},
        {"gdi32", DisplayDriverExports()},
    };
    return modules;
}

}  // namespace

HMODULE FindSystemModule(const std::string& name) {
    for (SystemModule& module : Modules())
        if (strcasecmp(name.c_str(), module.name.c_str()) == 0 ||
            strcasecmp(name.c_str(), (module.name + ".dll").c_str()) == 0)
            return &module.image;
    return nullptr;
}

bool IsSystemModule(HMODULE module) {
    const auto& modules = Modules();
    return std::any_of(modules.begin(), modules.end(),
                       [&](const SystemModule& known) { return &known.image == module; });
}

FARPROC FindSystemFunction(HMODULE module, const char* name) {
    for (const SystemModule& known : Modules()) {
        if (&known.image != module) continue;
        for (const Export& entry : known.exports)
            if (std::strcmp(entry.name, name) == 0) return entry.function;
    }
    return nullptr;
}

}  // namespace winhost
