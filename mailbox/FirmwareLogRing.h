// The firmware's log records in memory that the driver shares with the service.
#pragma once

#include <cstddef>
#include <cstdint>

struct FirmwareLogRing {
    static constexpr uint32_t kRecords = 2048;
    static constexpr uint32_t kLastIndex = kRecords - 1;
    static constexpr size_t kRecordSize = 128;

    uint32_t readIndex;                   // written by the service
    uint32_t writeIndex;                  // written by the firmware
    char records[kRecords][kRecordSize];  // C strings
};
static_assert(offsetof(FirmwareLogRing, records) == 8 && sizeof(FirmwareLogRing) == 8 + 2048 * 128);
