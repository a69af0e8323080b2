// The memory that the runtime shares with the program on the user's desktop, which captures the screen. The
// program runs with the user's rights, so nothing that it writes is trusted.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>

#include "runtime/software/Surface.h"

namespace luxrt {

enum class ScreenState : uint32_t {
    // The pixels are those of the picture before.
    Unchanged = 1,
    Changed = 2,
    // The picture does not fit into the shared memory; width and height are valid, the pixels are not.
    TooLarge = 3,
    // The screen cannot be read, because it is locked or belongs to another desktop.
    Blocked = 4,
};

// Stands at the start of the memory; the pixels follow.
struct SharedHeader {
    // Written by the runtime.
    uint64_t capacity;
    std::atomic<uint32_t> request;
    // Written by the program, the number of the answered request at last.
    std::atomic<uint32_t> answer;
    std::atomic<uint32_t> state;
    std::atomic<int32_t> width;
    std::atomic<int32_t> height;
};
static_assert(std::atomic<uint32_t>::is_always_lock_free);

constexpr size_t kSharedPixels = 64;
static_assert(sizeof(SharedHeader) <= kSharedPixels);
constexpr size_t SharedBytes(size_t capacity) {
    return kSharedPixels + capacity;
}

// The runtime's side. `memory` has SharedBytes(capacity) bytes, which are zero at first.
class SharedPicture {
  public:
    SharedPicture(void* memory, size_t capacity)
        : m_header(static_cast<SharedHeader*>(memory)), m_capacity(capacity) {
        m_header->capacity = capacity;
    }

    // Asks for a picture. There is no other request on its way.
    void Request() { m_header->request.store(++m_requested, std::memory_order_release); }
    bool Answered() const { return m_header->answer.load(std::memory_order_acquire) == m_requested; }

    struct Answer {
        ScreenState state;
        // Of a changed picture: fits into the memory. Of one that is too large: within the limits of a
        // picture.
        lux::LUXSize size;
    };
    // An answer that cannot be is a blocked screen.
    Answer Read() const {
        const auto state = static_cast<ScreenState>(m_header->state.load());
        const lux::LUXSize size{m_header->width.load(), m_header->height.load()};
        const bool fits = IsPictureSize(size) && Surface::Bytes(lux::LUX_SURFACE_BGRA, size) <= m_capacity;
        if (state == ScreenState::Unchanged || (state == ScreenState::Changed && fits) ||
            (state == ScreenState::TooLarge && IsPictureSize(size) && !fits)) {
            return {state, size};
        }
        return {ScreenState::Blocked, {}};
    }

    // Copies the pixels of a picture of this size, which Read has returned.
    void Copy(uint8_t* pixels, lux::LUXSize size) const {
        std::memcpy(pixels, reinterpret_cast<const uint8_t*>(m_header) + kSharedPixels,
                    Surface::Bytes(lux::LUX_SURFACE_BGRA, size));
    }

  private:
    SharedHeader* m_header;
    size_t m_capacity;
    uint32_t m_requested = 0;
};

// The program's side.
class SharedPictureWriter {
  public:
    explicit SharedPictureWriter(void* memory) : m_header(static_cast<SharedHeader*>(memory)) {}

    uint64_t Capacity() const { return m_header->capacity; }
    // The request that has to be answered.
    uint32_t Request() const { return m_header->request.load(std::memory_order_acquire); }
    uint8_t* Pixels() { return reinterpret_cast<uint8_t*>(m_header) + kSharedPixels; }

    // Copies the picture, which fits. Returns whether it differs from the one before.
    bool Store(const uint8_t* pixels, lux::LUXSize size) {
        const size_t row = static_cast<size_t>(size.width) * 4;
        bool changed = m_stored != size;
        uint8_t* to = Pixels();
        for (int32_t y = 0; y < size.height; ++y, to += row, pixels += row) {
            if (changed || std::memcmp(to, pixels, row) != 0) {
                std::memcpy(to, pixels, row);
                changed = true;
            }
        }
        m_stored = size;
        return changed;
    }

    void Answer(uint32_t request, ScreenState state, lux::LUXSize size) {
        m_header->state = static_cast<uint32_t>(state);
        m_header->width = size.width;
        m_header->height = size.height;
        m_header->answer.store(request, std::memory_order_release);
    }

  private:
    SharedHeader* m_header;
    lux::LUXSize m_stored{};
};

}  // namespace luxrt
