#include "KVMDisplayMgrLib/src/DisplayMgr.h"

#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"
#include "KVMDisplayMgrLib/src/PipelineShared.h"
#include "KVMDisplayMgrLib/src/StandardOutput.h"

PipelineShared& ProcessPipelineShared() {
    static PipelineShared* const shared = new PipelineShared;
    return *shared;
}

DisplayMgr::DisplayMgr() : DisplayMgr(ProcessLuxFactory(), ProcessPipelineShared()) {}

DisplayMgr::DisplayMgr(LUXFactoryHelper& factory, PipelineShared& shared)
    : m_factory(factory), m_shared(shared) {}

bool DisplayMgr::Init(const DisplayMgrInitArgs&) {
    if (m_factory.Init() != lux::LUX_OK) {
        PrintWide(L"LUX Failed to initialize");
        return true;
    }
    m_holdsFactory = true;
    return false;  // no pipeline yet
}

bool DisplayMgr::CaptureEncode(EncodedFrameBuffer*, size_t*) {
    return m_pipeline && m_shared.frameCapacity;
}

void DisplayMgr::Terminate() {
    if (m_holdsFactory) m_factory.Terminate();
    m_holdsFactory = false;
}
