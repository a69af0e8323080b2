// The simulated firmware with a load's answers behind the DASH port and the KVM port, which it enables.
//
//   bench_firmware echo|sink|blocks ADDRESS      until it is killed
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/Load.h"
#include "firmware/Firmware.h"

namespace {

void SendKvm(mpm::Firmware& firmware, std::string_view bytes) {
    while (!bytes.empty()) {
        const size_t size = std::min(bytes.size(), mpm::kMaxMessagePayload);
        firmware.Send(MPM_ZEL_CMD_KVM_DATA, bytes.substr(0, size));
        bytes.remove_prefix(size);
    }
}

// Answers one stream of the host's.
template <class Send>
void Answer(load::Answerer& answerer, std::span<const uint8_t> bytes, Send send) {
    answerer.Take(reinterpret_cast<const char*>(bytes.data()), bytes.size(),
                  [&](const char* answer, size_t size) { send(std::string_view(answer, size)); });
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 3) {
        fprintf(stderr, "bench_firmware: MODE ADDRESS\n");
        return 2;
    }
    load::Answerer dash(load::ModeOf(argv[1])), kvm(load::ModeOf(argv[1]));
    mpm::Settings settings;
    settings.Dash = mpm::Peer::None;
    settings.KeepRequests = false;
    mpm::Firmware firmware(settings);
    firmware.OnDash([&](std::span<const uint8_t> bytes) {
        Answer(dash, bytes, [&](std::string_view answer) { firmware.SendDash(answer); });
    });
    firmware.Observe([&](const mpm::Event& event) {
        if (event.kind != mpm::Event::Kind::Request) return;
        if (event.code == MailboxCode::WriteKVMPacket) {
            Answer(kvm, event.data, [&](std::string_view answer) { SendKvm(firmware, answer); });
        } else if (event.name == "WriteMultiNwInfo") {
            firmware.Send(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
        }
    });
    firmware.Listen(argv[2]);
    pause();
    return 0;
} catch (const std::exception& problem) {
    fprintf(stderr, "bench_firmware: %s\n", problem.what());
    return 1;
}
