// What a running simulator does for its control socket.
#pragma once

#include <json/json.h>

#include "firmware/Firmware.h"
#include "firmware/enrol/Enrolment.h"

namespace mpm::control {

// Carries out {"verb": "send" | "enrol" | "set" | "fault" | "show" | "screen" | "requests", ...} and returns
// the answer; throws std::exception with a sentence for people when it cannot.
Json::Value Handle(Firmware& firmware, Enrolments& enrolments, const Json::Value& request);

}  // namespace mpm::control
