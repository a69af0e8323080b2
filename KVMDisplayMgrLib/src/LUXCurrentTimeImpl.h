// The clock that the capture takes its times from.
#pragma once

#include <atomic>

#include "base/SteadyTime.h"
#include "lux/Interfaces.h"

namespace lux {

// Begins with one reference, which belongs to the creator.
class LUXCurrentTimeImpl final : public LUXCurrentTime {
  public:
    long Acquire() override { return ++m_references; }
    long Release() override {
        const long left = --m_references;
        if (left == 0) delete this;
        return left;
    }
    LUX_RESULT QueryInterface(const LUXInterfaceId* id, void** result) override {
        if (!id || !result) return LUX_INVALID_POINTER;
        *result = nullptr;
        if (*id != kId) return LUX_NO_INTERFACE;
        Acquire();
        *result = static_cast<LUXCurrentTime*>(this);
        return LUX_OK;
    }
    int64_t Get() override { return static_cast<int64_t>(SteadyTime() / 100); }

  private:
    ~LUXCurrentTimeImpl() = default;

    std::atomic<long> m_references{1};
};

}  // namespace lux
