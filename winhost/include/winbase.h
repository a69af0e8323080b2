// Kernel objects, waits, device and file requests, the process, the time.
//
// Each function that can fail answers as on Windows: its failure value, and the reason by GetLastError.
#pragma once

#include <stdarg.h>

#include <libloaderapi.h>
#include <minwinbase.h>
#include <namedpipeapi.h>
#include <processthreadsapi.h>
#include <securitybaseapi.h>
#include <sysinfoapi.h>
#include <winerror.h>

#define INVALID_HANDLE_VALUE ((HANDLE)(LONG_PTR)-1)
#define INFINITE 0xffffffff
#define WAIT_OBJECT_0 ((STATUS_WAIT_0) + 0)
#define WAIT_ABANDONED ((STATUS_ABANDONED_WAIT_0) + 0)
#define WAIT_FAILED ((DWORD)0xffffffff)

DWORD GetLastError();
void SetLastError(DWORD error);

// Any object of the table that CloseHandle is for. The pseudo handle of the process (-1) is left alone,
// successfully.
BOOL CloseHandle(HANDLE object);

// Security attributes mean nothing here. A name is known to this process alone. When an event of the name
// exists, the handle is to that one, and the last error is ERROR_ALREADY_EXISTS. ERROR_NOT_SUPPORTED for a
// name with a backslash.
HANDLE CreateEventA(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState, LPCSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
// Unnamed only: a name fails with ERROR_NOT_SUPPORTED.
HANDLE CreateMutexA(LPSECURITY_ATTRIBUTES attributes, BOOL initialOwner, LPCSTR name);
BOOL ReleaseMutex(HANDLE mutex);

// Milliseconds of the PC's clock.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);
void Sleep(DWORD milliseconds);

// ---- requests to devices ----

#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define FILE_FLAG_OVERLAPPED 0x40000000
#define FILE_FLAG_BACKUP_SEMANTICS 0x02000000
#define FILE_FLAG_OPEN_REPARSE_POINT 0x00200000

// A macro in the SDK. Here the request may complete within the call.
BOOL HasOverlappedIoCompleted(const OVERLAPPED* overlapped);

// Opens devices: OPEN_EXISTING with FILE_FLAG_OVERLAPPED, else ERROR_NOT_SUPPORTED. A path that no device
// answers to gives ERROR_FILE_NOT_FOUND. And the client's end of named pipes: OPEN_EXISTING without flags,
// for GENERIC_READ, GENERIC_WRITE or both; ERROR_PIPE_BUSY when no instance listens. And files and folders by
// a path with a drive, to be asked about: OPEN_EXISTING or OPEN_ALWAYS with both FILE_FLAG_OPEN_REPARSE_POINT
// and FILE_FLAG_BACKUP_SEMANTICS, else ERROR_NOT_SUPPORTED. A symbolic link of Linux is a reparse point. The
// share mode means nothing here, and such a handle is neither read nor written.
HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES attributes,
                   DWORD disposition, DWORD flags, HANDLE templateFile);
// Devices need an OVERLAPPED (else ERROR_INVALID_PARAMETER), and pipes take none (else ERROR_NOT_SUPPORTED).
BOOL DeviceIoControl(HANDLE device, DWORD controlCode, LPVOID input, DWORD inputSize, LPVOID output,
                     DWORD outputSize, LPDWORD bytesReturned, LPOVERLAPPED overlapped);
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD bytesRead, LPOVERLAPPED overlapped);
// To pipes: a device gives ERROR_INVALID_FUNCTION.
BOOL WriteFile(HANDLE file, LPCVOID data, DWORD size, LPDWORD bytesWritten, LPOVERLAPPED overlapped);
BOOL GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD bytesMoved, BOOL wait);
BOOL CancelIoEx(HANDLE file, LPOVERLAPPED overlapped);

// A new port for `file`; existingPort has to be null, and the number of threads means nothing here.
HANDLE CreateIoCompletionPort(HANDLE file, HANDLE existingPort, ULONG_PTR key, DWORD concurrentThreads);
BOOL GetQueuedCompletionStatus(HANDLE port, LPDWORD bytesMoved, ULONG_PTR* key, LPOVERLAPPED* overlapped,
                               DWORD milliseconds);

// ---- files ----

typedef struct _BY_HANDLE_FILE_INFORMATION {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD dwVolumeSerialNumber;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD nNumberOfLinks;
    DWORD nFileIndexHigh;
    DWORD nFileIndexLow;
} BY_HANDLE_FILE_INFORMATION, *PBY_HANDLE_FILE_INFORMATION, *LPBY_HANDLE_FILE_INFORMATION;

BOOL GetFileInformationByHandle(HANDLE file, LPBY_HANDLE_FILE_INFORMATION information);
// ERROR_ACCESS_DENIED for a read-only file, and for the file of a program that runs.
BOOL DeleteFileA(LPCSTR path);
// Follows links at both ends. Keeps the rights of a target that exists; a new one inherits those of its
// folder. A target that is read-only gives ERROR_ACCESS_DENIED, that of a program that runs
// ERROR_SHARING_VIOLATION, and with failIfExists any gives ERROR_FILE_EXISTS.
BOOL CopyFileA(LPCSTR from, LPCSTR to, BOOL failIfExists);
// An empty folder, or a link to a folder, which stays.
BOOL RemoveDirectoryA(LPCSTR path);
// Never replaces: an existing target gives ERROR_ALREADY_EXISTS.
BOOL MoveFileA(LPCSTR from, LPCSTR to);

