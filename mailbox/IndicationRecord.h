// The address to which the host posts the firmware's alerts. Packed and little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mailbox/RecordFields.h"

#pragma pack(push, 1)

// The payload of MPM_ZEL_CMD_INDICATION_SUBSCRIBE.
struct IndicationDestination {
    char Host[1024];  // NUL-terminated
    char Uri[1024];   // empty: unsubscribe
    uint32_t reserved;
    uint16_t Port;  // host byte order
    uint16_t reserved2;
    uint32_t Secure;  // not 0: HTTPS
};
static_assert(sizeof(IndicationDestination) == 2060 && offsetof(IndicationDestination, Port) == 2052 &&
              offsetof(IndicationDestination, Secure) == 2056);
RECORD_FIELDS(IndicationDestination, FIELD_AS(Host, Text), FIELD_AS(Uri, Text), FIELD_AS(reserved, Reserved),
              FIELD(Port), FIELD_AS(reserved2, Reserved), FIELD(Secure));

#pragma pack(pop)
