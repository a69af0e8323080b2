// A ring of memory that two processes share: one puts in bytes, the other takes them in the same order. How
// the other process learns where they are is up to its users.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace testbed {

// A ring has one producer and one consumer, each with one thread at a time. Zeroed memory is an empty ring.
class SharedRing {
  public:
    static constexpr uint32_t kSize = 1u << 21;  // bytes, a power of two

    // Where bytes lie. It grows with each byte and may wrap; an empty ring begins again at 0.
    using Position = uint32_t;

    // Producer: copies the bytes into the ring, one part behind the other. Nothing when there is no room.
    std::optional<Position> Put(std::span<const uint8_t> first, std::span<const uint8_t> second = {});
    // Producer: takes back the bytes that it has put in last, before the consumer learns of them.
    void TakeBack(Position begin) { m_end = begin; }
    // Consumer: the bytes; none when the producer cannot have put them there.
    std::span<const uint8_t> Get(Position begin, uint32_t size) const;
    // Consumer: frees these bytes and all before them.
    void Release(Position begin, uint32_t size) { m_begin.store(begin + size, std::memory_order_release); }

  private:
    // Where the bytes begin that are not released. The consumer's, and the producer's while the ring is
    // empty.
    std::atomic<Position> m_begin;
    Position m_end;  // the producer's
    alignas(64) uint8_t m_bytes[kSize];
};

}  // namespace testbed
