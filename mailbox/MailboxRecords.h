// The records of the mailbox, in memory as on the wire: packed, little-endian. The service, the simulated
// firmware and the tests share them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mailbox/RecordFields.h"

#pragma pack(push, 1)

// The firmware's description of itself, the answer of GetZELVersion.
struct ManageabilityStatus {
    char MPMVersion[64];       // C string
    uint32_t ProvisionStatus;  // 2: provisioning completed
    uint32_t uECAbsent;
    uint32_t uVORKVersion;  // feature level in tenths: 21 is 2.1
    uint32_t KVMStatus;
};
static_assert(sizeof(ManageabilityStatus) == 80 && offsetof(ManageabilityStatus, uVORKVersion) == 72);
RECORD_FIELDS(ManageabilityStatus, FIELD_AS(MPMVersion, Text), FIELD(ProvisionStatus), FIELD(uECAbsent),
              FIELD(uVORKVersion), FIELD(KVMStatus));

// The answer of GetMPMStatus.
struct MPMStatusRecord {
    uint8_t status;  // 2: the firmware waits for the platform update
};
static_assert(sizeof(MPMStatusRecord) == 1);
RECORD_FIELDS(MPMStatusRecord, FIELD(status));

struct DomainInfo {
    static constexpr uint32_t kMaxDomains = 1280;
    uint32_t Size;  // length of the domain text in bytes
    char Domains[kMaxDomains];
};
static_assert(sizeof(DomainInfo) == 1284);
RECORD_FIELDS(DomainInfo, FIELD(Size), FIELD_AS(Domains, Text));

struct CloudCertInfo {
    char Hostname[256];
    uint32_t Port;  // 0: not yet read from the firmware
    uint32_t BypassCloud;
    char vCloudCert[4096];
    uint32_t vCloudCertSize;
    char vCloudKey[4096];
    uint32_t vCloudKeySize;
    char vCloudCACert[4096];
    uint32_t vCloudCACertSize;
};
static_assert(sizeof(CloudCertInfo) == 12564 && offsetof(CloudCertInfo, vCloudCert) == 264 &&
              offsetof(CloudCertInfo, vCloudKey) == 4364 && offsetof(CloudCertInfo, vCloudCACert) == 8464);
RECORD_FIELDS(CloudCertInfo, FIELD_AS(Hostname, Text), FIELD(Port), FIELD(BypassCloud),
              FIELD_AS(vCloudCert, Data), FIELD(vCloudCertSize), FIELD_AS(vCloudKey, Secret),
              FIELD(vCloudKeySize), FIELD_AS(vCloudCACert, Data), FIELD(vCloudCACertSize));

// One network interface. IPv4 words are in network byte order, as inet_addr gives them.
struct NwInfoEntry {
    char Name[192];
    uint64_t Speed;  // bits per second
    char MACAddress[36];
    uint8_t padding[4];
    uint64_t MaxSpeed;
    char DeviceID[128];
    uint16_t StatusInfo;
    uint16_t LinkTechnology;  // 2 Ethernet, 11 wireless
    uint32_t AddressOrigin;   // 3 static, 4 DHCP
    uint32_t IPv4Address;
    uint32_t Subnet;
    uint32_t Gateway;
    uint32_t spare;
};
static_assert(sizeof(NwInfoEntry) == 400 && offsetof(NwInfoEntry, Speed) == 192 &&
              offsetof(NwInfoEntry, MaxSpeed) == 240 && offsetof(NwInfoEntry, StatusInfo) == 376 &&
              offsetof(NwInfoEntry, IPv4Address) == 384);
RECORD_FIELDS(NwInfoEntry, FIELD_AS(Name, Text), FIELD(Speed), FIELD_AS(MACAddress, Text),
              FIELD_AS(padding, Reserved), FIELD(MaxSpeed), FIELD_AS(DeviceID, Text), FIELD(StatusInfo),
              FIELD(LinkTechnology), FIELD(AddressOrigin), FIELD_AS(IPv4Address, Address),
              FIELD_AS(Subnet, Address), FIELD_AS(Gateway, Address), FIELD_AS(spare, Reserved));

