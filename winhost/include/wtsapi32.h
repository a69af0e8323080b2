// The sessions of the PC.
//
// There are session 0, where services run, the console's session if there is one, and those of the described
// processes.
#pragma once

#include <windef.h>

#define WTS_CURRENT_SERVER_HANDLE ((HANDLE)NULL)
#define WTS_CURRENT_SESSION ((DWORD)-1)

typedef enum _WTS_CONNECTSTATE_CLASS { WTSActive = 0, WTSDisconnected = 4 } WTS_CONNECTSTATE_CLASS;

typedef enum _WTS_INFO_CLASS {
    WTSUserName = 5,
    WTSSessionInfoEx = 25,
} WTS_INFO_CLASS;

#define WTS_SESSIONSTATE_UNKNOWN 0xFFFFFFFF
#define WTS_SESSIONSTATE_LOCK 0x00000000
#define WTS_SESSIONSTATE_UNLOCK 0x00000001

#define WINSTATIONNAME_LENGTH 32
#define USERNAME_LENGTH 20
#define DOMAIN_LENGTH 17

typedef struct _WTSINFOEX_LEVEL1_A {
    ULONG SessionId;
    WTS_CONNECTSTATE_CLASS SessionState;
    LONG SessionFlags;
    CHAR WinStationName[WINSTATIONNAME_LENGTH + 1];
    CHAR UserName[USERNAME_LENGTH + 1];
    CHAR DomainName[DOMAIN_LENGTH + 1];
    LARGE_INTEGER LogonTime;
    LARGE_INTEGER ConnectTime;
    LARGE_INTEGER DisconnectTime;
    LARGE_INTEGER LastInputTime;
    LARGE_INTEGER CurrentTime;
    DWORD IncomingBytes;
    DWORD OutgoingBytes;
    DWORD IncomingFrames;
    DWORD OutgoingFrames;
    DWORD IncomingCompressedBytes;
    DWORD OutgoingCompressedBytes;
} WTSINFOEX_LEVEL1_A;

typedef union _WTSINFOEX_LEVEL_A {
    WTSINFOEX_LEVEL1_A WTSInfoExLevel1;
} WTSINFOEX_LEVEL_A;

typedef struct _WTSINFOEXA {
    DWORD Level;
    WTSINFOEX_LEVEL_A Data;
} WTSINFOEXA;

// WTSSessionInfoEx alone (ERROR_NOT_SUPPORTED): a WTSINFOEXA of level 1 with the session's id, its state, its
// station's name, the time now and, for the console's session, whether its desktop is locked; all else is 0.
// Of this PC alone (ERROR_INVALID_HANDLE). ERROR_CTX_WINSTATION_NOT_FOUND for a session that there isn't.
BOOL WINAPI WTSQuerySessionInformationA(HANDLE hServer, DWORD SessionId, WTS_INFO_CLASS WTSInfoClass,
                                        LPSTR* ppBuffer, DWORD* pBytesReturned);
void WINAPI WTSFreeMemory(PVOID pMemory);
