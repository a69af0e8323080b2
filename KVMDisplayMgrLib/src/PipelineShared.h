// What all pipelines of the process share.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "lux/Ref.h"

class DeviceDX11;
class DisplayCapturePipeline;

struct PipelineShared {
    PipelineShared();
    ~PipelineShared();
    PipelineShared(const PipelineShared&) = delete;
    PipelineShared& operator=(const PipelineShared&) = delete;

    std::mutex section;  // guards the next four
    lux::Ref<lux::LUXContext1> context;
    std::unique_ptr<DeviceDX11> device;
    uint32_t pipelineCount = 0;  // pipelines whose context step has run and which are not shut down
    // Each that was ever made: a failed one keeps what it has created.
    std::vector<std::unique_ptr<DisplayCapturePipeline>> pipelines;

    std::atomic<size_t> frameCapacity{0};  // bytes; never shrinks
    std::atomic<uint32_t> timerPeriod{0};  // ms; 0 until the timer's resolution has been raised
};

// The one of the process, which is never destroyed: the runtime's objects in it may outlive the static ones.
PipelineShared& ProcessPipelineShared();
