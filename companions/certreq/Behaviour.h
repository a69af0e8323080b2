// What a file beside the executable selects for tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace certreq {

struct Behaviour {
    bool refuses = false;          // as an authority that denies the request
    bool hangs = false;            // writes nothing and never ends
    uint32_t delay = 0;            // milliseconds before it submits
    std::optional<size_t> length;  // bytes to write in place of the certificate
};

// Returns nothing for an unknown word.
std::optional<Behaviour> ParseBehaviour(const std::string& word);

}  // namespace certreq
