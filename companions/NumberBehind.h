// The numbers in the words that select a companion's behaviour, as in "late=200".
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>

// The number behind `key`, `most` at most; nothing when the word is not of that kind.
inline std::optional<uint32_t> NumberBehind(const std::string& word, const std::string& key,
                                            uint32_t most = UINT32_MAX) {
    if (!word.starts_with(key)) return {};
    uint32_t number = 0;
    const char* const end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data() + key.size(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number > most) return {};
    return number;
}
