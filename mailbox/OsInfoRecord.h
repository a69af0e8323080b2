// The description of the host's operating system, the input of WriteOsInfo. Packed and little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mailbox/RecordFields.h"

#pragma pack(push, 1)

// Texts are NUL-terminated; the wide ones are UTF-16.
struct OsInfo {
    char16_t OSName[64];
    char16_t OtherTypeDescription[64];  // "64-bit" or "32-bit"
    char16_t Version[64];
    char HostName[256];
    char DomainName[128];
    uint16_t OSType;
    uint16_t OSReservedWord;  // always 65535
    char ZELVersion[32];
};
static_assert(sizeof(OsInfo) == 804 && offsetof(OsInfo, HostName) == 384 && offsetof(OsInfo, OSType) == 768 &&
              offsetof(OsInfo, ZELVersion) == 772);
RECORD_FIELDS(OsInfo, FIELD_AS(OSName, WideText), FIELD_AS(OtherTypeDescription, WideText),
              FIELD_AS(Version, WideText), FIELD_AS(HostName, Text), FIELD_AS(DomainName, Text),
              FIELD(OSType), FIELD(OSReservedWord), FIELD_AS(ZELVersion, Text));

#pragma pack(pop)
