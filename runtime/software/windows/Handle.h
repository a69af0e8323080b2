// Owners of what Windows gives.
#pragma once

#include <windows.h>

#include <memory>
#include <type_traits>

namespace luxrt {

struct CloseHandleDelete {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
// For the calls that return null on failure.
using UniqueHandle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseHandleDelete>;

struct UnmapDelete {
    void operator()(void* view) const { UnmapViewOfFile(view); }
};
using UniqueView = std::unique_ptr<void, UnmapDelete>;

struct LocalFreeDelete {
    void operator()(void* memory) const { LocalFree(memory); }
};
template <class T>
using UniqueLocal = std::unique_ptr<T, LocalFreeDelete>;

}  // namespace luxrt
