// What a file beside the executable selects for tests.
#pragma once

#include <optional>
#include <string>

#include "companions/ZELKVMApp/DisplayReport.h"

struct Behaviour {
    bool crashes = false;
    bool ignoresTerminate = false;
    bool connects = true;  // to the service's pipe, in display mode
    DisplayReport report;
};

// Returns nothing for an unknown word.
std::optional<Behaviour> ParseBehaviour(const std::string& word);
