// How the IP helper calls hand their answers over.
#pragma once

#include <iphlpapi.h>
#include <windows.h>

#include <new>
#include <string>
#include <system_error>

namespace winhost {

// Cut to the field, and always ended.
template <size_t N>
void Put(char (&field)[N], const std::string& text) {
    field[text.copy(field, N - 1)] = '\0';
}

// True when the caller's buffer holds `needed` bytes; returns the size through it when not.
inline bool HasRoom(const void* buffer, PULONG size, size_t needed) {
    const bool room = buffer && *size >= needed;
    if (!room) *size = static_cast<ULONG>(needed);
    return room;
}

// The call's answer, or its error when this machine can't be asked for its interfaces.
template <class Call>
DWORD Guarded(Call call) {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (const std::system_error&) {
        return ERROR_NO_SYSTEM_RESOURCES;
    }
}

}  // namespace winhost
