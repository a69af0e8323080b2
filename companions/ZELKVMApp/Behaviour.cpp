#include "companions/ZELKVMApp/Behaviour.h"

#include <charconv>

namespace {

constexpr uint32_t kLongestMessage = 65536;

// The number behind `key`; nothing when the word is not of that kind.
std::optional<uint32_t> NumberBehind(const std::string& word, const std::string& key) {
    if (word.compare(0, key.size(), key) != 0) return {};
    uint32_t number = 0;
    const char* const end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data() + key.size(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end) return {};
    return number;
}

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
    behaviour.report.length = NumberBehind(word, "length=");
    if (!behaviour.report.length || *behaviour.report.length > kLongestMessage) return {};
    return behaviour;
}
