// What the firmware is told of the host's operating system.
#pragma once

#include <string>

#include "mailbox/OsInfoRecord.h"

class WMIInterface;

// Assembles the record and sends it to the firmware; what could not be read stays zero or takes its default.
// Asks WMI, and waits for it.
void WriteOSInfoToMPM(WMIInterface& wmi);

// "Microsoft Windows 11 Professional": from the running system's version and the edition in the registry.
std::string GetOsName();
