#include "companions/WiFiSyncDataReader/Behaviour.h"

#include "companions/NumberBehind.h"

namespace {

constexpr uint32_t kLongestRecord = 65536;
constexpr uint32_t kLongestDelay = 600'000;  // ten minutes

}  // namespace

std::optional<Behaviour> ParseBehaviour(const std::string& word) {
    Behaviour behaviour;
    behaviour.exitsFirst = word == "exit-first";
    behaviour.neverConnects = word == "no-connection";
    behaviour.isSilent = word == "silent";
    if (word.empty() || behaviour.exitsFirst || behaviour.neverConnects || behaviour.isSilent)
        return behaviour;
    if (const auto delay = NumberBehind(word, "late=", kLongestDelay)) {
        behaviour.delay = *delay;
        return behaviour;
    }
    const auto length = NumberBehind(word, "length=", kLongestRecord);
    if (!length) return {};
    behaviour.length = *length;
    return behaviour;
}
