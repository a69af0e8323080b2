#include "companions/certreq/Behaviour.h"

#include <charconv>

namespace certreq {

namespace {

constexpr uint32_t kLongestFile = 65536;
constexpr uint32_t kLongestDelay = 600'000;  // ten minutes

// The number behind `key`, `most` at most; nothing when the word is not of that kind.
std::optional<uint32_t> NumberBehind(const std::string& word, const std::string& key, uint32_t most) {
    if (!word.starts_with(key)) return {};
    uint32_t number = 0;
    const char* const end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data() + key.size(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number > most) return {};
    return number;
}

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
