// The owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace testbed {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int value) : m_value(value) {}
    Descriptor(Descriptor&& other) noexcept : m_value(std::exchange(other.m_value, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_value, other.m_value);
        return *this;
    }
    ~Descriptor() { Close(); }
    void Close() {
        if (m_value >= 0) close(std::exchange(m_value, -1));
    }
    int Get() const { return m_value; }
    // Gives it to another owner.
    int Release() { return std::exchange(m_value, -1); }
    explicit operator bool() const { return m_value >= 0; }

  private:
    int m_value = -1;
};

}  // namespace testbed
