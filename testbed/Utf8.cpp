#include "testbed/Utf8.h"

#include <cstdint>

namespace testbed {
namespace {

constexpr uint32_t kReplacement = 0xFFFD;

bool IsCharacter(uint32_t code) {
    return code < 0xD800 || (code > 0xDFFF && code <= 0x10FFFF);
}

// The character that begins at text[at]; steps behind it, or over one byte that begins none.
uint32_t Decode(std::string_view text, size_t& at) {
    const auto lead = static_cast<uint8_t>(text[at++]);
    if (lead < 0x80) return lead;
    const size_t following = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    if (lead < 0xC2 || lead > 0xF4 || text.size() - at < following) return kReplacement;
    uint32_t code = lead & (0x3Fu >> following);
    for (size_t i = 0; i < following; ++i) {
        const auto byte = static_cast<uint8_t>(text[at + i]);
        if ((byte & 0xC0) != 0x80) return kReplacement;
        code = code << 6 | (byte & 0x3Fu);
    }
    constexpr uint32_t kLowest[] = {0, 0x80, 0x800, 0x10000};
    if (!IsCharacter(code) || code < kLowest[following]) return kReplacement;
    at += following;
    return code;
}

void Encode(uint32_t code, std::string& text) {
    if (code < 0x80) {
        text += static_cast<char>(code);
        return;
    }
    const int following = code >= 0x10000 ? 3 : code >= 0x800 ? 2 : 1;
    constexpr uint32_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(kLead[following] | code >> (6 * following));
    for (int i = following - 1; i >= 0; --i)
        text += static_cast<char>(0x80 | (code >> (6 * i) & 0x3F));
}

}  // namespace

std::wstring FromUtf8(std::string_view text) {
    std::wstring result;
    for (size_t at = 0; at < text.size();)
        result += static_cast<wchar_t>(Decode(text, at));
    return result;
}

std::string ToUtf8(std::wstring_view text) {
    std::string result;
    result.reserve(text.size());
    for (const wchar_t c : text) {
        const auto code = static_cast<uint32_t>(c);
        Encode(IsCharacter(code) ? code : kReplacement, result);
    }
    return result;
}

std::string ToUtf8(std::u16string_view text) {
    std::string result;
    for (size_t at = 0; at < text.size(); ++at) {
        const uint32_t unit = text[at];
        const uint32_t next = at + 1 < text.size() ? text[at + 1] : 0;
        if (unit >= 0xD800 && unit < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
            Encode(0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00), result);
            ++at;
        } else {
            Encode(IsCharacter(unit) ? unit : kReplacement, result);
        }
    }
    return result;
}

}  // namespace testbed
