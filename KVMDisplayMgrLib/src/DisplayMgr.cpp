#include "KVMDisplayMgrLib/src/DisplayMgr.h"

#include <winsock2.h>
#include <windows.h>
#include <mmsystem.h>

#include "KVMDisplayMgrLib/src/DisplayCapturePipeline.h"
#include "KVMDisplayMgrLib/src/PipelineShared.h"
#include "KVMDisplayMgrLib/src/StandardOutput.h"

using namespace lux;

namespace {

constexpr UINT kLongestTimerPeriodMs = 1000;

// The pipeline's sleeps of 1 ms need it.
void RaiseTimerResolution(PipelineShared& shared) {
    if (shared.timerPeriod) return;
    UINT period = 1;
    while (timeBeginPeriod(period) == TIMERR_NOCANDO && period < kLongestTimerPeriodMs) {
        ++period;
    }
    shared.timerPeriod = period;
}

}  // namespace

DisplayMgr::DisplayMgr() : DisplayMgr(ProcessLuxFactory(), ProcessPipelineShared()) {}

DisplayMgr::DisplayMgr(LUXFactoryHelper& factory, PipelineShared& shared)
    : m_factory(factory), m_shared(shared) {}

bool DisplayMgr::Init(const DisplayMgrInitArgs& args) {
    if (m_factory.Init() != LUX_OK) {
        PrintWide(L"LUX Failed to initialize");
        return true;
    }
    // Only one of the two holds is released: the runtime stays loaded from now on.
    m_factory.Init();
    m_holdsFactory = true;
    if (LUXDebug* const debug = m_factory.GetDebug()) debug->EnableAssertions(false);
    if (LUXTrace* const trace = m_factory.GetTrace()) {
        trace->EnableAsync(false);
        trace->EnableWriter(L"File", false);
    }
    RaiseTimerResolution(m_shared);
    auto pipeline = std::make_unique<DisplayCapturePipeline>(m_factory, m_shared, args, L".\\");
    m_pipeline = pipeline.get();
    {
        const std::lock_guard lock(m_shared.section);
        m_shared.pipelines.push_back(std::move(pipeline));
    }
    return m_pipeline->InitContext() == LUX_OK && m_pipeline->InitComponents() == LUX_OK;
}

bool DisplayMgr::CaptureEncode(EncodedFrameBuffer* frame, size_t* size) {
    return m_pipeline && m_pipeline->CaptureEncode(frame, size) == LUX_OK;
}

void DisplayMgr::Terminate() {
    if (m_pipeline) m_pipeline->Shutdown();
    if (m_holdsFactory) m_factory.Terminate();
    m_holdsFactory = false;
}
