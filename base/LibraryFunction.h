// A function of a loaded library by its name.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstring>

// Returns the address as a function of this type; null for null.
template <class Function>
Function FunctionAt(FARPROC address) {
    Function function = nullptr;
    static_assert(sizeof function == sizeof address);
    std::memcpy(&function, &address, sizeof function);
    return function;
}

// Returns null when the library is null or has no such function.
template <class Function>
Function LibraryFunction(HMODULE library, const char* name) {
    return FunctionAt<Function>(library ? GetProcAddress(library, name) : nullptr);
}
