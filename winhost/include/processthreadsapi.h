// Threads, and the token of the process.
#pragma once

#include <minwinbase.h>

typedef DWORD(WINAPI* LPTHREAD_START_ROUTINE)(LPVOID lpThreadParameter);

#define STILL_ACTIVE ((DWORD)0x00000103)

// Runs at once: a flag fails with ERROR_NOT_SUPPORTED. The size of the stack means nothing here. The handle
// is signalled when the routine has returned; closing it leaves the thread alone.
HANDLE CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                    LPVOID parameter, DWORD flags, LPDWORD threadId);
BOOL GetExitCodeThread(HANDLE thread, LPDWORD exitCode);

// Of the calling process alone.
BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token);
