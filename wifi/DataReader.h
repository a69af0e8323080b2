// Facts that a helper program delivers through a pipe when the service runs from a package.
#pragma once

#include "mailbox/WiFiSyncRecord.h"

// Fills the record; without an answer it has zeros and its size. Any thread.
void GetValueFromWiFiDataReader(WiFiSyncInfo* record);
