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
    mpm::Firmware firmware;
    firmware.OnDashBytes([&](const uint8_t* data, size_t size) {
        answerer.Take(reinterpret_cast<const char*>(data), size, [&](const char* answer, size_t length) {
            firmware.SendDash(reinterpret_cast<const uint8_t*>(answer), length);
        });
    });
    firmware.Listen(argv[2]);
    pause();
    return 0;
} catch (const std::exception& problem) {
    fprintf(stderr, "bench_firmware: %s\n", problem.what());
    return 1;
}
