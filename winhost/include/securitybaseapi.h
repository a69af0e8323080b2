#pragma once

#include <minwindef.h>

// Enables or disables; the effect is the process's, not the handle's. TRUE with ERROR_NOT_ALL_ASSIGNED for
// privileges that the token doesn't hold. The former state isn't told: previousState has to be null.
BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD size,
                           PTOKEN_PRIVILEGES previousState, PDWORD returnLength);

// A descriptor of SECURITY_DESCRIPTOR_REVISION (else ERROR_UNKNOWN_REVISION) without owner, group or lists.
BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision);
// A null DACL lets everybody do everything; another one gives ERROR_NOT_SUPPORTED.
BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL dacl, BOOL defaulted);
