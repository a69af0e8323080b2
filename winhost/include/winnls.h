#pragma once

#include <minwindef.h>

#define CP_ACP 0
#define CP_THREAD_ACP 3
#define CP_UTF8 65001

// Texts of the system are English here whatever the language is: the answer is the one asked for, and the one
// set last when that is 0.
LANGID SetThreadUILanguage(LANGID language);

// The PC's code page is UTF-8, so that the three above are one; others fail with ERROR_INVALID_PARAMETER. A
// character that UTF-16 could not hold becomes U+FFFD.
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR buffer, int size,
                        LPCSTR defaultChar, LPBOOL usedDefaultChar);
