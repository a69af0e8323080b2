// The fields of the network records.
#pragma once

#include "firmware/Fields.h"
#include "mailbox/MailboxRecords.h"

namespace mpm {

inline constexpr Field kNwInfoEntryFields[] = {
    MPM_FIELD_AS(NwInfoEntry, Name, Text),           MPM_FIELD(NwInfoEntry, Speed),
    MPM_FIELD_AS(NwInfoEntry, MACAddress, Text),     MPM_FIELD(NwInfoEntry, MaxSpeed),
    MPM_FIELD_AS(NwInfoEntry, DeviceID, Text),       MPM_FIELD(NwInfoEntry, StatusInfo),
    MPM_FIELD(NwInfoEntry, LinkTechnology),          MPM_FIELD(NwInfoEntry, AddressOrigin),
    MPM_FIELD_AS(NwInfoEntry, IPv4Address, Address), MPM_FIELD_AS(NwInfoEntry, Subnet, Address),
    MPM_FIELD_AS(NwInfoEntry, Gateway, Address),
};

inline constexpr Field kMultiNwInfoFields[] = {
    MPM_FIELD(MultiNwInfo, Count),
    MPM_FIELD_AS(MultiNwInfo, Entries, Slots),
};

inline constexpr Field kNwInfoFields[] = {
    MPM_FIELD_AS(NwInfo, Name, Text),       MPM_FIELD(NwInfo, Speed),
    MPM_FIELD_AS(NwInfo, MACAddress, Text), MPM_FIELD(NwInfo, MaxSpeed),
    MPM_FIELD_AS(NwInfo, DeviceID, Text),   MPM_FIELD(NwInfo, StatusInfo),
    MPM_FIELD(NwInfo, LinkTechnology),      MPM_FIELD(NwInfo, AddressOrigin),
};

inline constexpr Field kIPCompleteInfoFields[] = {
    MPM_FIELD_AS(IPCompleteInfo, IPv4Address, Address), MPM_FIELD(IPCompleteInfo, Port),
    MPM_FIELD_AS(IPCompleteInfo, Gateway, Address),     MPM_FIELD_AS(IPCompleteInfo, DnsServer, Address),
    MPM_FIELD_AS(IPCompleteInfo, Subnet, Address),      MPM_FIELD_AS(IPCompleteInfo, PeerAddress, Address),
    MPM_FIELD_AS(IPCompleteInfo, PeerPort, NetPort),    MPM_FIELD(IPCompleteInfo, PeerMarker),
};

inline constexpr Field kNetworkStatusInfoFields[] = {MPM_FIELD(NetworkStatusInfo, status)};
inline constexpr Field kADInfoFields[] = {MPM_FIELD_AS(ADInfo, TimezoneDiff, Signed)};

}  // namespace mpm
