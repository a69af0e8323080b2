// The commands and requests of the mailbox as arrays, with the layouts of their records.
#pragma once

#include <cstdint>

#include "mailbox/ConsentRecords.h"
#include "mailbox/DisplayRecords.h"
#include "mailbox/FirmwareCommands.h"
#include "mailbox/IdentityRecords.h"
#include "mailbox/IndicationRecord.h"
#include "mailbox/MailboxRecords.h"
#include "mailbox/OsInfoRecord.h"
#include "mailbox/RecordFields.h"
#include "mailbox/Requests.h"
#include "mailbox/WiFiSyncRecord.h"

struct FirmwareCommand {
    const char* name;
    uint8_t number;
    RecordLayout payload;
};

inline constexpr FirmwareCommand kFirmwareCommands[] = {
#define COMMAND(number, name, payload, handler) {#name, number, RecordRows<payload>::kLayout},
    FIRMWARE_COMMANDS(COMMAND)
#undef COMMAND
};

struct MailboxRequest {
    const char* name;
    uint32_t code;
    RecordLayout input, output;
};

// A request that knows the types of its records.
template <class Input, class Output>
struct TypedRequest : MailboxRequest {
    constexpr TypedRequest(const char* requestName, uint32_t controlCode)
        : MailboxRequest{requestName, controlCode, RecordRows<Input>::kLayout, RecordRows<Output>::kLayout} {}
};

namespace MailboxRequests {
#define REQUEST(name, code, input, output) inline constexpr TypedRequest<input, output> name{#name, code};
MAILBOX_REQUESTS(REQUEST)
#undef REQUEST
}  // namespace MailboxRequests

inline constexpr MailboxRequest kMailboxRequests[] = {
#define REQUEST(name, code, input, output) MailboxRequests::name,
    MAILBOX_REQUESTS(REQUEST)
#undef REQUEST
};
