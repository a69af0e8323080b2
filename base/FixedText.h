// A text that grows in a buffer of fixed size, without allocation.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// Text that does not fit is cut. The text is always terminated.
template <size_t Capacity>
class FixedText {
  public:
    static constexpr size_t kMostDigits = 20;

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

    // With leading zeros up to minDigits, which is at most kMostDigits. `digits` holds those of the base.
    // Always inline, so that the compiler divides by a constant.
    [[gnu::always_inline]] void AppendNumber(uint64_t number, unsigned base = 10, size_t minDigits = 1,
                                             const char* digits = "0123456789abcdef") {
        char text[kMostDigits];
        char* const end = text + kMostDigits;
        char* begin = end;
        do {
            *--begin = digits[number % base];
            number /= base;
        } while (number != 0 || begin + minDigits > end);
        Append({begin, static_cast<size_t>(end - begin)});
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
