// Where a viewer's keys and mouse go.
#pragma once

#include <cstdint>

namespace mpm {

class ViewerInput {
  public:
    virtual ~ViewerInput() = default;  // releases what is still held
    // A key by its X keysym. These throw std::runtime_error when they cannot act.
    virtual void Key(bool down, uint32_t keysym) = 0;
    // The buttons that are down, bit 0 the left one, at a place on a picture of this size.
    virtual void Pointer(uint8_t buttons, int x, int y, int width, int height) = 0;
};

}  // namespace mpm
