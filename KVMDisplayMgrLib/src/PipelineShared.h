// What all pipelines of the process share.
#pragma once

#include <cstddef>

struct PipelineShared {
    size_t frameCapacity = 0;  // bytes; never shrinks
};

// The one of the process, which is never destroyed.
PipelineShared& ProcessPipelineShared();
