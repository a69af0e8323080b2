#include "firmware/screen/Picture.h"

#include <libyuv/convert_argb.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace mpm {

namespace {

const libyuv::YuvConstants& ColoursOf(const Dav1dPicture& picture) {
    const bool full = picture.seq_hdr->color_range != 0;
    switch (picture.seq_hdr->mtrx) {
        case DAV1D_MC_BT709:
            return full ? libyuv::kYuvF709Constants : libyuv::kYuvH709Constants;
        case DAV1D_MC_BT2020_NCL:
            return full ? libyuv::kYuvV2020Constants : libyuv::kYuv2020Constants;
        default:
            return full ? libyuv::kYuvJPEGConstants : libyuv::kYuvI601Constants;
    }
}

}  // namespace

Picture::Picture(const Dav1dPicture& picture) : m_picture(picture) {
    std::string unknown;
    if (m_picture.p.bpc != 8) unknown = std::to_string(m_picture.p.bpc) + " bits a colour";
    if (m_picture.seq_hdr->mtrx == DAV1D_MC_IDENTITY) unknown = "RGB";
    if (unknown.empty()) return;
    dav1d_picture_unref(&m_picture);
    throw std::runtime_error("pictures of " + unknown + " are not shown");
}

Picture::~Picture() {
    dav1d_picture_unref(&m_picture);
}

int Picture::Planes() const {
    return m_picture.p.layout == DAV1D_PIXEL_LAYOUT_I400 ? 1 : 3;
}

bool Picture::IsLike(const Picture& other) const {
    return Width() == other.Width() && Height() == other.Height() &&
           m_picture.p.layout == other.m_picture.p.layout &&
           &ColoursOf(m_picture) == &ColoursOf(other.m_picture);
}

Rectangle Picture::PartOf(int plane, const Rectangle& where) const {
    const int across = plane > 0 && m_picture.p.layout != DAV1D_PIXEL_LAYOUT_I444;
    const int down = plane > 0 && m_picture.p.layout == DAV1D_PIXEL_LAYOUT_I420;
    return {where.x >> across, where.y >> down, (where.width + across) >> across,
            (where.height + down) >> down};
}

const uint8_t* Picture::At(int plane, const Rectangle& part) const {
    return static_cast<const uint8_t*>(m_picture.data[plane]) + part.y * Stride(plane) + part.x;
}

bool Picture::IsSameIn(const Rectangle& where, const Picture& other) const {
    for (int plane = 0; plane < Planes(); ++plane) {
        const Rectangle part = PartOf(plane, where);
        const uint8_t *mine = At(plane, part), *its = other.At(plane, part);
        for (int row = 0; row < part.height; ++row)
            if (std::memcmp(mine + row * Stride(plane), its + row * other.Stride(plane),
                            size_t(part.width)) != 0)
                return false;
    }
    return true;
}

void Picture::ConvertTo(uint8_t* pixels, size_t stride, const Rectangle& where) const {
    uint8_t* to = pixels + size_t(where.y) * stride + size_t(where.x) * 4;
    const libyuv::YuvConstants& colours = ColoursOf(m_picture);
    const uint8_t* y = At(0, where);
    if (m_picture.p.layout == DAV1D_PIXEL_LAYOUT_I400) {
        libyuv::I400ToARGBMatrix(y, int(Stride(0)), to, int(stride), &colours, where.width, where.height);
        return;
    }
    const auto convert = m_picture.p.layout == DAV1D_PIXEL_LAYOUT_I420   ? libyuv::I420ToARGBMatrix
                         : m_picture.p.layout == DAV1D_PIXEL_LAYOUT_I422 ? libyuv::I422ToARGBMatrix
                                                                         : libyuv::I444ToARGBMatrix;
    const Rectangle part = PartOf(1, where);
    convert(y, int(Stride(0)), At(1, part), int(Stride(1)), At(2, part), int(Stride(2)), to, int(stride),
            &colours, where.width, where.height);
}

void Picture::SaveAs(const std::string& path) const {
    std::ofstream file(path, std::ios::binary);
    file << "P6\n" << Width() << ' ' << Height() << "\n255\n";
    const size_t stride = size_t(Width()) * 4;
    std::vector<uint8_t> pixels(stride * size_t(Height()));
    ConvertTo(pixels.data(), stride, {0, 0, Width(), Height()});
    std::vector<char> row(size_t(Width()) * 3);
    for (size_t y = 0; y < size_t(Height()); ++y) {
        for (size_t x = 0; x < size_t(Width()); ++x)
            for (size_t colour = 0; colour < 3; ++colour)
                row[x * 3 + colour] = char(pixels[y * stride + x * 4 + 2 - colour]);
        file.write(row.data(), std::streamsize(row.size()));
    }
    file.close();
    if (!file) throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
}

}  // namespace mpm
