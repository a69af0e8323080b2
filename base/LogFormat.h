// The formats of messages: checked and split by the compiler, so that a message is put together from its
// pieces without a second look at the text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "base/FieldText.h"
#include "base/FixedText.h"
#include "base/WideText.h"

namespace logging {

// A message has at most one byte less. Longer ones are cut.
inline constexpr size_t kMessageSize = 1024;

template <class T>
using Plain = std::remove_cv_t<std::remove_reference_t<T>>;

template <class T>
inline constexpr bool kIsText =
    std::is_convertible_v<T, const char*> || std::is_same_v<Plain<T>, std::string>;
template <class T>
inline constexpr bool kIsWideText =
    std::is_convertible_v<T, std::wstring_view> || std::is_convertible_v<T, std::u16string_view>;
template <class T>
inline constexpr bool kIsNumber = std::is_integral_v<Plain<T>> || std::is_enum_v<Plain<T>>;
// Of an object; a pointer to characters is a text.
template <class T>
inline constexpr bool kIsPointer = std::is_pointer_v<Plain<T>> && !kIsText<T> && !kIsWideText<T>;

struct Conversion {
    enum class Kind : uint8_t { Text, WideText, Signed, Unsigned, Hex, UpperHex };
    Kind kind = Kind::Text;
    uint8_t bits = 0;         // of a number
    uint8_t minDigits = 1;    // with leading zeros
    bool countsSign = false;  // a minus sign takes the place of one of them
    uint16_t textEnd = 0;     // where the text in front of the conversion ends
};

// A format as its text without the conversions, and these.
struct FormatView {
    const char* text;
    size_t size;
    const Conversion* conversions;
};

template <class... Args>
class Format {
  public:
    static constexpr size_t kCapacity = 320;

    template <size_t N>
    consteval Format(const char (&text)[N]) {  // NOLINT: implicit, so that a literal is a format
        static_assert(N <= kCapacity, "the format text is too long");
        constexpr bool isText[] = {kIsText<Args>..., false};
        constexpr bool isWideText[] = {kIsWideText<Args>..., false};
        constexpr bool isNumber[] = {kIsNumber<Args>..., false};
        constexpr bool isPointer[] = {kIsPointer<Args>..., false};
        size_t argument = 0;
        for (size_t in = 0; in + 1 < N;) {
            if (text[in] != '%' || text[++in] == '%') {
                m_text[m_size++] = text[in++];
                continue;
            }
            const Conversion conversion = Take(text, in);
            if (argument >= sizeof...(Args)) Mismatch("more conversions than arguments");
            if (conversion.kind == Conversion::Kind::Text) {
                if (!isText[argument]) Mismatch("%s needs a text");
            } else if (conversion.kind == Conversion::Kind::WideText) {
                if (!isWideText[argument]) Mismatch("%ls needs a wide text");
            } else if (text[in - 1] == 'p') {
                if (!isPointer[argument]) Mismatch("%p needs a pointer");
            } else {
                if (!isNumber[argument]) Mismatch("an integer conversion needs a number");
            }
            m_conversions[argument++] = conversion;
        }
        if (argument != sizeof...(Args)) Mismatch("more arguments than conversions");
    }

    FormatView View() const { return {m_text.data(), m_size, m_conversions.data()}; }

