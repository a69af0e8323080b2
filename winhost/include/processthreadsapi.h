// Threads, processes, and their tokens.
#pragma once

#include <minwinbase.h>

typedef DWORD(WINAPI* LPTHREAD_START_ROUTINE)(LPVOID lpThreadParameter);

// Runs at once: a flag fails with ERROR_NOT_SUPPORTED. The size of the stack means nothing here. The handle
// is signalled when the routine has returned; closing it leaves the thread alone.
HANDLE CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                    LPVOID parameter, DWORD flags, LPDWORD threadId);

// ---- processes ----

typedef struct _STARTUPINFOA {
    DWORD cb;
    LPSTR lpReserved;
    LPSTR lpDesktop;
    LPSTR lpTitle;
    DWORD dwX;
    DWORD dwY;
    DWORD dwXSize;
    DWORD dwYSize;
    DWORD dwXCountChars;
    DWORD dwYCountChars;
    DWORD dwFillAttribute;
    DWORD dwFlags;
    WORD wShowWindow;
    WORD cbReserved2;
    LPBYTE lpReserved2;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
} STARTUPINFOA, *LPSTARTUPINFOA;

typedef struct _PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
} PROCESS_INFORMATION, *LPPROCESS_INFORMATION;

// A process of this PC, as CreateToolhelp32Snapshot lists them. Id 0 and those of no process fail with
// ERROR_INVALID_PARAMETER. Any access is granted, and each later call looks whether what it needs is in it;
// generic rights fail with ERROR_NOT_SUPPORTED. The handle is signalled when the process has ended. It costs
// a place in the table and no more.
HANDLE OpenProcess(DWORD access, BOOL inheritHandle, DWORD processId);
// Ends it at once, with whatever it is about; the call doesn't wait for that. A described process leaves the
// description. Needs PROCESS_TERMINATE, and a process that has not ended yet: ERROR_ACCESS_DENIED.
BOOL TerminateProcess(HANDLE process, UINT exitCode);
// Needs PROCESS_QUERY_INFORMATION or PROCESS_QUERY_LIMITED_INFORMATION (ERROR_ACCESS_DENIED). 0 on failure.
DWORD GetProcessId(HANDLE process);
// The calling process, a service, is in session 0, unless it was started at the console or in a session.
BOOL ProcessIdToSessionId(DWORD processId, DWORD* sessionId);

// Needs PROCESS_QUERY_INFORMATION or PROCESS_QUERY_LIMITED_INFORMATION.
BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token);
