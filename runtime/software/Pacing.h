// When the capture delivers a picture. All times are in units of 100 ns.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "lux/Types.h"

namespace luxrt {

constexpr int64_t kMillisecond = 10'000;
constexpr int64_t kSecond = 1000 * kMillisecond;

class Pacing {
  public:
    // An unchanged picture is repeated 10 ms before its 500 ms have passed, because the caller looks every
    // millisecond and may be late.
    static constexpr int64_t kRepeatAfter = 490 * kMillisecond;

    explicit Pacing(lux::LUXRate rate, bool repeatAlways)
        : m_period(kSecond * rate.denominator / rate.numerator),
          m_repeatAfter(repeatAlways ? m_period : kRepeatAfter) {}

    // Whether the frame rate lets a picture through.
    bool Due(int64_t now) const { return now >= m_next; }
    // Whether the picture before has to be repeated if it has not changed.
    bool RepeatDue(int64_t now) const { return now >= m_last + m_repeatAfter; }

    void Delivered(int64_t now) {
        // A caller that asks at exactly this rate is sometimes early and sometimes late. After a late picture
        // the next one comes up to half a period early, so that the caller keeps its rate.
        m_next = m_first ? now + m_period : std::max(m_next + m_period, now + m_period / 2);
        m_first = false;
        m_last = now;
    }

  private:
    int64_t m_period;
    int64_t m_repeatAfter;
    bool m_first = true;
    int64_t m_next = std::numeric_limits<int64_t>::min();
    int64_t m_last = 0;
};

}  // namespace luxrt
