#include "firmware/screen/IvfFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace mpm {

namespace {

#pragma pack(push, 1)
struct FileHead {
    char signature[4] = {'D', 'K', 'I', 'F'};
    uint16_t version = 0;
    uint16_t headSize = 32;
    char codec[4] = {'A', 'V', '0', '1'};
    uint16_t width = 0, height = 0;
    uint32_t timeUnits = 1000, perSeconds = 1;
    uint32_t frames = 0;
    uint32_t unused = 0;
};
static_assert(sizeof(FileHead) == 32);

struct FrameHead {
    uint32_t size;
    uint64_t time;
};
static_assert(sizeof(FrameHead) == 12);
#pragma pack(pop)

}  // namespace

IvfFile::IvfFile(const std::string& path, uint32_t width, uint32_t height)
    : m_path(path), m_file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
    if (!m_file) Fail(std::strerror(errno));
    FileHead head;
    head.width = uint16_t(std::min<uint32_t>(width, UINT16_MAX));
    head.height = uint16_t(std::min<uint32_t>(height, UINT16_MAX));
    Write(&head, sizeof head, 0);
    m_size = sizeof head;
}

void IvfFile::Add(std::span<const uint8_t> frame, std::chrono::milliseconds time) {
    const FrameHead head{uint32_t(frame.size()), uint64_t(time.count())};
    if (m_size + sizeof head + frame.size() > kMaxSize) Fail("it has reached its largest size");
    Write(frame.data(), frame.size(), m_size + sizeof head);
    Write(&head, sizeof head, m_size);
    m_size += sizeof head + frame.size();
    ++m_frames;
    Write(&m_frames, sizeof m_frames, offsetof(FileHead, frames));
}

void IvfFile::Write(const void* bytes, size_t size, uint64_t at) {
    for (size_t done = 0; done < size;) {
        const ssize_t count =
            pwrite(m_file.Get(), static_cast<const char*>(bytes) + done, size - done, off_t(at + done));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) Fail(std::strerror(errno));
        done += size_t(count);
    }
}

void IvfFile::Fail(const std::string& why) const {
    throw std::runtime_error("cannot write " + m_path + ": " + why);
}

}  // namespace mpm
