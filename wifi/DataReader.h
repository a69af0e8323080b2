// Facts that a packaged service cannot read itself and gets from a helper program, WiFiSyncDataReader.exe in
// the working folder: each read starts the program once and receives one record over a pipe. A program that
// fails to deliver holds the caller for half a minute at most (ReaderWatch). Any thread, but only one read of
// a kind at a time: a second one fails to create the pipe.
#pragma once

#include <cstdint>

#include "mailbox/WiFiSyncRecord.h"

// Fills the record with the Wi-Fi profile. Without the program the record is empty except for its size; when
// the program delivers less than a record, the size is 0 too.
void GetValueFromWiFiDataReader(WiFiSyncInfo* record);

// Returns the boot mode as GetSystemMetrics(SM_CLEANBOOT) does, and 0 (regular boot) after any failure.
uint32_t GetBootMode();
