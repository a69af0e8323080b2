// LogInfo("%s: size %d", name, size) writes one line to the service's log. The compiler checks the format.
//
// A conversion has the size that Windows gives it (%lu is 32 bits, %I64x and %llu are 64) in every build:
// each argument is first cut to the size that its conversion names and then widened, so that a text prints
// the same whatever the size of the compiler's long. %p takes a pointer and prints its 16 digits. %ls takes
// wide text, of wchar_t or of UTF-16 units, and prints it as UTF-8. A conversion that does not fit its
// argument does not compile.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "base/FieldText.h"
#include "base/WideText.h"

namespace logging {

// The size of the buffer that a message is formatted into. Longer texts are cut.
inline constexpr size_t kMessageSize = 1024;

enum class Argument : uint8_t {
    Text,
    WideText,
    Signed8,
    Signed16,
    Signed32,
    Signed64,
    Unsigned8,
    Unsigned16,
    Unsigned32,
    Unsigned64
};

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

// A format that is known to fit Args, with every integer conversion rewritten to 64 bits.
template <class... Args>
class Format {
  public:
    static constexpr size_t kCapacity = 320;

    template <size_t N>
    consteval Format(const char (&text)[N]) {  // NOLINT: implicit, so that a literal is a format
        static_assert(N + 5 * sizeof...(Args) <= kCapacity, "the format text is too long");
        constexpr bool isText[] = {kIsText<Args>..., false};
        constexpr bool isWideText[] = {kIsWideText<Args>..., false};
        constexpr bool isNumber[] = {kIsNumber<Args>..., false};
        constexpr bool isPointer[] = {kIsPointer<Args>..., false};
        size_t argument = 0;
        for (size_t in = 0; in + 1 < N;) {
            Put(text[in]);
            if (text[in++] != '%') continue;
            if (text[in] == '%') {
                Put(text[in++]);
                continue;
            }
            while (IsOneOf(text[in], "-+ #0123456789."))
                Put(text[in++]);
            const bool isLong = text[in] == 'l';
            const int bits = TakeLength(text, in);
            char conversion = text[in++];
            if (argument >= sizeof...(Args)) Mismatch("more conversions than arguments");
            if (conversion == 's') {
                if (isLong && !isWideText[argument]) Mismatch("%ls needs a wide text");
                if (!isLong && !isText[argument]) Mismatch("%s needs a text");
                m_arguments[argument] = isLong ? Argument::WideText : Argument::Text;
            } else if (conversion == 'p') {
                if (!isPointer[argument]) Mismatch("%p needs a pointer");
                m_arguments[argument] = Argument::Unsigned64;
                Put("016ll");
                conversion = 'X';
            } else {
                if (!IsOneOf(conversion, "diuxX")) Mismatch("unknown conversion");
                if (!isNumber[argument]) Mismatch("an integer conversion needs a number");
                m_arguments[argument] = IntegerOf(conversion == 'd' || conversion == 'i', bits);
                Put('l');
                Put('l');
            }
            Put(conversion);
            ++argument;
        }
        if (argument != sizeof...(Args)) Mismatch("more arguments than conversions");
    }

    const char* Text() const { return m_text.data(); }
    Argument Of(size_t argument) const { return m_arguments[argument]; }

  private:
    static constexpr bool IsOneOf(char c, const char* set) {
        for (; *set; ++set)
            if (*set == c) return true;
        return false;
    }

    // Returns the bits that the length modifier at text[in] names on Windows, and steps over it.
    static constexpr int TakeLength(const char* text, size_t& in) {
        if (text[in] == 'I' && text[in + 1] == '6' && text[in + 2] == '4') return in += 3, 64;
        if (text[in] == 'l' && text[in + 1] == 'l') return in += 2, 64;
        if (text[in] == 'z') return in += 1, 64;
        if (text[in] == 'l') return in += 1, 32;
        if (text[in] == 'h' && text[in + 1] == 'h') return in += 2, 8;
        if (text[in] == 'h') return in += 1, 16;
        return 32;
    }

