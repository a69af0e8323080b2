#include "runtime/software/Trace.h"

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

namespace luxrt {

using namespace lux;

namespace {

constexpr wchar_t kWriter[] = L"Environment";

const char* LevelName(LUXTraceLevel level) {
    switch (level) {
        case LUX_TRACE_ERROR:
            return "ERROR";
        case LUX_TRACE_WARNING:
            return "WARNING";
        case LUX_TRACE_INFO:
            return "INFO";
        case LUX_TRACE_DEBUG:
            return "DEBUG";
    }
    return "?";
}

const char* Text(const char* text) {
    return text ? text : "";
}

}  // namespace

Trace::Trace(const char* path, long limit) : m_limit(limit) {
    const size_t length = path ? std::strlen(path) : 0;
    m_enabled = length > 0 && length < m_path.size();
    if (m_enabled) {
        std::memcpy(m_path.data(), path, length);
    }
}

Trace& Trace::Instance() {
    static Trace instance(std::getenv("LUXRT_TRACE"));
    return instance;
}

// Lines are always written by the thread that has them, so that none is missing after a crash.
void Trace::EnableAsync(bool) {}

LUX_RESULT Trace::EnableWriter(const wchar_t* writer, bool enable) {
    if (!writer) {
        return LUX_INVALID_POINTER;
    }
    if (std::wstring_view(writer) != kWriter) {
        // Every other writer is off already.
        return enable ? LUX_NOT_FOUND : LUX_OK;
    }
    m_enabled = enable && m_path.front() != 0;
    return LUX_OK;
}

void Trace::TraceText(const char* file, int32_t line, LUXTraceLevel level, const char* scope,
                      const char* message) {
    if (!m_enabled) {
        return;
    }
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;

    const std::lock_guard lock(m_mutex);
    std::array<char, 32> time{};
    // gmtime's result is shared; the lock keeps it for the runtime's own threads.
    if (const std::tm* const parts = std::gmtime(&seconds)) {
        std::strftime(time.data(), time.size(), "%Y-%m-%d %H:%M:%S", parts);
    }
    std::FILE* const stream = std::fopen(m_path.data(), "a");
    if (!stream) {
        return;
    }
    std::fprintf(stream, "%s.%03d %-7s %s: %s (%s:%d)\n", time.data(), static_cast<int>(milliseconds),
                 LevelName(level), Text(scope), Text(message), Text(file), line);
    std::fseek(stream, 0, SEEK_END);
    const long size = std::ftell(stream);
    std::fclose(stream);
    if (size >= m_limit) {
        const std::string previous = std::string(m_path.data()) + ".1";
        std::remove(previous.c_str());
        std::rename(m_path.data(), previous.c_str());
    }
}

const char* Trace::GetResultText(LUX_RESULT result) {
    switch (result) {
        case LUX_OK:
            return "LUX_OK";
        case LUX_FAIL:
            return "LUX_FAIL";
        case LUX_OUT_OF_MEMORY:
            return "LUX_OUT_OF_MEMORY";
        case LUX_INVALID_ARGUMENT:
            return "LUX_INVALID_ARGUMENT";
        case LUX_NO_INTERFACE:
            return "LUX_NO_INTERFACE";
        case LUX_WRONG_STATE:
            return "LUX_WRONG_STATE";
        case LUX_NOT_SUPPORTED:
            return "LUX_NOT_SUPPORTED";
        case LUX_INVALID_POINTER:
            return "LUX_INVALID_POINTER";
        case LUX_UNKNOWN_PROPERTY:
            return "LUX_UNKNOWN_PROPERTY";
        case LUX_INVALID_TYPE:
            return "LUX_INVALID_TYPE";
        case LUX_NO_DEVICE:
            return "LUX_NO_DEVICE";
        case LUX_NOT_FOUND:
            return "LUX_NOT_FOUND";
        case LUX_VERSION_TOO_OLD:
            return "LUX_VERSION_TOO_OLD";
        case LUX_INPUT_FULL:
            return "LUX_INPUT_FULL";
    }
    return "unknown result";
}

const char* Trace::GetSurfaceFormatName(LUXSurfaceFormat format) {
    switch (format) {
        case LUX_SURFACE_UNKNOWN:
            return "UNKNOWN";
        case LUX_SURFACE_NV12:
            return "NV12";
        case LUX_SURFACE_BGRA:
            return "BGRA";
        case LUX_SURFACE_P010:
            return "P010";
        case LUX_SURFACE_R10G10B10A2:
            return "R10G10B10A2";
        case LUX_SURFACE_RGBA_F16:
            return "RGBA_F16";
    }
    return "unknown format";
}

void TraceLine(LUXTraceLevel level, const char* format, ...) {
    std::array<char, 512> message{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message.data(), message.size(), format, arguments);
    va_end(arguments);
    Trace::Instance().TraceText("runtime/software", 0, level, "luxrt", message.data());
}

}  // namespace luxrt
