// A text that grows in a buffer of fixed size, without allocation.
#pragma once

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// Text that does not fit is cut. The text is always terminated.
template <size_t Capacity>
class FixedText {
  public:
    FixedText() { Clear(); }

    void Clear() {
        m_length = 0;
        m_text[0] = '\0';
    }

    void Append(std::string_view text) {
        // Two branches, so that the size of a literal stays known to the compiler.
        if (text.size() <= Room()) {
            std::memcpy(m_text.data() + m_length, text.data(), text.size());
            m_length += text.size();
        } else {
            std::memcpy(m_text.data() + m_length, text.data(), Room());
            m_length = Capacity - 1;
        }
        m_text[m_length] = '\0';
    }

    // With leading zeros up to minDigits.
    void AppendNumber(uint64_t number, int base = 10, size_t minDigits = 1) {
        char digits[20];
        const char* end = std::to_chars(digits, digits + sizeof digits, number, base).ptr;
        for (size_t have = end - digits; have < minDigits; ++have)
            Append("0");
        Append({digits, static_cast<size_t>(end - digits)});
    }

    size_t Room() const { return Capacity - 1 - m_length; }
    size_t Size() const { return m_length; }
    const char* Text() const { return m_text.data(); }
    std::string_view View() const { return {m_text.data(), m_length}; }

  private:
    // Only what has been appended is ever read, so the rest is not cleared.
    std::array<char, Capacity> m_text;
    size_t m_length;
};
