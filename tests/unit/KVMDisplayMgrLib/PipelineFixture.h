// A PC with a graphics adapter and the scripted media runtime, and the parts of the product that use them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KVMDisplayMgrLib/src/DisplayCapturePipeline.h"
#include "KVMDisplayMgrLib/src/DisplayMgr.h"
#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"
#include "KVMDisplayMgrLib/src/PipelineShared.h"
#include "lux/Names.h"
#include "tests/support/PcFixture.h"
#include "tests/support/scripted/Library.h"

class PipelineFixture : public PcFixture {
  protected:
    static constexpr char kSource[] = "KVMDisplayMgrLib/src/DisplayCapturePipeline";
    static constexpr DisplayMgrInitArgs kArgs{3, 1920, 1080, 0, 0, 5'000'000, 30};

    void SetUp() override;
    void Describe(winhost::PcDescription& description) override;
    // Everything that the runtime has given away must have come back.
    void TearDown() override;

    // A pipeline whose runtime is loaded, with both steps of its set-up done.
    DisplayCapturePipeline& Start(const DisplayMgrInitArgs& args = kArgs);
    // The runtime is loaded.
    DisplayCapturePipeline& Make(const DisplayMgrInitArgs& args = kArgs);

    // Encodes one frame; its bytes as a text, or "none".
    std::string Frame(DisplayCapturePipeline& pipeline);

    // The messages in the runtime's trace, and those with this text.
    std::vector<std::string> Messages() const;
    bool HasTrace(lux::LUXTraceLevel level, const std::string& message) const;
    void ExpectTrace(lux::LUXTraceLevel level, const std::string& message) const;
    void ExpectFailure(lux::LUX_RESULT result, const std::string& message) const;

    ScriptedLibrary library;
    scripted::Script& script = library.Script();
    std::unique_ptr<LUXFactoryHelper> factory;
    std::unique_ptr<PipelineShared> shared;
    EncodedFrameBuffer buffer;

  private:
    std::vector<std::unique_ptr<DisplayCapturePipeline>> m_pipelines;
};
