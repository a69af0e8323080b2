#include "tests/support/RefusedMemory.h"

#include <atomic>
#include <new>

namespace {

std::atomic<size_t> refusedBytes{0};
std::atomic<size_t> callsLeft{0};

bool IsRefused(size_t bytes) {
    return bytes == refusedBytes && --callsLeft == 0;
}

}  // namespace

RefusedMemory::RefusedMemory(size_t bytes, size_t nth) {
    callsLeft = nth;
    refusedBytes = bytes;
}

RefusedMemory::~RefusedMemory() {
    refusedBytes = 0;
}

void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
    if (IsRefused(bytes)) return nullptr;
    try {
        return operator new(bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* operator new[](size_t bytes, const std::nothrow_t&) noexcept {
    if (IsRefused(bytes)) return nullptr;
    try {
        return operator new[](bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
