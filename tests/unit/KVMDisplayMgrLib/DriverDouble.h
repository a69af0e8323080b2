// A display driver that answers as a test says, and records what it is asked.
#pragma once

#include <windows.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "KVMDisplayMgrLib/src/D3dkmt.h"

using Bytes = std::vector<uint8_t>;
using Names = std::vector<std::string>;

// What the driver answers.
struct Driver {
    Names calls;
    std::set<std::string> refused, missing;
    int refuseQuery = 0;            // the n-th query of the private data
    Bytes privateData;              // empty: the driver has none
    std::u16string path;            // empty: not known
    Bytes answer;                   // in the output of an escape
    std::vector<Bytes> escapes;     // as they came
    std::vector<uint32_t> queries;  // sizes of the private data that were asked for
    d3dkmt::CreateContext context{};
    Bytes contextData;
    d3dkmt::Escape lastEscape{};
    LUID luid{};
};
extern Driver g_driver;

// Returns the driver's function, or null for one that is missing.
FARPROC FindDriverFunction(const char* name);
