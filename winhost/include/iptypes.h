// What the IP helper calls deliver.
#pragma once

#include <guiddef.h>
#include <time.h>
#include <windows.h>

#define MAX_ADAPTER_DESCRIPTION_LENGTH 128
#define MAX_ADAPTER_NAME_LENGTH 256
#define MAX_ADAPTER_ADDRESS_LENGTH 8
#define MAX_HOSTNAME_LEN 128
#define MAX_DOMAIN_NAME_LEN 128
#define MAX_SCOPE_ID_LEN 256

#define HYBRID_NODETYPE 8

typedef struct {
    char String[4 * 4];
} IP_ADDRESS_STRING, IP_MASK_STRING;

typedef struct _IP_ADDR_STRING {
    struct _IP_ADDR_STRING* Next;
    IP_ADDRESS_STRING IpAddress;
    IP_MASK_STRING IpMask;
    DWORD Context;
} IP_ADDR_STRING, *PIP_ADDR_STRING;

typedef struct _IP_ADAPTER_INFO {
    struct _IP_ADAPTER_INFO* Next;
    DWORD ComboIndex;
    char AdapterName[MAX_ADAPTER_NAME_LENGTH + 4];
    char Description[MAX_ADAPTER_DESCRIPTION_LENGTH + 4];
    UINT AddressLength;
    BYTE Address[MAX_ADAPTER_ADDRESS_LENGTH];
    DWORD Index;
    UINT Type;
    UINT DhcpEnabled;
    PIP_ADDR_STRING CurrentIpAddress;
    IP_ADDR_STRING IpAddressList;
    IP_ADDR_STRING GatewayList;
    IP_ADDR_STRING DhcpServer;
    BOOL HaveWins;
    IP_ADDR_STRING PrimaryWinsServer;
    IP_ADDR_STRING SecondaryWinsServer;
    time_t LeaseObtained;
    time_t LeaseExpires;
} IP_ADAPTER_INFO, *PIP_ADAPTER_INFO;

typedef struct {
    char HostName[MAX_HOSTNAME_LEN + 4];
    char DomainName[MAX_DOMAIN_NAME_LEN + 4];
    PIP_ADDR_STRING CurrentDnsServer;
    IP_ADDR_STRING DnsServerList;
    UINT NodeType;
    char ScopeId[MAX_SCOPE_ID_LEN + 4];
    UINT EnableRouting;
    UINT EnableProxy;
    UINT EnableDns;
} FIXED_INFO_W2KSP1;
typedef FIXED_INFO_W2KSP1 FIXED_INFO, *PFIXED_INFO;

// ---- GetAdaptersAddresses ----

#define MAX_ADAPTER_ADDRESS_LENGTH_LH 8
#define MAX_DHCPV6_DUID_LENGTH 130
#define GAA_FLAG_INCLUDE_PREFIX 0x0010
#define GAA_FLAG_INCLUDE_GATEWAYS 0x0080

typedef enum { IfOperStatusUp = 1, IfOperStatusDown = 2 } IF_OPER_STATUS;

struct sockaddr;
typedef struct _SOCKET_ADDRESS {
    struct sockaddr* lpSockaddr;
    INT iSockaddrLength;
} SOCKET_ADDRESS;

// The SDK has a union with an alignment around the first two members.
typedef struct _IP_ADAPTER_UNICAST_ADDRESS_LH {
    ULONG Length;
    DWORD Flags;
    struct _IP_ADAPTER_UNICAST_ADDRESS_LH* Next;
    SOCKET_ADDRESS Address;
    DWORD PrefixOrigin, SuffixOrigin, DadState;
    ULONG ValidLifetime, PreferredLifetime, LeaseLifetime;
    BYTE OnLinkPrefixLength;
} IP_ADAPTER_UNICAST_ADDRESS_LH, *PIP_ADAPTER_UNICAST_ADDRESS_LH;

typedef struct _IP_ADAPTER_GATEWAY_ADDRESS_LH {
    ULONG Length;
    DWORD Reserved;
    struct _IP_ADAPTER_GATEWAY_ADDRESS_LH* Next;
    SOCKET_ADDRESS Address;
} IP_ADAPTER_GATEWAY_ADDRESS_LH, *PIP_ADAPTER_GATEWAY_ADDRESS_LH;

// Lists that this library leaves empty are pointers without a type.
typedef struct _IP_ADAPTER_ADDRESSES_LH {
    ULONG Length;
    DWORD IfIndex;
    struct _IP_ADAPTER_ADDRESSES_LH* Next;
    char* AdapterName;
    PIP_ADAPTER_UNICAST_ADDRESS_LH FirstUnicastAddress;
    void* FirstAnycastAddress;
    void* FirstMulticastAddress;
    void* FirstDnsServerAddress;
    WCHAR* DnsSuffix;
    WCHAR* Description;
    WCHAR* FriendlyName;
    BYTE PhysicalAddress[MAX_ADAPTER_ADDRESS_LENGTH_LH];
    ULONG PhysicalAddressLength;
    ULONG Flags;
    ULONG Mtu;
    DWORD IfType;
    IF_OPER_STATUS OperStatus;
    DWORD Ipv6IfIndex;
    ULONG ZoneIndices[16];
    void* FirstPrefix;
    unsigned long long TransmitLinkSpeed;
    unsigned long long ReceiveLinkSpeed;
    void* FirstWinsServerAddress;
    PIP_ADAPTER_GATEWAY_ADDRESS_LH FirstGatewayAddress;
    ULONG Ipv4Metric, Ipv6Metric;
    unsigned long long Luid;
    SOCKET_ADDRESS Dhcpv4Server;
    DWORD CompartmentId;
    GUID NetworkGuid;
    DWORD ConnectionType;
    DWORD TunnelType;
    SOCKET_ADDRESS Dhcpv6Server;
    BYTE Dhcpv6ClientDuid[MAX_DHCPV6_DUID_LENGTH];
    ULONG Dhcpv6ClientDuidLength;
    ULONG Dhcpv6Iaid;
    void* FirstDnsSuffix;
} IP_ADAPTER_ADDRESSES_LH;
typedef IP_ADAPTER_ADDRESSES_LH IP_ADAPTER_ADDRESSES, *PIP_ADAPTER_ADDRESSES;
