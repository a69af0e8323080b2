// The way in for libFuzzer: fuzzer TARGET [libFuzzer's own arguments].
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "fuzz/Target.h"

namespace {
fuzz::Target target = nullptr;
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    if (*argc > 1) target = fuzz::FindTarget((*argv)[1]);
    if (!target) {
        std::fputs("usage: fuzzer TARGET [ARGUMENT...]; the targets are:\n", stderr);
        for (const std::string& name : fuzz::TargetNames())
            std::fprintf(stderr, "  %s\n", name.c_str());
        std::exit(2);
    }
    std::atexit([] {
        if (fuzz::StepsSoFar() > 0) std::fprintf(stderr, "stat::number_of_steps: %zu\n", fuzz::StepsSoFar());
    });
    std::rotate(*argv + 1, *argv + 2, *argv + *argc);
    --*argc;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    target({data, size});
    return 0;
}
