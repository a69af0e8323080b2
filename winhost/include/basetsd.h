// Integer types of fixed and of pointer size. A Windows long has 32 bits, so that none of these is made of
// one.
#pragma once

#include <stddef.h>
#include <stdint.h>

typedef long long INT_PTR;
typedef unsigned long long UINT_PTR;
typedef long long LONG_PTR;
typedef unsigned long long ULONG_PTR;
typedef ULONG_PTR DWORD_PTR;
typedef ULONG_PTR SIZE_T;
