// The records of the firmware-side KVM: its peer, the host's capabilities, the display, and the encoded
// frames. Packed and little-endian, as on the wire.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)

// The payload of MPM_ZEL_CMD_KVM_IP_PORT_INFO: the one console that may connect.
struct KvmPeer {
    uint32_t address;  // IPv4, network byte order
    uint32_t port;
};
static_assert(sizeof(KvmPeer) == 8);

// The payload of MPM_ZEL_SAFEBOOT.
struct SafebootState {
    uint32_t state;  // 1 connected, 2 disconnected
};
static_assert(sizeof(SafebootState) == 4);

struct CapabilityConfigRecord {
    uint32_t encode;  // 1: the host can encode its screen
};
static_assert(sizeof(CapabilityConfigRecord) == 4);

struct DisplayConfigRecord {
    uint32_t width;  // pixels
    uint32_t height;
};
static_assert(sizeof(DisplayConfigRecord) == 8);

// The head of what WriteEncodedBuffer sends; the bytes of the chunk follow.
struct EncodedFrameChunk {
    static constexpr size_t kMaxData = 524288;
    uint32_t RequiredChunk;  // chunks still to come, this one included
    uint32_t ChunkSize;      // bytes behind this head
    uint32_t FrameSize;      // bytes of the whole frame
};
static_assert(sizeof(EncodedFrameChunk) == 12);

#pragma pack(pop)
