// A further call on files. The SDK declares it in winbase.h, which <windows.h> includes too.
#pragma once

#include <minwindef.h>

#define MOVEFILE_REPLACE_EXISTING 0x1
#define MOVEFILE_WRITE_THROUGH 0x8

// With MOVEFILE_REPLACE_EXISTING a file takes the place of a file or link at once; a folder, a read-only file
// and the file of a program that runs give ERROR_ACCESS_DENIED. Other flags than these two fail with
// ERROR_NOT_SUPPORTED, and so does a folder that would replace something.
BOOL MoveFileExA(LPCSTR from, LPCSTR to, DWORD flags);