// ---- the process ----

HANDLE GetCurrentProcess();
DWORD GetCurrentProcessId();
DWORD GetCurrentThreadId();
// Ends the process at once: no destructors, no exit handlers.
[[noreturn]] void ExitProcess(UINT code);
BOOL GetUserNameA(LPSTR buffer, LPDWORD size);
// Of the executable alone: the module has to be null.
DWORD GetModuleFileNameA(HMODULE module, LPSTR path, DWORD size);
void OutputDebugStringA(LPCSTR text);

// ---- sessions, and processes in them ----

#define CREATE_SUSPENDED 0x4
#define DETACHED_PROCESS 0x8
#define CREATE_NEW_CONSOLE 0x10
#define CREATE_UNICODE_ENVIRONMENT 0x400
#define STARTF_USESTDHANDLES 0x00000100

// 0xFFFFFFFF while no session is at the console.
DWORD WTSGetActiveConsoleSessionId();

// Starts a program as a Linux process in the token's session: the file at that Windows path, a symbolic link
// or a script as well, with the arguments as the C runtime of Windows splits them. It has a Linux session of
// its own, no descriptor of the caller's and none of its signal settings, and outlives it; it is reaped when
// it ends. Its environment is the block, or the PC's own, and what makes it a process of this PC
// (docs/pc-description.md); its folder is the caller's.
//
// The command line begins with the program's whole path, with its ending, in quotes. The handles have all
// access; that of the thread can be waited for and closed.
//
// The flags are DETACHED_PROCESS with or without CREATE_UNICODE_ENVIRONMENT. Another command line, other
// flags, an application, a current folder, a narrow environment, inherited handles and STARTF_USESTDHANDLES
// fail with ERROR_NOT_SUPPORTED.
//
// The other errors: ERROR_ACCESS_DENIED (the token lacks TOKEN_QUERY, TOKEN_DUPLICATE or
// TOKEN_ASSIGN_PRIMARY, or the path is that of a folder), ERROR_BAD_TOKEN_TYPE, ERROR_PRIVILEGE_NOT_HELD
// (SeIncreaseQuotaPrivilege or SeAssignPrimaryTokenPrivilege is not held; they need not be enabled),
// ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_BAD_EXE_FORMAT (a file that Linux can't execute).
BOOL CreateProcessAsUserA(HANDLE token, LPCSTR applicationName, LPSTR commandLine,
                          LPSECURITY_ATTRIBUTES processAttributes, LPSECURITY_ATTRIBUTES threadAttributes,
                          BOOL inheritHandles, DWORD creationFlags, LPVOID environment,
                          LPCSTR currentDirectory, LPSTARTUPINFOA startupInfo,
                          LPPROCESS_INFORMATION processInformation);

// ---- the time ----

#define TIME_ZONE_ID_UNKNOWN 0
#define TIME_ZONE_ID_STANDARD 1
#define TIME_ZONE_ID_DAYLIGHT 2
#define TIME_ZONE_ID_INVALID ((DWORD)0xffffffff)

typedef struct _TIME_ZONE_INFORMATION {
    LONG Bias;
    WCHAR StandardName[32];
    SYSTEMTIME StandardDate;
    LONG StandardBias;
    WCHAR DaylightName[32];
    SYSTEMTIME DaylightDate;
    LONG DaylightBias;
} TIME_ZONE_INFORMATION, *LPTIME_ZONE_INFORMATION;

void GetLocalTime(LPSYSTEMTIME time);
// The PC's steady clock: units of 100 ns since it was started.
BOOL QueryPerformanceCounter(LARGE_INTEGER* count);
BOOL QueryPerformanceFrequency(LARGE_INTEGER* perSecond);
void GetSystemTimeAsFileTime(LPFILETIME time);
// TIME_ZONE_ID_UNKNOWN on a PC without summer time, else which of the two times is in force. Both names are
// the same.
DWORD GetTimeZoneInformation(LPTIME_ZONE_INFORMATION zone);

// ---- texts and memory ----

#define FORMAT_MESSAGE_IGNORE_INSERTS 0x00000200
#define FORMAT_MESSAGE_FROM_SYSTEM 0x00001000

// The system's English text for an error number, with its line end: FORMAT_MESSAGE_FROM_SYSTEM with
// FORMAT_MESSAGE_IGNORE_INSERTS, and a buffer of `size`. The length without the NUL, or 0:
// ERROR_MR_MID_NOT_FOUND for a number without a text here, ERROR_NOT_SUPPORTED for any other flag or source.
DWORD FormatMessageA(DWORD flags, LPCVOID source, DWORD message, DWORD language, LPSTR buffer, DWORD size,
                     va_list* arguments);

// ---- privileges ----

// The system has to be null: RPC_S_SERVER_UNAVAILABLE. ERROR_NO_SUCH_PRIVILEGE for an unknown name.
BOOL LookupPrivilegeValueA(LPCSTR system, LPCSTR name, PLUID luid);

// ---- the event log ----

// An empty source is legal; a server other than this PC gives RPC_S_SERVER_UNAVAILABLE.
HANDLE RegisterEventSourceA(LPCSTR server, LPCSTR source);
BOOL ReportEventA(HANDLE log, WORD type, WORD category, DWORD eventId, PSID user, WORD stringCount,
                  DWORD dataSize, LPCSTR* strings, LPVOID data);
BOOL DeregisterEventSource(HANDLE log);
