// How a call of Windows returns: a failure with the last error.
#pragma once

#include <winbase.h>

namespace winhost {

template <class Failure>
Failure Fail(DWORD error, Failure failure) {
    SetLastError(error);
    return failure;
}

inline BOOL Fail(DWORD error) {
    return Fail(error, FALSE);
}

// TRUE for ERROR_SUCCESS.
inline BOOL Finish(DWORD error) {
    return error == ERROR_SUCCESS ? TRUE : Fail(error);
}

}  // namespace winhost
