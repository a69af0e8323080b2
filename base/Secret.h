// Memory that holds a password or a key, and is overwritten before it is released.
#pragma once

#include <cstddef>
#include <memory>

// Writes zeros that the compiler cannot leave out.
inline void WipeMemory(void* memory, size_t size) {
    volatile unsigned char* byte = static_cast<unsigned char*>(memory);
    while (size-- > 0)
        *byte++ = 0;
}

// A value that is wiped when it ends. Copies would escape that.
template <class Value>
struct Wiped {
    Wiped() = default;
    ~Wiped() { WipeMemory(std::addressof(value), sizeof value); }
    Wiped(const Wiped&) = delete;
    Wiped& operator=(const Wiped&) = delete;

    Value value{};
};
