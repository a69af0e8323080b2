// IP helper: the PC's interfaces, addresses and name servers. Each call returns a Win32 error and leaves
// GetLastError alone. A PC without adapters of its own reports this machine's, as they are at the time of
// the call.
#pragma once

#include <iprtrmib.h>
#include <iptypes.h>
#include <windows.h>

// All adapters, chained; *SizePointer is the buffer's size and becomes the needed one with
// ERROR_BUFFER_OVERFLOW. ERROR_NO_DATA when there is none.
ULONG WINAPI GetAdaptersInfo(PIP_ADAPTER_INFO AdapterInfo, PULONG SizePointer);
// Every adapter, the loopback too, chained, with its IPv4 addresses, its DNS suffix (of the
// registry, as docs/pc-description.md says) and, with
// GAA_FLAG_INCLUDE_GATEWAYS, its gateway; the lists of prefixes, name servers and other addresses are empty.
// The size as above. The family is AF_UNSPEC or AF_INET, the flags are the two that iptypes.h names: else
// ERROR_NOT_SUPPORTED. ERROR_INVALID_PARAMETER for a reserved pointer.
ULONG WINAPI GetAdaptersAddresses(ULONG Family, ULONG Flags, PVOID Reserved,
                                  PIP_ADAPTER_ADDRESSES AdapterAddresses, PULONG SizePointer);
// Host name and DNS servers, the servers behind the first one chained; the size as above.
DWORD WINAPI GetNetworkParams(PFIXED_INFO pFixedInfo, PULONG pOutBufLen);

// Every IPv4 address, the loopback's too. *pdwSize is the buffer's size and becomes the needed one with
// ERROR_INSUFFICIENT_BUFFER. With bOrder by address, otherwise by interface.
DWORD WINAPI GetIpAddrTable(PMIB_IPADDRTABLE pIpAddrTable, PULONG pdwSize, BOOL bOrder);
// Every interface, the loopback too; sizes and order (by index) as above.
DWORD WINAPI GetIfTable(PMIB_IFTABLE pIfTable, PULONG pdwSize, BOOL bOrder);
// The row of dwIndex as it is now; ERROR_INVALID_DATA when there is no such interface.
DWORD WINAPI GetIfEntry(PMIB_IFROW pIfRow);
