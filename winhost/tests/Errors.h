// How a test asks for the error of a call that fails: EXPECT_EQ(ERROR_NOT_FOUND, ErrorOf(CancelIoEx(...))).
#pragma once

#include <winbase.h>

// The calling thread's error when the call has failed, 0 when it has succeeded. The type is that of the SDK's
// constants.
inline long ErrorOf(BOOL result) {
    return result ? ERROR_SUCCESS : static_cast<long>(GetLastError());
}
template <class Object>
long ErrorOf(Object* handle) {
    return ErrorOf(BOOL{handle != nullptr && handle != INVALID_HANDLE_VALUE});
}
template <class Result, class... Arguments>
long ErrorOf(Result (*function)(Arguments...)) {
    return ErrorOf(BOOL{function != nullptr});
}
