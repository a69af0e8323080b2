#pragma once

#include <minwinbase.h>

// Of the calling process's token alone: ERROR_NOT_SUPPORTED for another, and for disableAll. Enables or
// disables; the effect is the process's, not the handle's. TRUE with ERROR_NOT_ALL_ASSIGNED for privileges
// that the token doesn't hold. The former state isn't returned: previousState has to be null.
BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD size,
                           PTOKEN_PRIVILEGES previousState, PDWORD returnLength);

// A descriptor of SECURITY_DESCRIPTOR_REVISION (else ERROR_UNKNOWN_REVISION) without owner, group or lists.
BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision);
// A null DACL allows every access; another one gives ERROR_NOT_SUPPORTED.
BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL dacl, BOOL defaulted);

// A token of its own, of that type. Needs TOKEN_DUPLICATE (ERROR_ACCESS_DENIED); access 0 is that of the
// handle. The level is an impersonation token's, and never higher than that of the token it comes from:
// ERROR_BAD_IMPERSONATION_LEVEL. Security attributes mean nothing here.
BOOL DuplicateTokenEx(HANDLE token, DWORD access, LPSECURITY_ATTRIBUTES attributes,
                      SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type, PHANDLE newToken);
// TokenSessionId (4 bytes, else ERROR_BAD_LENGTH) of a token made by DuplicateTokenEx; all else fails with
// ERROR_NOT_SUPPORTED. Needs TOKEN_ADJUST_SESSIONID (ERROR_ACCESS_DENIED), and SeTcbPrivilege enabled in the
// calling process (ERROR_PRIVILEGE_NOT_HELD).
BOOL SetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass, LPVOID information,
                         DWORD length);
// TokenUser of the calling process's token alone, else ERROR_NOT_SUPPORTED. Needs TOKEN_QUERY.
BOOL GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass, LPVOID information,
                         DWORD length, PDWORD returnLength);

// Owner and DACL of a file or folder; other parts and other objects give ERROR_NOT_SUPPORTED. What is set
// reaches this object alone, and nothing that lies in it.
BOOL GetKernelObjectSecurity(HANDLE object, SECURITY_INFORMATION parts, PSECURITY_DESCRIPTOR descriptor,
                             DWORD length, LPDWORD needed);
BOOL SetKernelObjectSecurity(HANDLE object, SECURITY_INFORMATION parts, PSECURITY_DESCRIPTOR descriptor);