    static constexpr Argument IntegerOf(bool isSigned, int bits) {
        switch (bits) {
            case 8:
                return isSigned ? Argument::Signed8 : Argument::Unsigned8;
            case 16:
                return isSigned ? Argument::Signed16 : Argument::Unsigned16;
            case 64:
                return isSigned ? Argument::Signed64 : Argument::Unsigned64;
            default:
                return isSigned ? Argument::Signed32 : Argument::Unsigned32;
        }
    }

    constexpr void Put(char c) { m_text[m_length++] = c; }
    constexpr void Put(const char* text) {
        while (*text)
            Put(*text++);
    }

    // Not consteval on purpose: a call ends the compilation at the faulty format.
    static void Mismatch(const char* why);

    std::array<char, kCapacity> m_text{};
    std::array<Argument, sizeof...(Args) + 1> m_arguments{};
    size_t m_length = 0;
};

inline const char* Widen(Argument, const char* text) {
    return text ? text : "(null)";
}
inline const char* Widen(Argument, const std::string& text) {
    return text.c_str();
}

// The result lives until the line is written.
template <class T>
requires kIsWideText<T> std::string Widen(Argument, const T& text) {
    if constexpr (std::is_pointer_v<T>)
        if (!text) return "(null)";
    if constexpr (std::is_array_v<T>) {
        return ToUtf8(TextInField(text), kMessageSize);
    } else if constexpr (std::is_convertible_v<T, std::wstring_view>) {
        return ToUtf8(std::wstring_view(text), kMessageSize);
    } else {
        return ToUtf8(std::u16string_view(text), kMessageSize);
    }
}

template <class T>
requires kIsNumber<T>
long long Widen(Argument as, T value) {
    switch (as) {
        case Argument::Signed8:
            return static_cast<int8_t>(value);
        case Argument::Signed16:
            return static_cast<int16_t>(value);
        case Argument::Signed32:
            return static_cast<int32_t>(value);
        case Argument::Unsigned8:
            return static_cast<uint8_t>(value);
        case Argument::Unsigned16:
            return static_cast<uint16_t>(value);
        case Argument::Unsigned32:
            return static_cast<uint32_t>(value);
        default:
            return static_cast<long long>(value);
    }
}

template <class T>
requires kIsPointer<T>
long long Widen(Argument, T pointer) {
    return static_cast<long long>(reinterpret_cast<uintptr_t>(pointer));
}

enum class Level { Info, Warn, Error, Debug, Trace };

// Converts a widened argument to a type that printf takes.
inline const char* ForPrintf(const char* text) {
    return text;
}
inline const char* ForPrintf(const std::string& text) {
    return text.c_str();
}
inline long long ForPrintf(long long number) {
    return number;
}

// Formats by printf's rules into a buffer of kMessageSize and passes the text to the logger with the tag
// "ZELService".
void Write(Level level, const char* format, ...);

template <class... Args, size_t... I>
void WriteChecked(Level level, const Format<Args...>& format, std::index_sequence<I...>,
                  const Args&... args) {
    Write(level, format.Text(), ForPrintf(Widen(format.Of(I), args))...);
}

}  // namespace logging

#define ZEL_DEFINE_LOG_FUNCTION(Name, level)                                                              \
    template <class... Args>                                                                              \
    void Name(const logging::Format<std::type_identity_t<Args>...>& format, const Args&... args) {        \
        logging::WriteChecked<Args...>(logging::Level::level, format, std::index_sequence_for<Args...>{}, \
                                       args...);                                                          \
    }

// Any thread. Failures are ignored. Line breaks in the message are removed, and over-long lines are cut.
ZEL_DEFINE_LOG_FUNCTION(LogInfo, Info)
ZEL_DEFINE_LOG_FUNCTION(LogWarn, Warn)
ZEL_DEFINE_LOG_FUNCTION(LogError, Error)
// These two write nothing. Their calls mark what a verbose build would log.
ZEL_DEFINE_LOG_FUNCTION(LogDebug, Debug)
ZEL_DEFINE_LOG_FUNCTION(LogTrace, Trace)

#undef ZEL_DEFINE_LOG_FUNCTION
