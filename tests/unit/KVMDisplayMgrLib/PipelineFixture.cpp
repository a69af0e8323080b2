#include "tests/unit/KVMDisplayMgrLib/PipelineFixture.h"

#include <algorithm>

void PipelineFixture::SetUp() {
    PcFixture::SetUp();
    // The sleeps of 1 ms pass by themselves.
    Clock().SetManual(false);
    script.Reset();
    factory = std::make_unique<LUXFactoryHelper>();
    shared = std::make_unique<PipelineShared>();
}

void PipelineFixture::Describe(winhost::PcDescription& description) {
    description.libraryFolders = {ScriptedLibrary::Folder()};
}

void PipelineFixture::TearDown() {
    m_pipelines.clear();
    shared.reset();
    EXPECT_EQ(0, script.LiveObjects());
    factory.reset();
    script.Reset();
    PcFixture::TearDown();
}

DisplayCapturePipeline& PipelineFixture::Make(const DisplayMgrInitArgs& args) {
    EXPECT_EQ(lux::LUX_OK, factory->Init());
    m_pipelines.push_back(std::make_unique<DisplayCapturePipeline>(*factory, *shared, args, L".\\"));
    return *m_pipelines.back();
}

DisplayCapturePipeline& PipelineFixture::Start(const DisplayMgrInitArgs& args) {
    DisplayCapturePipeline& pipeline = Make(args);
    EXPECT_EQ(lux::LUX_OK, pipeline.InitContext());
    EXPECT_EQ(lux::LUX_OK, pipeline.InitComponents());
    return pipeline;
}

std::string PipelineFixture::Frame(DisplayCapturePipeline& pipeline) {
    constexpr size_t kNone = 0xDEAD;
    size_t size = kNone;
    EXPECT_EQ(lux::LUX_OK, pipeline.CaptureEncode(&buffer, &size));
    if (size == kNone) return "none";
    return std::string(buffer.bytes.get(), buffer.bytes.get() + size);
}

std::vector<std::string> PipelineFixture::Messages() const {
    std::vector<std::string> messages;
    for (const scripted::TraceLine& line : script.Traces())
        messages.push_back(line.message);
    return messages;
}

bool PipelineFixture::HasTrace(lux::LUXTraceLevel level, const std::string& message) const {
    const auto traces = script.Traces();
    return std::any_of(traces.begin(), traces.end(), [&](const scripted::TraceLine& line) {
        return line.level == level && line.message == message && line.file == kSource && line.line > 0 &&
               line.scope == "DisplayCapturePipeline";
    });
}

void PipelineFixture::ExpectTrace(lux::LUXTraceLevel level, const std::string& message) const {
    EXPECT_TRUE(HasTrace(level, message)) << message << "\namong\n" << ::testing::PrintToString(Messages());
}

void PipelineFixture::ExpectFailure(lux::LUX_RESULT result, const std::string& message) const {
    ExpectTrace(lux::LUX_TRACE_ERROR,
                "LUX_ERROR " + std::to_string(result) + " : the runtime's text: " + message);
}
