// The records with which the firmware answers the host's queries.
#pragma once

#include <cstdint>
#include <vector>

#include "firmware/Settings.h"

namespace mpm {

// The output of the request with this control code; empty for a request that has none.
std::vector<uint8_t> AnswerTo(uint32_t code, const Settings& settings, bool hostUp);

}  // namespace mpm
