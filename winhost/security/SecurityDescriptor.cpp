// Security descriptors in absolute form.
#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"

using winhost::Fail;

BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision) {
    WINHOST_GATE("InitializeSecurityDescriptor", FALSE);
    if (!descriptor) return Fail(ERROR_NOACCESS);
    if (revision != SECURITY_DESCRIPTOR_REVISION) return Fail(ERROR_UNKNOWN_REVISION);
    *static_cast<SECURITY_DESCRIPTOR*>(descriptor) = {SECURITY_DESCRIPTOR_REVISION, 0, 0, {}, {}, {}, {}};
    return TRUE;
}

BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL dacl, BOOL defaulted) {
    WINHOST_GATE("SetSecurityDescriptorDacl", FALSE);
    auto* absolute = static_cast<SECURITY_DESCRIPTOR*>(descriptor);
    if (!absolute) return Fail(ERROR_NOACCESS);
    if (absolute->Revision != SECURITY_DESCRIPTOR_REVISION) return Fail(ERROR_UNKNOWN_REVISION);
    if (dacl) return Fail(ERROR_NOT_SUPPORTED);
    absolute->Control &= static_cast<WORD>(~(SE_DACL_PRESENT | SE_DACL_DEFAULTED));
    if (present) absolute->Control |= defaulted ? SE_DACL_PRESENT | SE_DACL_DEFAULTED : SE_DACL_PRESENT;
    absolute->Dacl = nullptr;
    return TRUE;
}