  private:
    // Reads the conversion behind a percent sign, and steps over it.
    constexpr Conversion Take(const char* text, size_t& in) const {
        Conversion result;
        result.textEnd = static_cast<uint16_t>(m_size);
        const size_t begin = in;
        if (text[in] == '0') {
            ++in;
            result.countsSign = true;
            result.minDigits = TakeNumber(text, in);
        } else if (text[in] == '.') {
            ++in;
            result.minDigits = TakeNumber(text, in);
        }
        const bool hasDigits = in != begin;
        const bool isLong = text[in] == 'l';
        const size_t length = in;
        result.bits = TakeBits(text, in);
        const bool hasLength = in != length;
        switch (text[in++]) {
            case 's':
                if (hasDigits || (hasLength && !isLong)) Mismatch("%s and %ls are the conversions of texts");
                return {isLong ? Conversion::Kind::WideText : Conversion::Kind::Text, 0, 0, false,
                        result.textEnd};
            case 'p':
                if (hasDigits || hasLength) Mismatch("%p is the conversion of pointers");
                return {Conversion::Kind::UpperHex, 64, 16, false, result.textEnd};
            case 'd':
            case 'i':
                result.kind = Conversion::Kind::Signed;
                return result;
            case 'u':
                result.kind = Conversion::Kind::Unsigned;
                return result;
            case 'x':
                result.kind = Conversion::Kind::Hex;
                return result;
            case 'X':
                result.kind = Conversion::Kind::UpperHex;
                return result;
            default:
                Mismatch("unknown conversion");
                return result;
        }
    }

    static constexpr uint8_t TakeNumber(const char* text, size_t& in) {
        unsigned number = 0;
        while (text[in] >= '0' && text[in] <= '9')
            number = number * 10 + static_cast<unsigned>(text[in++] - '0');
        if (number == 0 || number > kMostDigits) Mismatch("a number has 1 to 20 digits");
        return static_cast<uint8_t>(number);
    }

    // Returns the bits that the length modifier names on Windows, and steps over it.
    static constexpr uint8_t TakeBits(const char* text, size_t& in) {
        if (text[in] == 'I' && text[in + 1] == '6' && text[in + 2] == '4') return in += 3, 64;
        if (text[in] == 'l' && text[in + 1] == 'l') return in += 2, 64;
        if (text[in] == 'z') return in += 1, 64;
        if (text[in] == 'l') return in += 1, 32;
        if (text[in] == 'h' && text[in + 1] == 'h') return in += 2, 8;
        if (text[in] == 'h') return in += 1, 16;
        return 32;
    }

    static constexpr unsigned kMostDigits = FixedText<kMessageSize>::kMostDigits;

    // Not consteval on purpose: a call ends the compilation at the faulty format.
    static void Mismatch(const char* why);

    std::array<char, kCapacity> m_text{};
    std::array<Conversion, sizeof...(Args) + 1> m_conversions{};
    size_t m_size = 0;
};

// An argument. A text must outlive it.
struct Value {
    std::string_view text = {};
    uint64_t number = 0;
};

inline Value Held(const char* text) {
    return {text ? text : "(null)"};
}
inline Value Held(const std::string& text) {
    return {text.c_str()};
}
template <class T>
requires kIsNumber<T>
constexpr Value Held(T number) {
    return {{}, static_cast<uint64_t>(number)};
}
template <class T>
requires kIsPointer<T> Value Held(T pointer) {
    return {{}, reinterpret_cast<uintptr_t>(pointer)};
}

// Wide text as UTF-8, for as long as the message is put together.
class HeldWideText {
  public:
    explicit HeldWideText(std::string text) : m_text(std::move(text)) {}
    operator Value() const { return {m_text}; }  // NOLINT: implicit, as the other arguments are values

  private:
    const std::string m_text;
};
template <class T>
requires kIsWideText<T> HeldWideText Held(const T& text) {
    if constexpr (std::is_pointer_v<T>)
        if (!text) return HeldWideText("(null)");
    if constexpr (std::is_array_v<T>) {
        return HeldWideText(ToUtf8(TextInField(text), kMessageSize));
    } else if constexpr (std::is_convertible_v<T, std::wstring_view>) {
        return HeldWideText(ToUtf8(std::wstring_view(text), kMessageSize));
    } else {
        return HeldWideText(ToUtf8(std::u16string_view(text), kMessageSize));
    }
}

// Puts the message together. There is a value for each conversion.
using Message = FixedText<kMessageSize>;
Message Assemble(const FormatView& format, std::initializer_list<Value> values);

}  // namespace logging
