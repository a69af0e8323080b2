// IP helper: the PC's adapters and name servers. Both calls return a Win32 error and leave GetLastError
// alone.
#pragma once

#include <iptypes.h>
#include <windows.h>

// All adapters, chained; *SizePointer is the buffer's size and becomes the needed one with
// ERROR_BUFFER_OVERFLOW. ERROR_NO_DATA when there is none.
ULONG WINAPI GetAdaptersInfo(PIP_ADAPTER_INFO AdapterInfo, PULONG SizePointer);
// Host name and DNS servers, the servers behind the first one chained; the size as above.
DWORD WINAPI GetNetworkParams(PFIXED_INFO pFixedInfo, PULONG pOutBufLen);
