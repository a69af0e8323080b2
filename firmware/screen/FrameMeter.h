// What the frames of a session measure: their rate, their bytes, and how long each took.
#pragma once

#include <json/json.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace mpm {

// The newest durations, for their median and 95th percentile.
class Durations {
  public:
    static constexpr size_t kKept = 4096;

    void Add(std::chrono::steady_clock::duration duration);
    // {"median": 12.1, "p95": 20.3, "max": 31.0}, in milliseconds; empty without durations.
    Json::Value ToJson() const;

  private:
    std::vector<float> m_milliseconds;
    size_t m_next = 0;
};

class FrameMeter {
  public:
    using Clock = std::chrono::steady_clock;

    // One frame: when its first chunk was asked for, and when its last one came.
    void Add(Clock::time_point asked, Clock::time_point complete, size_t bytes, uint32_t chunks);
    uint64_t Frames() const { return m_frames; }
    Json::Value ToJson() const;

  private:
    uint64_t m_frames = 0, m_bytes = 0, m_chunks = 0;
    size_t m_last = 0, m_largest = 0;
    Clock::time_point m_firstAsked, m_lastAsked;
    Durations m_durations;
};

}  // namespace mpm
