// One line to the PC's control socket.
#include <json/json.h>

#include "fuzz/Input.h"
#include "testbed/ControlSocket.h"
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
    const Json::Value answer = testbed::AnswerLine(fuzz::TextOf(input), winhost::Answer);
    fuzz::Require(answer["ok"].asBool() || !answer["error"].asString().empty(), "a refusal says why");
    const Json::Value next = testbed::AnswerLine(R"({"command": "status"})", winhost::Answer);
    fuzz::Require(next["ok"].asBool(), "the next line is answered");
}
