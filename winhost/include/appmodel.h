// The package that the process runs from.
//
// Each function returns the error itself: APPMODEL_ERROR_NO_PACKAGE without a package, and
// ERROR_INSUFFICIENT_BUFFER when the text does not fit. *length counts characters with the NUL, and is set to
// what the text needs in either case.
#pragma once

#include <minwindef.h>
#include <winnt.h>

// The product declares them itself, because not every SDK has this header.
extern "C" {
LONG GetCurrentPackageFullName(uint32_t* length, WCHAR* fullName);
// Without a final backslash.
LONG GetCurrentPackagePath(uint32_t* length, WCHAR* path);
LONG GetCurrentPackageFamilyName(uint32_t* length, WCHAR* familyName);
}
