// A hostile firmware's bytes as the gate in front of the mailbox driver takes them.
#include <cstring>
#include <vector>

#include "driver/gate/FrameInput.h"
#include "fuzz/Input.h"

namespace {
constexpr size_t kHeadroom = 8;
}

FUZZ_TARGET(gateframes) {
    fuzz::Input from(input);
    const size_t piece = from.Byte() + size_t{1};
    const fuzz::Bytes stream = from.Rest();
    size_t taken = 0;
    FrameInput frames([&](std::span<uint8_t> room) {
        const size_t size = std::min({room.size(), stream.size() - taken, piece});
        std::memcpy(room.data(), stream.data() + taken, size);
        taken += size;
        return size;
    });
    mpmlink::Header header;
    std::vector<uint8_t> buffer;
    for (size_t begin = 0; frames.Next(header, buffer, kHeadroom); begin = taken) {
        fuzz::Require(header.size <= mpmlink::kMaxPayload, "a frame is bounded");
        fuzz::Require(taken == begin + sizeof header + header.size, "a frame takes just its bytes");
        fuzz::Require(buffer.size() == kHeadroom + header.size, "a payload has its size");
        fuzz::Require(
            std::memcmp(&header, stream.data() + begin, sizeof header) == 0 &&
                std::equal(buffer.begin() + kHeadroom, buffer.end(), stream.data() + begin + sizeof header),
            "a frame arrives as it was sent");
    }
    fuzz::Require(taken <= stream.size(), "no byte is made up");
}
