// One line to the PC's control socket.
#include <json/json.h>

#include "fuzz/Input.h"
#include "winhost/control/Commands.h"
#include "winhost/core/Clock.h"
#include "winhost/pc/Pc.h"

namespace {

void Restore() {
    winhost::PcDescription plain;
    plain.adapters.emplace();
    plain.dnsServers.emplace();
    winhost::Pc::Instance().Reset(plain);
}

}  // namespace

FUZZ_TARGET(pccontrol) {
    Restore();
    const Json::Value answer = winhost::Answer(fuzz::TextOf(input));
    fuzz::Require(answer["ok"].isBool(), "every line is answered");
    fuzz::Require(answer["ok"].asBool() || !answer["error"].asString().empty(), "a refusal says why");
    fuzz::Require(winhost::Answer(R"({"command": "status"})")["ok"].asBool(), "the next line is answered");
}
