// The classes of WMI.
#pragma once

#include <combaseapi.h>

namespace winhost {

// A new object of the class, with one reference; null for a class that isn't WMI's.
IUnknown* NewWmiObject(REFCLSID classId);

}  // namespace winhost
