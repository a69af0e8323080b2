// Memory that can't be had: for as long as it lives, one new (std::nothrow) of this many bytes gives null,
// the nth from its beginning on.
#pragma once

#include <cstddef>

class RefusedMemory {
  public:
    explicit RefusedMemory(size_t bytes, size_t nth = 1);
    ~RefusedMemory();
    RefusedMemory(const RefusedMemory&) = delete;
    RefusedMemory& operator=(const RefusedMemory&) = delete;
};
