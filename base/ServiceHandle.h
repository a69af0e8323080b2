// The owner type for handles of the service control manager and of services.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include "base/Handles.h"

struct ServiceHandleTraits {
    using Value = SC_HANDLE;
    static Value Invalid() { return nullptr; }
    static void Close(Value value) { CloseServiceHandle(value); }
};
using UniqueServiceHandle = UniqueResource<ServiceHandleTraits>;
