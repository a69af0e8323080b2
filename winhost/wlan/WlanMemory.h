// The memory that the calls of the WLAN API give to their callers, and the client behind a handle.
#pragma once

#include <cstddef>
#include <memory>

#include "winhost/wlan/WlanService.h"

namespace winhost {

// Zeroed; null when there is none.
void* AllocateWlanMemory(size_t size);
// So many blocks have not been freed by WlanFreeMemory.
size_t WlanMemoryInUse();

// The client of a handle. Returns null, and the error that Windows gives, when the service is stopped or when
// the handle is none of the clients of its present run.
std::shared_ptr<WlanClient> FindWlanClient(HANDLE handle, DWORD& error);

}  // namespace winhost
