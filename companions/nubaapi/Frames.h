// The frames between the library and the cloud: a type, the number of a stream, a length, and so many bytes.
// Numbers are big-endian. docs/cloud-library.md lists them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

enum class FrameType : uint8_t {
    Hello = 1,    // to the cloud, once: this host's name
    Open = 2,     // to this host: "host:port"
    Opened = 3,   // the stream's target is connected
    Refused = 4,  // it is not: the reason
    Data = 5,
    Close = 6,   // the stream is over, both ways
    Credit = 7,  // so many more bytes may follow: 4 bytes
    Ping = 8,
    Pong = 9,
};

struct Frame {
    FrameType type;
    uint32_t stream;
    std::string payload;
};

inline constexpr size_t kMaxPayload = 16384;
// The bytes of a stream that may be on their way in one direction.
inline constexpr uint32_t kWindow = 262144;

std::string Encode(FrameType type, uint32_t stream, std::string_view payload = {});
std::string Number(uint32_t number);
// 0 for a text that is no number.
uint32_t NumberOf(std::string_view bytes);

// Takes the frames out of a stream of bytes.
class FrameReader {
  public:
    void Feed(std::string_view bytes) { m_bytes.append(bytes); }
    // Nothing until the next frame is complete. Sets `broken` for a frame that is too long.
    std::optional<Frame> Next(bool& broken);

  private:
    std::string m_bytes;
};
