#include "runtime/software/TestPicture.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace luxrt {

using namespace lux;

namespace {

// BGRA as it lies in memory, read as a little-endian number.
constexpr std::array<uint32_t, 8> kBars{0xffbfbfbf, 0xffbfbf00, 0xff00bfbf, 0xff00bf00,
                                        0xffbf00bf, 0xffbf0000, 0xff0000bf, 0xff202020};
constexpr uint32_t kWhite = 0xffffffff;
constexpr uint32_t kBlack = 0xff000000;
constexpr uint32_t kStep = 4;

// Digits of 3 by 5 cells, from the highest bit: rows from the top, cells from the left.
constexpr std::array<uint16_t, 10> kDigits{
    0b111101101101111, 0b010110010010111, 0b111001111100111, 0b111001111001111, 0b101101111001001,
    0b111100111001111, 0b111100111101111, 0b111001001001001, 0b111101111101111, 0b111101111001111};
constexpr int32_t kColumns = 3;
constexpr int32_t kRows = 5;

void Fill(uint8_t* pixels, LUXSize size, int32_t left, int32_t top, int32_t width, int32_t height,
          uint32_t colour) {
    const int32_t right = std::min(left + width, size.width);
    const int32_t bottom = std::min(top + height, size.height);
    for (int32_t y = top; y < bottom; ++y) {
        for (int32_t x = left; x < right; ++x) {
            std::memcpy(
                pixels +
                    (static_cast<size_t>(y) * static_cast<size_t>(size.width) + static_cast<size_t>(x)) * 4,
                &colour, 4);
        }
    }
}

}  // namespace

void PaintTestPicture(uint8_t* pixels, LUXSize size, uint32_t frame) {
    const auto width = static_cast<size_t>(size.width);
    for (size_t x = 0; x < width; ++x) {
        const size_t place = (x + size_t{frame} * kStep) % width;
        std::memcpy(pixels + x * 4, &kBars.at(place * kBars.size() / width), 4);
    }
    for (size_t y = 1; y < static_cast<size_t>(size.height); ++y) {
        std::memcpy(pixels + y * width * 4, pixels, width * 4);
    }
    const int32_t cell = std::max(1, size.height / 40);
    const std::string number = std::to_string(frame);
    const auto digits = static_cast<int32_t>(number.size());
    Fill(pixels, size, cell, cell, (digits * (kColumns + 1) + 1) * cell, (kRows + 2) * cell, kBlack);
    for (int32_t digit = 0; digit < digits; ++digit) {
        const unsigned cells = kDigits.at(static_cast<size_t>(number.at(static_cast<size_t>(digit)) - '0'));
        for (int32_t index = 0; index < kColumns * kRows; ++index) {
            if (cells >> (kColumns * kRows - 1 - index) & 1u) {
                Fill(pixels, size, (2 + digit * (kColumns + 1) + index % kColumns) * cell,
                     (2 + index / kColumns) * cell, cell, cell, kWhite);
            }
        }
    }
}

Ref<Surface> TestPicture::Take() {
    Ref<Surface> surface = MakeSurface(*m_pool, LUX_SURFACE_BGRA, m_size);
    PaintTestPicture(ViewPlane(*surface.Get(), 0).bytes, m_size, m_frame++);
    return surface;
}

}  // namespace luxrt
