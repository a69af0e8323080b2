// The agent's part in the display mode: it reports the display's configuration to the service and waits for
// the start message.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

// What the agent sends. Tests change it.
struct DisplayReport {
    uint32_t message = 1;            // eNotifyDisplayConfig
    std::optional<uint32_t> length;  // of the message in bytes, filled up with zeros; default: the record's
    bool isSilent = false;           // connects and sends nothing
};

// Connects as soon as the service has its pipe, sends the report and reads until the service disconnects.
// Logs each step to the file.
void ReportDisplay(const DisplayReport& report, uint32_t width, uint32_t height, const std::string& log);
