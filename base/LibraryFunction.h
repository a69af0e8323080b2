// A function of a loaded library by its name.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstring>

// Returns null when the library is null or has no such function.
template <class Function>
Function LibraryFunction(HMODULE library, const char* name) {
    const FARPROC address = library ? GetProcAddress(library, name) : nullptr;
    Function function = nullptr;
    static_assert(sizeof function == sizeof address);
    std::memcpy(&function, &address, sizeof function);
    return function;
}
