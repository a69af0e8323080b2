// One line to the simulated firmware's control socket.
#include <json/json.h>

#include "firmware/Hex.h"
#include "firmware/control/Verbs.h"
#include "fuzz/Input.h"
#include "testbed/ControlSocket.h"

namespace {

mpm::Firmware& Firmware() {
    static auto& firmware = *new mpm::Firmware;
    return firmware;
}

}  // namespace

FUZZ_TARGET(mpmcontrol) {
    mpm::Enrolments enrolments;
    const auto handle = [&](const Json::Value& request) {
        return mpm::control::Handle(Firmware(), enrolments, request);
    };
    const Json::Value answer = testbed::AnswerLine(fuzz::TextOf(input), handle);
    fuzz::Require(!answer.isMember("error") || !answer["error"].asString().empty(), "a refusal says why");
    Firmware().ClearFaults();
    Firmware().Change([](mpm::Settings& settings) { settings = {}; });
    fuzz::Require(mpm::FromHex(mpm::ToHex(input)).size() == input.size(),
                  "bytes survive their hexadecimal form");
}
