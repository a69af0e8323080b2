// A graphics adapter of the PC, as DXGI, Direct3D and its display driver show it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "winhost/pc/Fields.h"

namespace winhost {

// What the driver answers to an escape.
struct EscapeAnswer {
    uint32_t code = 0;                // in the header of the buffer
    uint32_t query = 0;               // the second 32-bit number of the input; 0: any
    uint32_t status = 0;              // NTSTATUS; the rest counts when it is 0
    std::vector<uint32_t> numbers{};  // fill the output: the end of the buffer
};
WINHOST_FIELDS(EscapeAnswer, code, query, status, numbers)

struct GraphicsAdapter {
    std::string description = "Simulated Graphics Adapter";
    uint32_t vendor = 0x1AF4, device = 0x1050;
    std::vector<std::string> outputs = {R"(\\.\DISPLAY1)"};  // their device names
    uint64_t luid = 0x10000;
    uint32_t pciBus = 1, pciDevice = 0, pciFunction = 0;  // two adapters may share one address
    bool hasPciAddress = true;                            // else the query for it fails
    std::string driverPath{};  // of the user-mode library; empty: the query for it fails
    bool privateData = false;  // whether the query for what follows succeeds
    uint32_t engineCount = 1;
    std::vector<uint32_t> engines{};  // bytes of the engine table, 64 at most
    uint32_t encoderCores = 0;
    std::vector<EscapeAnswer> escapes{};  // the first that fits answers
    uint32_t featureLevel = 111;          // of Direct3D: 100, 101, 110 or 111
};
WINHOST_FIELDS(GraphicsAdapter, description, vendor, device, outputs, luid, pciBus, pciDevice, pciFunction,
               hasPciAddress, driverPath, privateData, engineCount, engines, encoderCores, escapes,
               featureLevel)

}  // namespace winhost
