// The list of the PC's processes: the calling one, the described ones, and those that were started on this PC
// by CreateProcessAsUserA, with what they started.
#pragma once

#include <windef.h>

#define TH32CS_SNAPHEAPLIST 0x00000001
#define TH32CS_SNAPPROCESS 0x00000002
#define TH32CS_SNAPTHREAD 0x00000004
#define TH32CS_SNAPMODULE 0x00000008
#define TH32CS_SNAPALL (TH32CS_SNAPHEAPLIST | TH32CS_SNAPPROCESS | TH32CS_SNAPTHREAD | TH32CS_SNAPMODULE)

typedef struct tagPROCESSENTRY32 {
    DWORD dwSize;
    DWORD cntUsage;
    DWORD th32ProcessID;
    ULONG_PTR th32DefaultHeapID;
    DWORD th32ModuleID;
    DWORD cntThreads;
    DWORD th32ParentProcessID;
    LONG pcPriClassBase;
    DWORD dwFlags;
    CHAR szExeFile[MAX_PATH];
} PROCESSENTRY32;
typedef PROCESSENTRY32* LPPROCESSENTRY32;

// INVALID_HANDLE_VALUE when it fails. Of what a snapshot can hold only the processes can be listed:
// TH32CS_SNAPPROCESS or TH32CS_SNAPALL, and no process id, else ERROR_NOT_SUPPORTED.
HANDLE WINAPI CreateToolhelp32Snapshot(DWORD dwFlags, DWORD th32ProcessID);
// dwSize has to hold the structure's size: ERROR_BAD_LENGTH. ERROR_NO_MORE_FILES at the end. Not for two
// threads at a time, as on Windows each call moves the snapshot's one place.
BOOL WINAPI Process32First(HANDLE hSnapshot, LPPROCESSENTRY32 lppe);
BOOL WINAPI Process32Next(HANDLE hSnapshot, LPPROCESSENTRY32 lppe);