struct MultiNwInfo {
    static constexpr size_t kSlots = 5;
    uint16_t Count;  // interfaces found; may exceed kSlots
    uint8_t padding[6];
    NwInfoEntry Entries[kSlots];
};
static_assert(sizeof(MultiNwInfo) == 2008 && offsetof(MultiNwInfo, Entries) == 8);
RECORD_FIELDS(MultiNwInfo, FIELD(Count), FIELD_AS(padding, Reserved), FIELD_SLOTS(Entries, NwInfoEntry));

// The only interface that is reported to firmware below level 20.
struct NwInfo {
    char Name[192];
    uint64_t Speed;
    char MACAddress[36];
    uint8_t padding[4];
    uint64_t MaxSpeed;
    char DeviceID[128];
    uint16_t StatusInfo;
    uint16_t LinkTechnology;  // always 0xFFFF
    uint32_t AddressOrigin;
};
static_assert(sizeof(NwInfo) == 384);
RECORD_FIELDS(NwInfo, FIELD_AS(Name, Text), FIELD(Speed), FIELD_AS(MACAddress, Text),
              FIELD_AS(padding, Reserved), FIELD(MaxSpeed), FIELD_AS(DeviceID, Text), FIELD(StatusInfo),
              FIELD(LinkTechnology), FIELD(AddressOrigin));

// The host's primary address, and the peer of a new connection.
struct IPCompleteInfo {
    uint32_t IPv4Address;
    uint32_t Port;
    uint32_t Gateway;
    uint32_t DnsServer;
    uint32_t Subnet;
    uint32_t PeerAddress;
    uint32_t PeerPort;  // in network byte order, widened without a swap
    uint8_t reserved[6];
    uint16_t PeerMarker;
};
static_assert(sizeof(IPCompleteInfo) == 36 && offsetof(IPCompleteInfo, PeerMarker) == 34);
RECORD_FIELDS(IPCompleteInfo, FIELD_AS(IPv4Address, Address), FIELD(Port), FIELD_AS(Gateway, Address),
              FIELD_AS(DnsServer, Address), FIELD_AS(Subnet, Address), FIELD_AS(PeerAddress, Address),
              FIELD_AS(PeerPort, NetPort), FIELD_AS(reserved, Reserved), FIELD(PeerMarker));

struct NetworkStatusInfo {
    uint32_t status;  // 0 not connected, 1 LAN, 2 WLAN
};
static_assert(sizeof(NetworkStatusInfo) == 4);
RECORD_FIELDS(NetworkStatusInfo, FIELD(status));

struct ADInfo {
    int32_t TimezoneDiff;  // seconds east of UTC
    uint8_t reserved[80];
};
static_assert(sizeof(ADInfo) == 84);
RECORD_FIELDS(ADInfo, FIELD_AS(TimezoneDiff, Signed), FIELD_AS(reserved, Reserved));

struct ZELStatusRecord {
    uint32_t state;  // 1 up, 2 down, 3 up in safe boot, 4 up in safe boot with networking
};
static_assert(sizeof(ZELStatusRecord) == 4);
RECORD_FIELDS(ZELStatusRecord, FIELD(state));

struct CloseSocketRecord {
    uint16_t port;  // local port: 664 or 22
};
static_assert(sizeof(CloseSocketRecord) == 2);
RECORD_FIELDS(CloseSocketRecord, FIELD(port));

struct ShutdownLaptopRecord {
    uint8_t code;  // always 2
    uint8_t zero;
};
static_assert(sizeof(ShutdownLaptopRecord) == 2);
RECORD_FIELDS(ShutdownLaptopRecord, FIELD(code), FIELD(zero));

struct WinRetCodeRecord {
    uint32_t first;
    uint32_t second;
    uint32_t zero;
};
static_assert(sizeof(WinRetCodeRecord) == 12);
RECORD_FIELDS(WinRetCodeRecord, FIELD(first), FIELD(second), FIELD(zero));

// The answer to a request for the ring of log records.
struct LogBufferRecord {
    uint64_t address;  // 0: there is none
};
static_assert(sizeof(LogBufferRecord) == 8);
RECORD_FIELDS(LogBufferRecord, FIELD(address));

#pragma pack(pop)
