// Starts the separate program that upgrades the host's software.
#pragma once

#include <cstddef>

// Runs ZELSWUpgrade.exe with the firmware's text as its argument, up to its first NUL. A text of 1023 bytes
// or more is refused whole, and the program gets an empty one. Returns at once. The program goes on when the
// service stops. Called on the mailbox read thread.
void StartSoftwareUpgrade(const void* text, size_t length);
