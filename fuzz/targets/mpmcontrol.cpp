// One line to the simulated firmware's control socket.
#include <json/json.h>

#include <exception>
#include <memory>

#include "firmware/Report.h"
#include "firmware/control/Verbs.h"
#include "fuzz/Input.h"

namespace {

mpm::Firmware& Firmware() {
    static auto& firmware = *new mpm::Firmware;
    return firmware;
}

bool Parse(const std::string& text, Json::Value& json) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    std::string errors;
    return reader->parse(text.data(), text.data() + text.size(), &json, &errors);
}

}  // namespace

FUZZ_TARGET(mpmcontrol) {
    try {
        Json::Value request;
        if (!Parse(fuzz::TextOf(input), request)) return;
        mpm::Compact(mpm::control::Handle(Firmware(), request));
    } catch (const std::exception& error) {
        fuzz::Require(*error.what(), "a refusal says why");
    }
    Firmware().ClearFaults();
    Firmware().Change([](mpm::Settings& settings) { settings = {}; });
    fuzz::Require(mpm::control::FromHex(mpm::control::ToHex(input)).size() == input.size(),
                  "bytes survive their hexadecimal form");
}
