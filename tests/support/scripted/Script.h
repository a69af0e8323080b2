// A media runtime that does what a test says and records what is asked of it. It is a shared object that the
// service loads; the test reaches its script through a function that it exports, in the same process.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "lux/Interfaces.h"

namespace scripted {

// A call is named as it is recorded: "LUXInit", "factory.CreateContext", "context.InitDX11",
// "LUXDisplayCapture.QueryOutput", or with a property's or component's name behind it,
// "LUXDisplayCapture.SetProperty FrameRate".
struct Answer {
    lux::LUX_RESULT result = lux::LUX_OK;
    bool isNull = false;    // stores a null pointer, whatever the result
    bool isObject = false;  // stores an object although the result is a failure
};

enum class Metadata { None, Interface, NullInterface, String, WideString };

// What the capture delivers.
struct Screen {
    lux::LUXSurfaceFormat format = lux::LUX_SURFACE_BGRA;
    int32_t width = 1920, height = 1080;
    Metadata metadata = Metadata::None;
    bool isSurface = true;  // else an object without the interface of a surface
    bool hasPlane = true;
};

// What the encoder delivers: these bytes, or where there are none a text that names the surface.
struct Packet {
    std::vector<uint8_t> bytes;
    bool hasNative = true;
    bool isBuffer = true;
    size_t declaredSize = 0;  // not 0: what GetSize says
    // Not null: these bytes in place of those above. They must outlive the packet.
    const std::vector<uint8_t>* lent = nullptr;
};

struct TraceLine {
    std::string file;
    int32_t line;
    lux::LUXTraceLevel level;
    std::string scope, message;
};

// Any thread. The data members may be accessed only while the mutex is held.
class Script {
  public:
    // From now on everything is answered with success: each captured surface goes through converter and
    // encoder to a packet of its own. Forgets all records.
    void Reset() {
        const std::lock_guard lock(mutex);
        answers.clear();
        always.clear();
        properties.clear();
        screens.clear();
        packets.clear();
        calls.clear();
        traces.clear();
        lastScreen = {};
        backlog = capacity = 0;
        repeatsFailedOutputs = false;
        surfaces = 0;
        version = lux::MakeVersion(1, 4, 38, 0);
        withoutFactory = withoutTrace = false;
        decide = nullptr;
    }

    // The next call of this name gets the answer, and behind it those that are given later; then `always`.
    void Next(const std::string& call, const Answer& answer) {
        const std::lock_guard lock(mutex);
        answers[call].push_back(answer);
    }
    void Always(const std::string& call, const Answer& answer) {
        const std::lock_guard lock(mutex);
        always[call] = answer;
    }
    // The n-th of these is what the capture delivers next; behind the last one the same again and again.
    void Show(const Screen& screen) {
        const std::lock_guard lock(mutex);
        screens.push_back(screen);
    }
    // The capture delivers nothing any more.
    void StandStill() { Always("LUXDisplayCapture.QueryOutput", {lux::LUX_OK, true}); }
    void Deliver(const Packet& packet) {
        const std::lock_guard lock(mutex);
        packets.push_back(packet);
    }
    void DeliverBytes(size_t count) { Deliver({std::vector<uint8_t>(count, 0x5A)}); }

    std::vector<std::string> Calls() const {
        const std::lock_guard lock(mutex);
        return calls;
    }
    // Those that begin with the text.
    std::vector<std::string> Calls(const std::string& begin) const {
        std::vector<std::string> found;
        for (const std::string& call : Calls())
            if (call.rfind(begin, 0) == 0) found.push_back(call);
        return found;
    }
    size_t Count(const std::string& begin) const { return Calls(begin).size(); }
    std::vector<TraceLine> Traces() const {
        const std::lock_guard lock(mutex);
        return traces;
    }
    void ForgetCalls() {
        const std::lock_guard lock(mutex);
        calls.clear();
        traces.clear();
    }
    long LiveObjects() const {
        const std::lock_guard lock(mutex);
        return liveObjects;
    }

    // ---- for the runtime ----

    mutable std::recursive_mutex mutex;
    std::map<std::string, std::deque<Answer>> answers;
    std::map<std::string, Answer> always;
    // What GetProperty answers in place of what was set, by "LUXVideoEncoderHW_HEVC.HevcFrameRate".
    std::map<std::string, lux::LUXVariant> properties;
    std::deque<Screen> screens;
    Screen lastScreen;
    std::deque<Packet> packets;
    size_t backlog = 0;   // outputs that converter and encoder have at their Init
    size_t capacity = 0;  // inputs that they hold; 0: any number
    // An output that comes with a failure comes again. Else it is lost, and a caller that waits for it hangs.
    bool repeatsFailedOutputs = false;
    lux::LUXVersion version = lux::MakeVersion(1, 4, 38, 0);
    bool withoutFactory = false, withoutTrace = false;
    // In place of all answers, when it is set. Called with the mutex.
    std::function<Answer(const std::string& call)> decide;
    std::vector<std::string> calls;
    std::vector<TraceLine> traces;
    long liveObjects = 0;
    uint64_t surfaces = 0;
};

}  // namespace scripted

extern "C" {
// The name under which the shared object exports it is "ScriptOfRuntime".
using ScriptOfRuntime_Fn = scripted::Script* (*)();
}
