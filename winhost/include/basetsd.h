// Integer types of fixed and of pointer size. A Windows long has 32 bits, so that none of these is made of
// one.
#pragma once

#include <stddef.h>
#include <stdint.h>

typedef int8_t INT8, *PINT8;
typedef int16_t INT16, *PINT16;
typedef int32_t INT32, *PINT32;
typedef long long INT64, *PINT64;
typedef uint8_t UINT8, *PUINT8;
typedef uint16_t UINT16, *PUINT16;
typedef uint32_t UINT32, *PUINT32;
typedef unsigned long long UINT64, *PUINT64;
typedef int32_t LONG32, *PLONG32;
typedef uint32_t ULONG32, *PULONG32;
typedef uint32_t DWORD32, *PDWORD32;
typedef long long LONG64, *PLONG64;
typedef unsigned long long ULONG64, *PULONG64;
typedef unsigned long long DWORD64, *PDWORD64;

typedef long long INT_PTR, *PINT_PTR;
typedef unsigned long long UINT_PTR, *PUINT_PTR;
typedef long long LONG_PTR, *PLONG_PTR;
typedef unsigned long long ULONG_PTR, *PULONG_PTR;
typedef ULONG_PTR DWORD_PTR, *PDWORD_PTR;
typedef ULONG_PTR SIZE_T, *PSIZE_T;
typedef LONG_PTR SSIZE_T, *PSSIZE_T;
