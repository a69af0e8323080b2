// Who is shown the host's frames as they come, besides the viewer. Called on the firmware's thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>

#include "firmware/screen/Picture.h"

namespace mpm {

class ScreenObserver {
  public:
    struct Frame {
        std::span<const uint8_t> data;  // as the host has encoded it; borrowed
        uint32_t width, height;
        uint32_t number;  // in the stream, from 1
        std::chrono::system_clock::time_point asked, complete;
    };

    virtual ~ScreenObserver() = default;
    // The frames that follow do not build on those before.
    virtual void BeginStream() = 0;
    virtual void TakeFrame(const Frame& frame) = 0;
    // The newest decoded picture; some are passed over.
    virtual void TakePicture(std::shared_ptr<const Picture> picture) = 0;
};

}  // namespace mpm
