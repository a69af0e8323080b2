// The power buttons of a console: CIM_PowerManagementService, the host's CIM_ComputerSystem, and the
// association between them.
#pragma once

#include <functional>
#include <string>

#include "firmware/dash/Wsman.h"
#include "mailbox/MailboxCodes.h"

namespace mpm {

// `hostName` may give an empty name. `command` takes the firmware command that carries out a power state; it
// is called before the answer leaves, so that the host has the command when it forwards the answer.
void OfferPower(Wsman& wsman, std::function<std::string()> hostName, std::function<void(MpmCommand)> command);

}  // namespace mpm
