// The machine and its names.
#pragma once

#include <minwindef.h>

typedef struct _SYSTEM_INFO {
    union {
        DWORD dwOemId;
        struct {
            WORD wProcessorArchitecture;
            WORD wReserved;
        };
    };
    DWORD dwPageSize;
    LPVOID lpMinimumApplicationAddress;
    LPVOID lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
} SYSTEM_INFO, *LPSYSTEM_INFO;

// The architecture is the PC's; pages and processors are this machine's. The rest is 0 but for the
// granularity.
void GetNativeSystemInfo(LPSYSTEM_INFO info);

// The version that a program without a manifest sees: the PC's, and 6.2.9200 for a newer one. The plain
// structure alone: ERROR_INSUFFICIENT_BUFFER for another size.
BOOL GetVersionExW(LPOSVERSIONINFOW information);

typedef enum _COMPUTER_NAME_FORMAT {
    ComputerNameNetBIOS = 0,
    ComputerNameDnsDomain = 2
} COMPUTER_NAME_FORMAT;

// *size is the buffer's, and becomes the text's length, or with ERROR_MORE_DATA the size needed. A PC without
// a domain has an empty one.
BOOL GetComputerNameExA(COMPUTER_NAME_FORMAT nameType, LPSTR buffer, LPDWORD size);
