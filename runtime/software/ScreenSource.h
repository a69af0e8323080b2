// Where the capture's pictures come from.
#pragma once

#include <cstdint>
#include <memory>

#include "lux/Ref.h"
#include "runtime/software/Surface.h"

namespace luxrt {

// No method blocks. Calls come from one thread at a time.
class ScreenSource {
  public:
    ScreenSource() = default;
    ScreenSource(const ScreenSource&) = delete;
    ScreenSource& operator=(const ScreenSource&) = delete;
    virtual ~ScreenSource() = default;

    // Whether the screen shows something that Take has not returned yet.
    virtual bool Changed() = 0;
    // Returns the screen as it is now, in BGRA. Null: it is on its way, and the next call continues.
    virtual lux::Ref<Surface> Take() = 0;
    // False when the screen is gone for good; another source has to be opened.
    virtual bool Alive() = 0;
};

// Opens the desktop of this machine. Returns null when there is none, and traces the reason.
std::unique_ptr<ScreenSource> OpenDesktopScreen(int64_t monitor);

// Opens what the environment variable LUXRT_SCREEN asks for: "test" or "test:WIDTHxHEIGHT" is the test
// picture; everything else is the desktop.
std::unique_ptr<ScreenSource> OpenScreen(int64_t monitor);

}  // namespace luxrt
