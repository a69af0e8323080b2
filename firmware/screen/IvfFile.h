// A file of AV1 frames in the IVF container, which players and decoders read.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

#include "testbed/Descriptor.h"

namespace mpm {

class IvfFile {
  public:
    // A file does not grow beyond this.
    static constexpr uint64_t kMaxSize = 4ull << 30;

    // Replaces the file. Throws std::runtime_error with the reason.
    IvfFile(const std::string& path, uint32_t width, uint32_t height);
    // The file is complete after each call. Throws as above.
    void Add(std::span<const uint8_t> frame, std::chrono::milliseconds time);
    uint32_t Frames() const { return m_frames; }

  private:
    void Write(const void* bytes, size_t size, uint64_t at);
    [[noreturn]] void Fail(const std::string& why) const;

    const std::string m_path;
    testbed::Descriptor m_file;
    uint64_t m_size = 0;
    uint32_t m_frames = 0;
};

}  // namespace mpm
