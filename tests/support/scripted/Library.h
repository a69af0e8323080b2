// The scripted runtime's library, for the test that writes its script.
#pragma once

#include <string>

#include "tests/support/scripted/Script.h"

// Keeps the library loaded, so that its records outlive the service's use of it.
class ScriptedLibrary {
  public:
    static constexpr wchar_t kName[] = L"luxrt64.dll";
    // The same without one of the two functions.
    static constexpr wchar_t kWithoutInit[] = L"luxrt64_without_init.dll";
    static constexpr wchar_t kWithoutVersion[] = L"luxrt64_without_version.dll";

    // For the PC's libraryFolders.
    static std::string Folder();

    explicit ScriptedLibrary(const wchar_t* name = kName);
    ~ScriptedLibrary();
    ScriptedLibrary(const ScriptedLibrary&) = delete;
    ScriptedLibrary& operator=(const ScriptedLibrary&) = delete;

    scripted::Script& Script() const { return *m_script; }

  private:
    void* m_object;
    scripted::Script* m_script;
};
