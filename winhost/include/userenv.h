// The environment that a user's processes begin with.
#pragma once

#include <windef.h>

// The PC's described environment, sorted by name without regard to case: texts "NAME=value" of WCHAR, each
// with its NUL, and one NUL more. The PC has no other, so that it is the same for each token, for none, and
// whether the caller's is inherited or not. The token has to be opened with TOKEN_QUERY and TOKEN_DUPLICATE:
// ERROR_ACCESS_DENIED.
BOOL WINAPI CreateEnvironmentBlock(LPVOID* lpEnvironment, HANDLE hToken, BOOL bInherit);
BOOL WINAPI DestroyEnvironmentBlock(LPVOID lpEnvironment);
