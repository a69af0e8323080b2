// The scripted media runtime with frames of as many bytes as BENCH_FRAME_SIZE says, all of the same memory,
// and without its records.
#include <cstdlib>
#include <vector>

#include "tests/support/scripted/Objects.h"
#include "tests/support/scripted/Runtime.h"

namespace {

// The runtime calls this with the script's mutex for each call that is made of it.
scripted::Answer Answer(const std::string&) {
    static const std::vector<uint8_t> bytes = [] {
        const char* const size = std::getenv("BENCH_FRAME_SIZE");
        return std::vector<uint8_t>(size ? std::strtoul(size, nullptr, 10) : 1000, 0x5A);
    }();
    scripted::Script& script = scripted::TheScript();
    script.calls.clear();
    script.traces.clear();
    if (script.packets.empty()) {
        scripted::Packet packet;
        packet.lent = &bytes;
        script.packets.push_back(packet);
    }
    return {};
}

}  // namespace

extern "C" lux::LUX_RESULT LUXInit(lux::LUXVersion version, lux::LUXFactory** factory) {
    scripted::TheScript().decide = Answer;
    return scripted::Init(version, factory);
}
