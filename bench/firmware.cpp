// The simulated firmware with a load's answers behind the DASH port.
//
//   bench_firmware echo|sink|blocks ADDRESS      until it is killed
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/Load.h"
#include "firmware/Firmware.h"

int main(int argc, char** argv) try {
    if (argc != 3) {
        fprintf(stderr, "bench_firmware: MODE ADDRESS\n");
        return 2;
    }
    load::Answerer answerer(load::ModeOf(argv[1]));
    mpm::Settings settings;
    settings.Dash = mpm::Peer::None;
    mpm::Firmware firmware(settings);
    firmware.OnDash([&](std::span<const uint8_t> bytes) {
        answerer.Take(
            reinterpret_cast<const char*>(bytes.data()), bytes.size(),
            [&](const char* answer, size_t size) { firmware.SendDash(std::string_view(answer, size)); });
    });
    firmware.Listen(argv[2]);
    pause();
    return 0;
} catch (const std::exception& problem) {
    fprintf(stderr, "bench_firmware: %s\n", problem.what());
    return 1;
}
