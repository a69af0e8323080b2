// The records of the firmware-side KVM: its peer, the host's capabilities, the display, and the encoded
// frames. Packed and little-endian, as on the wire.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mailbox/RecordFields.h"

#pragma pack(push, 1)

// The payload of MPM_ZEL_CMD_KVM_IP_PORT_INFO: the only viewer that may connect.
struct KvmPeer {
    uint32_t address;  // IPv4, network byte order
    uint32_t port;
};
static_assert(sizeof(KvmPeer) == 8);
RECORD_FIELDS(KvmPeer, FIELD_AS(address, Address), FIELD(port));

// The payload of MPM_ZEL_SAFEBOOT.
struct SafebootState {
    uint32_t state;  // 1 connected, 2 disconnected
};
static_assert(sizeof(SafebootState) == 4);
RECORD_FIELDS(SafebootState, FIELD(state));

struct CapabilityConfigRecord {
    uint32_t encode;  // 1: the host can encode its screen
};
static_assert(sizeof(CapabilityConfigRecord) == 4);
RECORD_FIELDS(CapabilityConfigRecord, FIELD(encode));

struct DisplayConfigRecord {
    uint32_t width;  // pixels
    uint32_t height;
};
static_assert(sizeof(DisplayConfigRecord) == 8);
RECORD_FIELDS(DisplayConfigRecord, FIELD(width), FIELD(height));

// The header of the input of WriteEncodedBuffer; the bytes of the chunk follow.
struct EncodedFrameChunk {
    static constexpr size_t kMaxData = 524288;
    uint32_t RequiredChunk;  // chunks still to come, this one included
    uint32_t ChunkSize;      // bytes behind this head
    uint32_t FrameSize;      // bytes of the whole frame
};
static_assert(sizeof(EncodedFrameChunk) == 12);
RECORD_FIELDS(EncodedFrameChunk, FIELD(RequiredChunk), FIELD(ChunkSize), FIELD(FrameSize));

// The input of WriteEncodedBuffer: the head, then at least one byte. A chunk without data is a bare head,
// which is the input of SendEncodedDrvFrameBuffer.
struct EncodedFrame {};
template <>
struct RecordRows<EncodedFrame> {
    static constexpr RecordLayout kLayout{"EncodedFrame", sizeof(EncodedFrameChunk) + 1,
                                          sizeof(EncodedFrameChunk) + EncodedFrameChunk::kMaxData,
                                          RecordRows<EncodedFrameChunk>::kFields};
};

#pragma pack(pop)
