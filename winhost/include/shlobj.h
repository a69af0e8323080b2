#pragma once

#include <windef.h>
#include <minwinbase.h>
#include <winerror.h>

// Creates the folder and those that lead to it, each with the owner and the DACL of the attributes. 0, or the
// error itself: ERROR_ALREADY_EXISTS, ERROR_BAD_PATHNAME for a path that is not complete, ...
int SHCreateDirectoryExA(HWND window, LPCSTR path, const SECURITY_ATTRIBUTES* attributes);
