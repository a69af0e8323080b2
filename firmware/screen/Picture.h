// One decoded picture. It does not change, and any thread may look at it.
#pragma once

#include <dav1d/dav1d.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace mpm {

struct Rectangle {
    int x, y, width, height;
};

class Picture {
  public:
    // Takes the picture over. Throws std::runtime_error for one that ConvertTo does not support: other than 8
    // bits, or RGB.
    explicit Picture(const Dav1dPicture& picture);
    ~Picture();
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    int Width() const { return m_picture.p.w; }
    int Height() const { return m_picture.p.h; }
    // Whether the other picture, of the same size and format, shows the same here. x and y are even.
    bool IsSameIn(const Rectangle& where, const Picture& other) const;
    bool IsLike(const Picture& other) const;  // in size, format and colours
    // Writes four bytes a pixel (blue, green, red, 255). `pixels` begins with the picture's first row; x and
    // y are even.
    void ConvertTo(uint8_t* pixels, size_t stride, const Rectangle& where) const;
    // Writes a PPM file. Throws std::runtime_error with the reason.
    void SaveAs(const std::string& path) const;

  private:
    // The plane's part of a rectangle, in samples of the plane.
    Rectangle PartOf(int plane, const Rectangle& where) const;
    const uint8_t* At(int plane, const Rectangle& part) const;
    ptrdiff_t Stride(int plane) const { return m_picture.stride[plane > 0]; }
    int Planes() const;

    Dav1dPicture m_picture;
};

}  // namespace mpm
