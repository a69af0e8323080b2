// The numbers of the mailbox: one control code for each request to the firmware, one command number for each
// message from it. Shared by the service, the simulated firmware and the tests.
#pragma once

#include <cstdint>

#include "mailbox/FirmwareCommands.h"
#include "mailbox/MailboxBuffer.h"
#include "mailbox/Requests.h"

// The states that WriteZELStatus reports.
enum ZELServiceState : uint32_t {
    kServiceUp = 1,
    kServiceDown = 2,
    kServiceUpInSafeBoot = 3,
    kServiceUpInSafeBootWithNetworking = 4,
};
