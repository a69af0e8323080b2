// What a file beside the executable selects for tests.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct Behaviour {
    bool exitsFirst = false;       // before it connects
    bool neverConnects = false;    // and never ends
    bool isSilent = false;         // connects, writes nothing and never ends
    uint32_t delay = 0;            // milliseconds before it connects
    std::optional<size_t> length;  // bytes to write in place of the whole record
};

// Returns nothing for an unknown word.
std::optional<Behaviour> ParseBehaviour(const std::string& word);
