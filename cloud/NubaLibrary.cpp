#include "cloud/NubaLibrary.h"

#include "base/LibraryFunction.h"
#include "base/Log.h"

namespace {

// Returns the name of a function that the library does not have; null when it has all of them.
const char* FindFunctions(HMODULE library, NubaFunctions& functions) {
#define FIND(name, type)                                    \
    functions.name = LibraryFunction<type>(library, #name); \
    if (!functions.name) return #name;
    NUBA_FUNCTIONS(FIND)
#undef FIND
    return nullptr;
}

}  // namespace

const NubaFunctions* NubaLibrary::Load() {
    if (m_library) return &m_functions;
    UniqueLibrary library(LoadLibraryW(L"nubaapi.dll"));
    if (!library) {
        LogOnce("cannot be loaded, error: " + std::to_string(GetLastError()));
        return nullptr;
    }
    if (const char* const missing = FindFunctions(library.Get(), m_functions)) {
        LogOnce(std::string("has no function ") + missing);
        return nullptr;
    }
    m_library = std::move(library);
    return &m_functions;
}

void NubaLibrary::LogOnce(const std::string& reason) {
    if (m_hasLogged) return;
    m_hasLogged = true;
    LogWarn("NUBA: nubaapi.dll %s. There is no cloud connection", reason);
}
