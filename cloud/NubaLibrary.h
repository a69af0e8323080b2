// Loads nubaapi.dll on first use.
#pragma once

#include <string>

#include "base/Handles.h"
#include "cloud/NubaApi.h"

struct NubaFunctions {
#define MEMBER(name, type) type name = nullptr;
    NUBA_FUNCTIONS(MEMBER)
#undef MEMBER
};

// One thread at a time.
class NubaLibrary {
  public:
    NubaLibrary() = default;
    // The library stays loaded: threads of its own may still run.
    ~NubaLibrary() { m_library.Release(); }
    NubaLibrary(const NubaLibrary&) = delete;
    NubaLibrary& operator=(const NubaLibrary&) = delete;

    // Returns null when the library or one of its functions is missing. Logs the reason once, and tries again
    // with each call.
    const NubaFunctions* Load();
    // Null until the library has been loaded.
    const NubaFunctions* Loaded() const { return m_library ? &m_functions : nullptr; }

  private:
    void LogOnce(const std::string& reason);

    UniqueLibrary m_library;
    NubaFunctions m_functions;
    bool m_hasLogged = false;
};
