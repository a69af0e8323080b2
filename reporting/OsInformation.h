// Reports the host's operating system to the firmware.
#pragma once

#include <string>

#include "mailbox/OsInfoRecord.h"

class WMIInterface;

// Assembles the record and sends it to the firmware. Values that cannot be read stay zero or take their
// default. Queries WMI and blocks until it answers.
void WriteOSInfoToMPM(WMIInterface& wmi);

// Returns the product name, such as "Microsoft Windows 11 Professional". It combines the running system's
// version with the edition from the registry.
std::string GetOsName();
