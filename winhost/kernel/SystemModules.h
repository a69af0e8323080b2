// The libraries of Windows that winhost has functions of, for those who look the functions up by name. The
// executable uses them itself, so that they are always loaded.
#pragma once

#include <string>
#include <vector>

#include <minwindef.h>

namespace winhost {

struct Export {
    const char* name;
    FARPROC function;
};

template <class Function>
FARPROC Erased(Function* function) {
    // By way of the one type that the compiler lets every function be cast to and from.
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

// What each of them has.
std::vector<Export> NtdllExports();

// By name, in any case, with or without its ending. Null for another library.
HMODULE FindSystemModule(const std::string& name);
bool IsSystemModule(HMODULE module);
// Null where the module has no such function.
FARPROC FindSystemFunction(HMODULE module, const char* name);

}  // namespace winhost
