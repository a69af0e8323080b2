// Accounts of the directory.
#pragma once

#include <minwindef.h>

typedef DWORD NET_API_STATUS;

#define NERR_Success 0
#define NERR_BASE 2100
#define NERR_UserNotFound (NERR_BASE + 121)
#define NERR_PasswordTooShort (NERR_BASE + 145)

// Changes the password of an account in the directory of the PC's description, and returns 0 or the error;
// the last error stays as it is. An empty domain, or none, means the PC itself, which has no accounts:
// NERR_UserNotFound. The errors are 1351 (no domain controller answers, or it is another domain's),
// NERR_UserNotFound, 1909 (the account is locked), ERROR_INVALID_PASSWORD (86: the old one is wrong),
// ERROR_ACCESS_DENIED (the account may not change it) and NERR_PasswordTooShort (the new one breaks a rule of
// the domain). Without a user or a password, ERROR_INVALID_PARAMETER.
NET_API_STATUS WINAPI NetUserChangePassword(LPCWSTR domainname, LPCWSTR username, LPCWSTR oldpassword,
                                            LPCWSTR newpassword);
