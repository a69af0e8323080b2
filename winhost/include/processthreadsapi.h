// Threads, processes, and their tokens.
#pragma once

#include <minwinbase.h>

typedef DWORD(WINAPI* LPTHREAD_START_ROUTINE)(LPVOID lpThreadParameter);

// Runs at once: a flag fails with ERROR_NOT_SUPPORTED. The size of the stack means nothing here. The handle
// is signalled when the routine has returned; closing it leaves the thread alone.
HANDLE CreateThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stackSize, LPTHREAD_START_ROUTINE routine,
                    LPVOID parameter, DWORD flags, LPDWORD threadId);

// A thread of this process that has made a call, until it ends; else ERROR_INVALID_PARAMETER. Any access is
// granted, as by OpenProcess. The handle is signalled when the thread has ended.
HANDLE OpenThread(DWORD access, BOOL inheritHandle, DWORD threadId);
// Needs THREAD_TERMINATE. The thread ends as soon as it waits, or at its next call when it does not; this
// call does not wait for that. Its pending requests are cancelled, its mutexes (CreateMutex) are abandoned,
// and all else stays as it is: no destructor of a local object runs, and other locks stay locked. A thread
// that blocks in accept, recv, send or connect, or outside of these calls, ends when that returns; the
// destructors of its thread_local objects run. No call here asks for the exit code.
BOOL TerminateThread(HANDLE thread, DWORD exitCode);

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

// Starts a program as CreateProcessAsUserA does (winbase.h), in the caller's own session and with the PC's
// environment. The program is the application, a whole path; without one, what the command line begins with:
// a path in quotes, or as Windows finds it, the shortest part of the line up to a blank, or the whole line,
// that names a file, with ".exe" added where it has no ending. The program gets the command line, or without
// one the application as its only item.
//
// A flag but DETACHED_PROCESS, an environment, a current folder and STARTF_USESTDHANDLES fail with
// ERROR_NOT_SUPPORTED; no handle is inherited. ERROR_INVALID_PARAMETER: neither application nor line. Others:
// ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED (a folder) and ERROR_BAD_EXE_FORMAT.
BOOL CreateProcessA(LPCSTR applicationName, LPSTR commandLine, LPSECURITY_ATTRIBUTES processAttributes,
                    LPSECURITY_ATTRIBUTES threadAttributes, BOOL inheritHandles, DWORD creationFlags,
                    LPVOID environment, LPCSTR currentDirectory, LPSTARTUPINFOA startupInfo,
                    LPPROCESS_INFORMATION processInformation);

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
