#include "KVMDisplayMgrLib/src/PipelineShared.h"

#include "KVMDisplayMgrLib/src/DeviceDX11.h"
#include "KVMDisplayMgrLib/src/DisplayCapturePipeline.h"

PipelineShared::PipelineShared() = default;
PipelineShared::~PipelineShared() {
    // They use the rest.
    pipelines.clear();
}

PipelineShared& ProcessPipelineShared() {
    static PipelineShared* const shared = new PipelineShared;
    return *shared;
}
