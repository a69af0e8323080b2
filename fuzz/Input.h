// Takes an input apart, front to back. What is read behind its end is 0, so that every input means something.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "fuzz/Target.h"

namespace fuzz {

class Input {
  public:
    explicit Input(Bytes bytes) : m_left(bytes) {}

    bool AtEnd() const { return m_left.empty(); }
    uint8_t Byte() {
        const Bytes one = Take(1);
        return one.empty() ? 0 : one[0];
    }
    // Little-endian.
    uint16_t Word() {
        const uint8_t low = Byte();
        return static_cast<uint16_t>(low | Byte() << 8);
    }
    uint32_t Number() {
        const uint32_t low = Word();
        return low | uint32_t{Word()} << 16;
    }
    // At most so many, fewer at the end.
    Bytes Take(size_t size) {
        const Bytes taken = m_left.first(std::min(size, m_left.size()));
        m_left = m_left.subspan(taken.size());
        return taken;
    }
    // As many as the byte in front says.
    Bytes Block() { return Take(Byte()); }
    // The same with two bytes in front.
    Bytes LongBlock() { return Take(Word()); }
    Bytes Rest() { return Take(m_left.size()); }

  private:
    Bytes m_left;
};

inline std::string TextOf(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace fuzz
