#include "firmware/screen/Av1Decoder.h"

#include <dav1d/dav1d.h>

#include <cstring>
#include <stdexcept>

namespace mpm {

namespace {

[[noreturn]] void Fail(int result) {
    throw std::runtime_error(std::string("it is no AV1 that can be decoded: ") + std::strerror(-result));
}

}  // namespace

Av1Decoder::Av1Decoder() {
    Dav1dSettings settings;
    dav1d_default_settings(&settings);
    settings.n_threads = 2;
    settings.max_frame_delay = 1;
    settings.frame_size_limit = kMaxPixels;
    settings.logger.callback = nullptr;
    if (const int result = dav1d_open(&m_context, &settings); result < 0)
        throw std::runtime_error(std::string("cannot start the AV1 decoder: ") + std::strerror(-result));
}

Av1Decoder::~Av1Decoder() {
    dav1d_close(&m_context);
}

void Av1Decoder::Reset() {
    dav1d_flush(m_context);
}

// Null when the decoder wants more data.
std::shared_ptr<const Picture> Av1Decoder::NextPicture() {
    Dav1dPicture picture{};
    const int result = dav1d_get_picture(m_context, &picture);
    if (result == DAV1D_ERR(EAGAIN)) return nullptr;
    if (result < 0) Fail(result);
    return std::make_shared<const Picture>(picture);
}

std::shared_ptr<const Picture> Av1Decoder::Decode(std::vector<uint8_t> frame) {
    auto kept = std::make_unique<std::vector<uint8_t>>(std::move(frame));
    if (kept->empty()) throw std::runtime_error("it is empty");
    Dav1dData data{};
    const auto free = [](const uint8_t*, void* vector) { delete static_cast<std::vector<uint8_t>*>(vector); };
    if (dav1d_data_wrap(&data, kept->data(), kept->size(), free, kept.get()) < 0)
        throw std::runtime_error("there is no memory to decode it");
    (void)kept.release();  // `free` deletes it
    std::shared_ptr<const Picture> newest;
    try {
        while (data.sz > 0) {
            const size_t before = data.sz;
            const int result = dav1d_send_data(m_context, &data);
            if (result < 0 && result != DAV1D_ERR(EAGAIN)) Fail(result);
            const auto picture = NextPicture();
            if (picture) newest = picture;
            if (data.sz == before && !picture) throw std::runtime_error("the AV1 decoder does not go on");
        }
        while (const auto picture = NextPicture())
            newest = picture;
    } catch (...) {
        dav1d_data_unref(&data);
        throw;
    }
    if (!newest) throw std::runtime_error("it has no picture");
    return newest;
}

}  // namespace mpm
