#include "testbed/SharedRing.h"

#include <cstring>

namespace testbed {

std::optional<SharedRing::Position> SharedRing::Put(std::span<const uint8_t> first,
                                                    std::span<const uint8_t> second) {
    const size_t size = first.size() + second.size();
    if (size > kSize) return std::nullopt;
    Position begin = m_begin.load(std::memory_order_acquire);
    Position at = m_end;
    // An empty ring begins anew, so that few bytes always use the same memory, which then stays in the
    // caches.
    if (begin == at) m_begin.store(begin = at = 0, std::memory_order_relaxed);
    if (at % kSize + size > kSize) at += kSize - at % kSize;
    if (at - begin > kSize - size) return std::nullopt;
    uint8_t* const bytes = m_bytes + at % kSize;
    std::memcpy(bytes, first.data(), first.size());
    if (!second.empty()) std::memcpy(bytes + first.size(), second.data(), second.size());
    m_end = at + static_cast<Position>(size);
    return at;
}

std::span<const uint8_t> SharedRing::Get(Position begin, uint32_t size) const {
    const uint32_t offset = begin % kSize;
    if (size > kSize - offset) return {};
    return {m_bytes + offset, size};
}

}  // namespace testbed
