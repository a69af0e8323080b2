// LogInfo("%s: size %d", name, size) writes one line to the service's log. The compiler checks the format.
//
// The conversions are those of printf that the log needs: %s, %d, %i, %u, %x, %X, with leading zeros (%08x)
// or a least number of digits (%.2X), %p and %%. A number has the size that Windows gives its conversion (%lu
// is 32 bits, %I64x and %llu are 64) in every build, whatever the size of the argument. %p prints the 16
// digits of a pointer. %ls takes wide text, of wchar_t or of UTF-16 units, and prints it as UTF-8. A
// conversion that does not fit its argument does not compile.
#pragma once

#include "base/LogFormat.h"

namespace logging {

enum class Level { Info, Warn, Error, Debug, Trace };

// Passes the message to the logger with the tag "ZELService".
void Write(Level level, const FormatView& format, std::initializer_list<Value> values);

}  // namespace logging

#define ZEL_DEFINE_LOG_FUNCTION(Name, level)                                                       \
    template <class... Args>                                                                       \
    void Name(const logging::Format<std::type_identity_t<Args>...>& format, const Args&... args) { \
        logging::Write(logging::Level::level, format.View(), {logging::Held(args)...});            \
    }

// Any thread. Failures are ignored. Line breaks in the message are removed, and over-long lines are cut.
ZEL_DEFINE_LOG_FUNCTION(LogInfo, Info)
ZEL_DEFINE_LOG_FUNCTION(LogWarn, Warn)
ZEL_DEFINE_LOG_FUNCTION(LogError, Error)
// These two write nothing. Their calls mark what a verbose build would log.
ZEL_DEFINE_LOG_FUNCTION(LogDebug, Debug)
ZEL_DEFINE_LOG_FUNCTION(LogTrace, Trace)

#undef ZEL_DEFINE_LOG_FUNCTION
