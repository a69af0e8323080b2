#include "wifi/DataReader.h"

#include "base/Log.h"
#include "wifi/WiFiProfile.h"

void GetValueFromWiFiDataReader(WiFiSyncInfo* record) {
    if (!record) return LogError("GetValueFromWiFiDataReader: Null output structure pointer");
    *record = EmptyWiFiRecord();
}
