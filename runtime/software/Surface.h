// A picture in system memory, BGRA or NV12.
#pragma once

#include <array>
#include <memory>

#include "lux/Ref.h"
#include "runtime/software/Memory.h"
#include "runtime/software/Object.h"
#include "runtime/software/Properties.h"

namespace luxrt {

// The largest width and height of a picture.
constexpr int32_t kMostPixels = 16384;

constexpr bool IsPictureSize(lux::LUXSize size) {
    return size.width > 0 && size.height > 0 && size.width <= kMostPixels && size.height <= kMostPixels;
}

constexpr int32_t Half(int32_t length) {
    return (length + 1) / 2;
}
// Vector instructions work on 16 bytes at least.
constexpr int32_t Nv12Pitch(int32_t width) {
    return (width + 15) / 16 * 16;
}

class Surface : public Object<lux::LUXSurface> {
  public:
    // The bytes that a picture of this format and size takes. BGRA has 4 bytes a pixel without gaps; NV12 has
    // the Y plane, then the plane of U and V in pairs, both with rows of a multiple of 16 bytes.
    static constexpr size_t Bytes(lux::LUXSurfaceFormat format, lux::LUXSize size) {
        const auto height = static_cast<size_t>(size.height);
        return format == lux::LUX_SURFACE_NV12 ? static_cast<size_t>(Nv12Pitch(size.width)) *
                                                     (height + static_cast<size_t>(Half(size.height)))
                                               : static_cast<size_t>(size.width) * 4 * height;
    }
    // `block` has Bytes() at least.
    Surface(lux::LUXSurfaceFormat format, lux::LUXSize size, std::shared_ptr<Block> block);

    lux::LUX_RESULT SetProperty(const wchar_t* name, const lux::LUXVariant* value) override;
    lux::LUX_RESULT GetProperty(const wchar_t* name, lux::LUXVariant* value) override;
    lux::LUXSurfaceFormat GetFormat() override { return m_format; }
    size_t GetPlanesCount() override { return m_planes; }
    lux::LUXPlane* GetPlane(size_t index) override;

  private:
    // Shares the reference count of the surface.
    class Plane : public lux::LUXPlane {
      public:
        void Set(Surface* owner, lux::LUXSize size, int32_t pitch, uint8_t* bytes);
        long Acquire() override { return m_owner->Acquire(); }
        long Release() override { return m_owner->Release(); }
        lux::LUX_RESULT QueryInterface(const lux::LUXInterfaceId* id, void** result) override;
        int32_t GetWidth() override { return m_size.width; }
        int32_t GetHeight() override { return m_size.height; }
        int32_t GetPitch() override { return m_pitch; }
        void* GetNative() override { return m_bytes; }

      private:
        Surface* m_owner = nullptr;
        lux::LUXSize m_size{};
        int32_t m_pitch = 0;
        uint8_t* m_bytes = nullptr;
    };
    void* Find(const lux::LUXInterfaceId& id) override;

    lux::LUXSurfaceFormat m_format;
    std::shared_ptr<Block> m_block;
    size_t m_planes = 0;
    std::array<Plane, 2> m_plane;
    Properties m_properties{lux::kSurfaceProperties};
};

// Returns null when the pool has no memory for it.
lux::Ref<Surface> MakeSurface(BlockPool& pool, lux::LUXSurfaceFormat format, lux::LUXSize size);

// The place and size of one plane, of whatever surface.
struct PlaneView {
    uint8_t* bytes;
    int32_t pitch;
    lux::LUXSize size;
};
// Returns a view without bytes when the surface has no such plane in system memory.
PlaneView ViewPlane(lux::LUXSurface& surface, size_t index);

}  // namespace luxrt
