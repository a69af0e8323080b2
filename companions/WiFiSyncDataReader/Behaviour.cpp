#include "companions/WiFiSyncDataReader/Behaviour.h"

#include <charconv>

namespace {

constexpr uint32_t kLongestRecord = 65536;
constexpr uint32_t kLongestDelay = 600'000;  // ten minutes

// The number behind `key`, `most` at most; nothing when the word is not of that kind.
std::optional<uint32_t> NumberBehind(const std::string& word, const std::string& key, uint32_t most) {
    if (word.compare(0, key.size(), key) != 0) return {};
    uint32_t number = 0;
    const char* const end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data() + key.size(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number > most) return {};
    return number;
}

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
