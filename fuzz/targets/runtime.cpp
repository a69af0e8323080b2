// A media runtime that answers anything: each call succeeds, fails, or gives a null pointer; surfaces and
// packets are of any kind. Behind the input's end everything succeeds, so that no call waits for ever.
#include <memory>

#include "KVMDisplayMgrLib/src/DisplayCapturePipeline.h"
#include "KVMDisplayMgrLib/src/EncodeCapability.h"
#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"
#include "KVMDisplayMgrLib/src/PipelineShared.h"
#include "fuzz/Input.h"
#include "fuzz/support/Wire.h"
#include "tests/support/scripted/Library.h"
#include "winhost/core/Clock.h"
#include "winhost/pc/Pc.h"

namespace {

struct PcWithRuntime {
    PcWithRuntime() {
        winhost::PcDescription pc;
        pc.root = fuzz::SocketFolder() + "/pc";
        pc.libraryFolders = {ScriptedLibrary::Folder()};
        winhost::Pc::Instance().Reset(pc);
        // A sleep of 1 ms takes a microsecond.
        winhost::Clock::Instance().SetRate(1000);
    }
    ScriptedLibrary library;
};

scripted::Screen AnyScreen(fuzz::Input& input) {
    scripted::Screen screen;
    screen.format = static_cast<lux::LUXSurfaceFormat>(input.Byte() % 16);
    screen.width = static_cast<int32_t>(input.Number());
    screen.height = static_cast<int32_t>(input.Number());
    screen.metadata = static_cast<scripted::Metadata>(input.Byte() % 5);
    const uint8_t kind = input.Byte();
    screen.isSurface = kind % 8 != 7;
    screen.hasPlane = kind % 16 != 6;
    return screen;
}

// Half of the calls succeed.
scripted::Answer AnyAnswer(fuzz::Input& input) {
    const uint8_t byte = input.Byte();
    if (byte < 128) return {};
    return {static_cast<lux::LUX_RESULT>(byte % 32), (byte & 32) != 0, (byte & 64) != 0};
}

// An input queue that is said to be full without an output would be waited for, without a limit.
scripted::Answer AnswerTo(const std::string& call, fuzz::Input& input) {
    scripted::Answer answer = AnyAnswer(input);
    const bool isFull = answer.result == lux::LUX_INPUT_FULL && call.ends_with(".SubmitInput");
    if (isFull) answer.result = lux::LUX_FAIL;
    return answer;
}

void AddAnything(fuzz::Input& input, scripted::Script& script) {
    const uint8_t things = input.Byte();
    if (things & 1) {
        script.Show(AnyScreen(input));
        // The last one is repeated, and no frame comes of one that is no surface.
        script.Show({});
    }
    if (things & 2) {
        const fuzz::Bytes bytes = input.Block();
        const uint8_t kind = input.Byte();
        script.Deliver({{bytes.begin(), bytes.end()}, kind % 4 != 3, kind % 8 != 6, 0});
    }
    script.backlog = things >> 2 & 3;
    script.capacity = things >> 4 & 3;
    script.withoutFactory = (things & 0xC0) == 0xC0;
}

void EncodeFrames(fuzz::Input& input, scripted::Script& script, DisplayMgr& mgr, EncodedFrameBuffer& buffer) {
    for (uint8_t frames = input.Byte() % 4; frames > 0; --frames) {
        AddAnything(input, script);
        constexpr size_t kUnset = SIZE_MAX;
        size_t size = kUnset;
        const size_t capacity = buffer.capacity;
        const bool isDone = mgr.CaptureEncode(&buffer, &size);
        fuzz::Require(isDone || size == kUnset, "a failure stores no size");
        fuzz::Require(size == kUnset || (buffer.bytes && size <= buffer.capacity), "a frame fits its buffer");
        fuzz::Require(buffer.capacity >= capacity, "the buffer does not shrink");
    }
}

}  // namespace

FUZZ_TARGET(runtime) {
    static const PcWithRuntime pc;
    scripted::Script& script = pc.library.Script();
    script.Reset();
    script.repeatsFailedOutputs = true;
    fuzz::Input answers(input);
    script.decide = [&answers](const std::string& call) { return AnswerTo(call, answers); };
    size_t steps = 0;
    {
        LUXFactoryHelper factory;
        PipelineShared shared;
        DisplayMgr mgr(factory, shared);
        EncodedFrameBuffer buffer;
        for (; steps < 4 && !answers.AtEnd(); ++steps) {
            AddAnything(answers, script);
            const uint32_t codec = answers.Byte() % 4, usage = answers.Byte() % 5, rate = answers.Byte();
            // An encoder that does not exist yields no frame, whatever comes.
            const bool hasEncoder = codec < 3;
            if (mgr.Init({0, answers.Word(), answers.Word(), codec, usage, 0, rate}) && hasEncoder)
                EncodeFrames(answers, script, mgr, buffer);
            if (answers.Byte() % 4) mgr.Terminate();
        }
        lux::LUXVersion current = 0, minimum = 0;
        const int isFound = QueryEncodeCapability(factory, kEncoderCapability, &current, &minimum);
        fuzz::Require(isFound == 0 || minimum == LUX_MIN_VERSION, "an encoder has a runtime");
    }
    fuzz::Require(script.LiveObjects() == 0, "the runtime gets everything back",
                  std::to_string(script.LiveObjects()));
    fuzz::CountSteps(steps);
    script.Reset();
}
