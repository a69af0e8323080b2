// Inputs name commands, requests and firmware levels by the numbers that they have on the wire. A new row in
// a table of the mailbox thus leaves the meaning of every other number as it was.
#pragma once

#include <cstdint>

#include "mailbox/MailboxTables.h"

namespace fuzz {

// Control codes of this project have the function numbers from 0x900 on.
inline constexpr uint32_t kFirstFunction = 0x900;

// The code of the request with the function number kFirstFunction + `function`. Where there is no such
// request, the code that a write request of this number would have.
constexpr uint32_t CodeOfFunction(uint8_t function) {
    for (const MailboxRequest& request : kMailboxRequests)
        if (FunctionOf(request.code) == kFirstFunction + function) return request.code;
    return 0x9C418000 | (kFirstFunction + function) << 2;
}

// Whether a request has this code.
constexpr bool IsRequest(uint32_t code) {
    for (const MailboxRequest& request : kMailboxRequests)
        if (request.code == code) return true;
    return false;
}

constexpr bool IsCommand(uint8_t number) {
    for (const FirmwareCommand& command : kFirmwareCommands)
        if (command.number == number) return true;
    return false;
}

}  // namespace fuzz
