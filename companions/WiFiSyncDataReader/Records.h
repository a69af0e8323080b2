// The two records that the service asks for.
#pragma once

#include <string>

// The settings of the Wi-Fi network that this PC is connected to, as a WiFiSyncInfo. Empty except for its
// size when there is no such network, or none whose settings can be used.
std::string WiFiRecord();

// The boot mode as GetSystemMetrics(SM_CLEANBOOT) returns it, in four bytes.
std::string BootModeRecord();
