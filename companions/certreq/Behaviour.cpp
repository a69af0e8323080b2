#include "companions/certreq/Behaviour.h"

#include "companions/NumberBehind.h"

namespace certreq {

namespace {

constexpr uint32_t kLongestFile = 65536;
constexpr uint32_t kLongestDelay = 600'000;  // ten minutes

}  // namespace

std::optional<Behaviour> ParseBehaviour(const std::string& word) {
    Behaviour behaviour;
    behaviour.refuses = word == "refuse";
    behaviour.hangs = word == "hang";
    if (word.empty() || behaviour.refuses || behaviour.hangs) return behaviour;
    if (const auto delay = NumberBehind(word, "late=", kLongestDelay)) {
        behaviour.delay = *delay;
        return behaviour;
    }
    const auto length = NumberBehind(word, "length=", kLongestFile);
    if (!length) return {};
    behaviour.length = *length;
    return behaviour;
}

}  // namespace certreq
