#include "runtime/software/Surface.h"

#include <utility>

namespace luxrt {

using namespace lux;

Surface::Surface(LUXSurfaceFormat format, LUXSize size, std::shared_ptr<Block> block)
    : m_format(format), m_block(std::move(block)) {
    uint8_t* const bytes = m_block->Bytes();
    if (format == LUX_SURFACE_NV12) {
        const int32_t pitch = Nv12Pitch(size.width);
        m_planes = 2;
        m_plane[0].Set(this, size, pitch, bytes);
        m_plane[1].Set(this, {Half(size.width), Half(size.height)}, pitch,
                       bytes + static_cast<size_t>(pitch) * static_cast<size_t>(size.height));
    } else {
        m_planes = 1;
        m_plane[0].Set(this, size, size.width * 4, bytes);
    }
}

LUX_RESULT Surface::SetProperty(const wchar_t* name, const LUXVariant* value) {
    return m_properties.Set(name, value);
}

LUX_RESULT Surface::GetProperty(const wchar_t* name, LUXVariant* value) {
    return m_properties.Get(name, value);
}

LUXPlane* Surface::GetPlane(size_t index) {
    return index < m_planes ? &m_plane.at(index) : nullptr;
}

void* Surface::Find(const LUXInterfaceId& id) {
    return id == LUXSurface::kId ? static_cast<LUXSurface*>(this) : nullptr;
}

void Surface::Plane::Set(Surface* owner, LUXSize size, int32_t pitch, uint8_t* bytes) {
    m_owner = owner;
    m_size = size;
    m_pitch = pitch;
    m_bytes = bytes;
}

LUX_RESULT Surface::Plane::QueryInterface(const LUXInterfaceId* id, void** result) {
    if (!id || !result) {
        return LUX_INVALID_POINTER;
    }
    if (*id != LUXPlane::kId) {
        *result = nullptr;
        return LUX_NO_INTERFACE;
    }
    Acquire();
    *result = static_cast<LUXPlane*>(this);
    return LUX_OK;
}

Ref<Surface> MakeSurface(BlockPool& pool, LUXSurfaceFormat format, LUXSize size) {
    std::shared_ptr<Block> block = pool.Take(Surface::Bytes(format, size));
    return block ? Ref<Surface>::Adopt(new Surface(format, size, std::move(block))) : Ref<Surface>();
}

PlaneView ViewPlane(LUXSurface& surface, size_t index) {
    LUXPlane* const plane = surface.GetPlane(index);
    if (!plane) {
        return {};
    }
    return {static_cast<uint8_t*>(plane->GetNative()),
            plane->GetPitch(),
            {plane->GetWidth(), plane->GetHeight()}};
}

}  // namespace luxrt
