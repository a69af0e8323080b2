// A mapping of memory that two processes share, and its file, which one of them hands to the other.
#pragma once

#include <cstddef>
#include <utility>

#include "testbed/Descriptor.h"

namespace testbed {

// A file of zeroed memory that cannot become shorter. Empty when the system refuses it.
Descriptor MakeMemoryFile(size_t size);
// Maps the file; nullptr when it is shorter, or when its owner could still make it shorter.
void* MapMemoryFile(const Descriptor& file, size_t size);
void UnmapMemory(void* memory, size_t size);

// Owns the mapping of one T, whose zeroed memory has to be a valid one. May be empty.
template <class T>
class SharedMemory {
  public:
    SharedMemory() = default;
    explicit SharedMemory(const Descriptor& file)
        : m_object(static_cast<T*>(MapMemoryFile(file, sizeof(T)))) {}
    SharedMemory(SharedMemory&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    SharedMemory& operator=(SharedMemory&& other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~SharedMemory() {
        if (m_object) UnmapMemory(m_object, sizeof(T));
    }
    T* operator->() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

  private:
    T* m_object = nullptr;
};

}  // namespace testbed
