// The first layer: plain integers, BOOL and the calling conventions, which this host has only one of.
#pragma once

#include <stddef.h>
#include <stdint.h>

#define MAX_PATH 260
#ifndef FALSE
#define FALSE 0
#endif
#ifndef TRUE
#define TRUE 1
#endif
#ifndef CONST
#define CONST const
#endif
#define WINAPI
#define CALLBACK

typedef int BOOL, *LPBOOL;
typedef unsigned char BYTE, *LPBYTE;
typedef unsigned short WORD;
typedef unsigned short USHORT;
typedef uint32_t DWORD, *PDWORD, *LPDWORD;
typedef uint32_t ULONG, *PULONG;
typedef int INT;
typedef unsigned int UINT;
typedef void* LPVOID;
typedef const void* LPCVOID;

#include <winnt.h>

typedef INT_PTR(WINAPI* FARPROC)();

#define MAKEWORD(a, b) ((WORD)(((BYTE)((DWORD_PTR)(a)&0xff)) | ((WORD)((BYTE)((DWORD_PTR)(b)&0xff))) << 8))
#define LOBYTE(w) ((BYTE)((DWORD_PTR)(w)&0xff))
#define HIBYTE(w) ((BYTE)(((DWORD_PTR)(w) >> 8) & 0xff))

DECLARE_HANDLE(HINSTANCE);
typedef HINSTANCE HMODULE;
DECLARE_HANDLE(HKEY);
typedef HKEY* PHKEY;

typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *LPFILETIME;
