// How a call of Windows returns: a failure with the last error.
#pragma once

#include <winbase.h>

#include <memory>
#include <utility>

#include "winhost/core/HandleTable.h"

namespace winhost {

template <class Failure>
Failure Fail(DWORD error, Failure failure) {
    SetLastError(error);
    return failure;
}

inline BOOL Fail(DWORD error) {
    return Fail(error, FALSE);
}

// The handle of a new object. Null, with ERROR_NO_SYSTEM_RESOURCES, when there are too many.
inline HANDLE AddHandle(std::shared_ptr<Object> object) {
    const HANDLE handle = HandleTable::Instance().Add(std::move(object));
    return handle ? handle : Fail(ERROR_NO_SYSTEM_RESOURCES, HANDLE{});
}
// TRUE for ERROR_SUCCESS.
inline BOOL Finish(DWORD error) {
    return error == ERROR_SUCCESS ? TRUE : Fail(error);
}

}  // namespace winhost
