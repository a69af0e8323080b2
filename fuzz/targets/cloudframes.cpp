// A hostile cloud's bytes as the stand-in for the cloud library takes them.
#include <string>

#include "companions/nubaapi/Frames.h"
#include "fuzz/Input.h"

FUZZ_TARGET(cloudframes) {
    fuzz::Input from(input);
    const size_t piece = from.Byte() + size_t{1};
    const std::string stream = fuzz::TextOf(from.Rest());
    FrameReader frames;
    std::string taken;
    bool isBroken = false;
    for (size_t at = 0; at < stream.size() && !isBroken; at += piece) {
        frames.Feed(std::string_view(stream).substr(at, piece));
        while (const auto frame = frames.Next(isBroken)) {
            fuzz::Require(frame->payload.size() <= kMaxPayload, "a frame is bounded");
            taken += Encode(frame->type, frame->stream, frame->payload);
        }
    }
    fuzz::Require(stream.starts_with(taken), "a frame arrives as it was sent");
    fuzz::Require(isBroken || stream.size() - taken.size() < kMaxPayload + 9,
                  "a frame that is complete is taken");
}
