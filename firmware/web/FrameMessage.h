// A frame of the screen as a binary message to a page.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

namespace mpm::web {

struct FrameHead {
    enum class Kind : uint8_t { Av1 = 1, Picture = 2 };
    static constexpr size_t kSize = 32;

    Kind kind = Kind::Av1;
    bool key = false;  // a page may begin here
    uint32_t width = 0, height = 0;
    uint32_t number = 0;
    std::chrono::system_clock::time_point asked, complete;

    // The head and room for so many bytes behind it.
    std::string Message(size_t dataSize) const;
};

// Whether a temporal unit of AV1 begins with what a decoder needs: the head of a sequence, and a key frame
// that is shown.
bool IsKeyFrame(std::span<const uint8_t> unit);

}  // namespace mpm::web
