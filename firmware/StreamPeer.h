// Who answers the bytes of one connection that the host forwards. Lives as long as the connection, on the
// event loop's thread.
#pragma once

#include <cstdint>
#include <span>

namespace mpm {

class StreamPeer {
  public:
    virtual ~StreamPeer() = default;
    virtual void Take(std::span<const uint8_t> bytes) = 0;
    // The host, which was behind with its reading, has caught up.
    virtual void HostHasRead() {}
};

}  // namespace mpm
