// The runtime's trace: lines in the file that the environment variable LUXRT_TRACE names.
#pragma once

#include <array>
#include <atomic>
#include <mutex>

#include "lux/Interfaces.h"

namespace luxrt {

class Trace : public lux::LUXTrace {
  public:
    // Null or an empty path means that lines go nowhere. When the file has reached `limit` bytes, it is
    // renamed to PATH.1 in place of an earlier one, and a new file begins.
    explicit Trace(const char* path, long limit = 32L * 1024 * 1024);
    // That of this process. It has nothing to free, so that it serves until the library is unloaded.
    static Trace& Instance();

    void EnableAsync(bool enable) override;
    lux::LUX_RESULT EnableWriter(const wchar_t* writer, bool enable) override;
    void TraceText(const char* file, int32_t line, lux::LUXTraceLevel level, const char* scope,
                   const char* message) override;
    const char* GetResultText(lux::LUX_RESULT result) override;
    const char* GetSurfaceFormatName(lux::LUXSurfaceFormat format) override;

  private:
    static constexpr size_t kMostPath = 1024;

    std::array<char, kMostPath> m_path{};
    long m_limit;
    std::atomic<bool> m_enabled;
    std::mutex m_mutex;
};

// Writes a line of the runtime itself, with the scope "luxrt".
[[gnu::format(printf, 2, 3)]] void TraceLine(lux::LUXTraceLevel level, const char* format, ...);

}  // namespace luxrt
