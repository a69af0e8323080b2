#include "companions/ZELKVMApp/Behaviour.h"

#include "companions/NumberBehind.h"

namespace {

constexpr uint32_t kLongestMessage = 65536;

}  // namespace

std::optional<Behaviour> ParseBehaviour(const std::string& word) {
    Behaviour behaviour;
    if (word.empty()) return behaviour;
    behaviour.crashes = word == "crash";
    behaviour.ignoresTerminate = word == "ignore-terminate";
    behaviour.connects = word != "no-connection";
    behaviour.report.isSilent = word == "silent";
    if (behaviour.crashes || behaviour.ignoresTerminate || !behaviour.connects || behaviour.report.isSilent)
        return behaviour;
    if (const auto message = NumberBehind(word, "message=")) {
        behaviour.report.message = *message;
        return behaviour;
    }
    behaviour.report.length = NumberBehind(word, "length=", kLongestMessage);
    if (!behaviour.report.length) return {};
    return behaviour;
}
