// The screen of one monitor as compressed frames, one for each call. This header and EncodeCapability.h are
// all that other folders need of this one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

class DisplayCapturePipeline;
class LUXFactoryHelper;
struct PipelineShared;

struct DisplayMgrInitArgs {
    uint32_t monitorIndex;  // the vidPnSourceId
    uint32_t width;         // pixels, of the encoded picture too
    uint32_t height;
    uint32_t codec;      // 0 AV1, 1 AVC, 2 HEVC
    uint32_t usage;      // 0 to 3: the row of Av1Usage
    uint32_t bitrate;    // bits per second; 0 is 5,000,000
    uint32_t frameRate;  // frames per second
};
static_assert(sizeof(DisplayMgrInitArgs) == 28);

// One encoded frame in a buffer that is the caller's. CaptureEncode replaces the bytes when a frame is larger
// than the capacity, so that a steady stream allocates nothing.
struct EncodedFrameBuffer {
    std::unique_ptr<uint8_t[]> bytes;
    size_t capacity = 0;
};

// Holds the runtime and one pipeline. All calls come from one thread, except the Terminate after that thread
// has been killed.
class DisplayMgr {
  public:
    DisplayMgr();
    // With a runtime and a shared device of its own, for tests.
    DisplayMgr(LUXFactoryHelper& factory, PipelineShared& shared);
    virtual ~DisplayMgr() = default;

    // True when frames can be captured, and also when the runtime cannot be loaded: such a machine is not
    // worth another attempt, and CaptureEncode then returns false. False after any other failure; the caller
    // may try again. What a failed attempt has created stays alive.
    virtual bool Init(const DisplayMgrInitArgs& args);

    // Blocks until the screen yields a frame, without a limit, and stores its bytes and their number. The
    // number stays as it is when there is no frame; false when the pipeline has failed or does not exist.
    virtual bool CaptureEncode(EncodedFrameBuffer* frame, size_t* size);

    // Shuts the pipeline down and releases the runtime once. Does nothing without an Init.
    virtual void Terminate();

  private:
    LUXFactoryHelper& m_factory;
    PipelineShared& m_shared;
    // Not owned: a pipeline is never destroyed, because a failed attempt keeps what it has created.
    DisplayCapturePipeline* m_pipeline = nullptr;
    bool m_holdsFactory = false;
};
